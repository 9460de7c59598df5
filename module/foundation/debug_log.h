// The module's own log: one text file a day in the product's temporary folder, off unless the server's environment
// switches it on.
#pragma once

#include <cstdint>

#include "common/bounded_text.h"

namespace updkrx {

/** The levels in use. The level is printed with every line and filters nothing. */
namespace level {
inline constexpr int32_t retry = 0; // retries, formulas that do not compile, making the encyclopedia anew
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
