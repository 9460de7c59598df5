// Where the product's databases are.
#pragma once

#include <optional>
#include <string>

namespace updkrx {

enum class Report { logged, silent };

/** The folder of the product's databases, as native text. Nothing, which is reported, when the server's data directory
 *  is not known, or when its path is too long for one: files would be copied to another place. */
[[nodiscard]] std::optional<std::string> GetProductFolder(Report report = Report::logged);

} // namespace updkrx
