// Where the product's databases are: in the folder "krx" below the server's data directory.
#pragma once

#include <optional>
#include <string>

#include "notes_api.h"

namespace updkrx {

enum class Report { logged, silent };

/** The folder of the product's databases, as native text. Nothing, which is reported, when the server's data directory
 *  is not known, or when its path is too long for one: files would be copied to another place. */
[[nodiscard]] std::optional<std::string> GetProductFolder(Report report = Report::logged);

/** Puts the path of a file of that folder, as the Notes API takes it, into `path`. False when it is too long for that,
 *  and cut. */
[[nodiscard]] bool GetProductPath(const char* fileName, char (&path)[MAXPATH]) noexcept;

} // namespace updkrx
