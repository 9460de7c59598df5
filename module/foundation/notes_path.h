// Paths as the Notes API takes them.
#pragma once

#include <cstddef>

#include "notes_api.h"

namespace updkrx {

/** Puts the data directory in front of a path relative to it; false when that does not fit, or when the directory is
 *  not known. In the Notes character set. */
[[nodiscard]] bool GetFullPath(const char* path, char (&fullPath)[MAXPATH]) noexcept;

/** Calls an operation whose first argument is the path of a database, relative to the data directory. Some servers
 *  know databases by their full paths only there: when there is none at that path, it is called once more with the
 *  full one. */
template<class Operation, class... Arguments>
[[nodiscard]] STATUS WithFullPathToo(Operation operation, const char* path, Arguments... arguments) noexcept {
    const STATUS status = operation(path, arguments...);
    char fullPath[MAXPATH];
    return (status & ERR_MASK) == ERR_NOEXIST && GetFullPath(path, fullPath) ? operation(fullPath, arguments...)
                                                                             : status;
}

} // namespace updkrx
