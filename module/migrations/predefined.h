// Whether a document is one of the product's.
#pragma once

#include <optional>

#include "notes_api.h"

namespace updkrx {

/** True for a document that the product ships, until the customer makes it the customer's own. Nothing when that cannot
 *  be read, which is logged. */
[[nodiscard]] std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept;

} // namespace updkrx
