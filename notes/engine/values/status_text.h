// The texts of statuses, English as on a server.
#pragma once

#include <string_view>

#include "notes_api.h"

namespace embedded {

/** Empty for a code that has no text. `code` is masked with ERR_MASK by the caller. */
std::string_view StatusText(STATUS code) noexcept;

} // namespace embedded
