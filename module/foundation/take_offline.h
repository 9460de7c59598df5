// Taking a database offline that may still have users. Paths are relative to the data directory.
#pragma once

#include "foundation/pause.h"
#include "notes_api.h"

namespace updkrx {

inline constexpr int offlineAttempts = 60;
inline constexpr DWORD offlinePause = 1000; // milliseconds after an attempt that found the database in use

/** One attempt, which waits for the users to leave. The options are those of NSFTakeDatabaseOffline. */
[[nodiscard]] STATUS TakeOfflineOnce(const char* path, DWORD options) noexcept;

/**
 * Takes a database offline, trying again for as long as it is in use and attempts are left. Each attempt that finds the
 * database in use is told to `reportInUse` with the number of such attempts before it. Returns the status of the last
 * attempt, whole; a database that is offline already and is to be kept is a success.
 */
template<class ReportInUse>
[[nodiscard]] STATUS TakeOfflineWhenUnused(const char* path, DWORD options, ReportInUse reportInUse) noexcept {
    STATUS status = NOERROR;
    for (int attempt = 0; attempt < offlineAttempts; ++attempt) {
        status = TakeOfflineOnce(path, options);
        if ((status & ERR_MASK) != ERR_DBINUSE) {
            break;
        }
        reportInUse(attempt);
        Pause(offlinePause);
    }
    // A run that died may have left it offline.
    const bool isOffline = (status & ERR_MASK) == ERR_DBOFFLINE && (options & OFFLINE_NODELETE) != 0;
    return isOffline ? NOERROR : status;
}

/** Brings a database online again. */
[[nodiscard]] STATUS BringOnline(const char* path) noexcept;

} // namespace updkrx
