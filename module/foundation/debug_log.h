// The module's own log: one text file a day in the product's temporary folder, off unless the server's environment
// switches it on.
//
// Its texts are frozen: people and tools search for them. A text that is there stays as it is, letter for letter, with
// its spelling ("Signning", "skiped", "documetn"), its level and a line feed at its end; and so do the names in it that
// are borrowed from elsewhere: a step may report under the name of another one, such as UpdateKrency or
// MigrateManualScanSettingCallback, and the line of a formula that does not compile under PatchKRX.
#pragma once

#include <cstdint>

#include "common/bounded_text.h"

namespace updkrx {

/** The levels in use. The level is printed with every line and filters nothing. */
namespace level {
inline constexpr int32_t unusual = 0; // what few runs meet: a database in use, a formula that does not compile, an
                                      // encyclopedia in the old format
inline constexpr int32_t progress = 1;
inline constexpr int32_t detail = 3;
} // namespace level

/**
 * Adds a line to today's log file, or does nothing while the log is off. The message is cut to 2047 characters; one
 * that ends in a line feed is followed by an empty line. No failure is reported: without the folder, or with a full
 * disk, the line is lost.
 */
void DebugLog(int32_t level, const char* format, ...) noexcept UPDKRX_PRINTF_FORMAT(2, 3);

/** True while the environment variable KRX_ENABLE_KRENCY_LOG is 1. Read afresh on every call. */
[[nodiscard]] bool IsDebugLogEnabled() noexcept;

/** Puts the folder of the log files, terminated and cut to `size` bytes, into `buffer`, in the character set of the
 *  Notes API. Nothing happens without a buffer or when `size` is not positive. */
void GetDebugLogFolder(char* buffer, int size) noexcept;

} // namespace updkrx
