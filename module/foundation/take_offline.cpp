#include "foundation/take_offline.h"

#include <algorithm>

#include "common/bounded_text.h"

namespace updkrx {
namespace {

constexpr DWORD offlineWait = 10000; // milliseconds that one attempt waits for the users to leave

/** Puts the data directory in front of a path relative to it; false when that does not fit, or when the directory is
 *  not known. In the Notes character set. */
bool GetFullPath(const char* path, char (&fullPath)[MAXPATH]) noexcept {
    char directory[MAXPATH] = {};
    const WORD length = std::min<WORD>(OSGetDataDirectory(directory), MAXPATH - 1);
    directory[length] = '\0';
    return length > 0 && bq_snprintf(fullPath, sizeof fullPath, "%s/%s", directory, path) >= 0;
}

/** Calls an operation whose first argument is the path of a database. Some servers know databases by their full paths
 *  only there: when there is none at that path, it is called once more with the full one. */
template<class Operation, class... Arguments>
STATUS WithFullPathToo(Operation operation, const char* path, Arguments... arguments) noexcept {
    const STATUS status = operation(path, arguments...);
    char fullPath[MAXPATH];
    return (status & ERR_MASK) == ERR_NOEXIST && GetFullPath(path, fullPath) ? operation(fullPath, arguments...)
                                                                             : status;
}

} // namespace

STATUS TakeOfflineOnce(const char* path, DWORD options) noexcept {
    return WithFullPathToo(NSFTakeDatabaseOffline, path, offlineWait, options);
}

STATUS BringOnline(const char* path) noexcept {
    return WithFullPathToo(NSFBringDatabaseOnline, path, DWORD{0});
}

} // namespace updkrx
