// Taking a database offline that may still have users.
#pragma once

#include "foundation/notes_api.h"
#include "foundation/notes_path.h"

namespace updkrx {

inline constexpr DWORD offlineWait = 10000; // milliseconds that one attempt waits for the users to leave
inline constexpr int offlineAttempts = 60;
inline constexpr DWORD offlinePause = 1000; // milliseconds after an attempt that found the database in use

/**
 * Takes a database offline, trying again for as long as it is in use and attempts are left. The path and the options
 * are those of NSFTakeDatabaseOffline; a path that is too long is ERR_NOEXIST. Each attempt that finds the database in
 * use is told to `reportInUse` with the number of such attempts before it. Returns the status of the last attempt,
 * whole.
 */
template<class ReportInUse>
[[nodiscard]] STATUS TakeOfflineWhenUnused(const char* path, DWORD options, ReportInUse reportInUse) noexcept {
    STATUS status = NOERROR;
    for (int attempt = 0; attempt < offlineAttempts; ++attempt) {
        status = WithPath(path, NSFTakeDatabaseOffline, offlineWait, options);
        if ((status & ERR_MASK) != ERR_DBINUSE) {
            break;
        }
        reportInUse(attempt);
        (void)AddInIdleDelay(offlinePause); // a server that wants the task to end is not heard in mid-upgrade
    }
    return status;
}

} // namespace updkrx
