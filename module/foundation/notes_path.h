// Paths as the Notes API takes them.
#pragma once

#include <cstring>

#include "foundation/notes_api.h"

namespace updkrx {

/** Calls an operation whose first argument is a path relative to the data directory. A path that is too long for the
 *  platform names no database: the operation is not called, and the result is ERR_NOEXIST. */
template<class Operation, class... Arguments>
[[nodiscard]] STATUS WithPath(const char* path, Operation operation, Arguments... arguments) noexcept {
    return std::strlen(path) < MAXPATH ? operation(path, arguments...) : ERR_NOEXIST;
}

} // namespace updkrx
