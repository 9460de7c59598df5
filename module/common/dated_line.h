// A line of a log that has one text file a day.
#pragma once

#include <cstdarg>

#include "common/bounded_text.h"
#include "common/rw_lock.h"

namespace updkrx {

/** What the lines of one log differ in from those of another. */
struct DatedLine {
    const char* log;  // the path of the log's files without the end "_<date>.dbg"
    const char* head; // between the time, process and thread and the message
    RwLock* lock;     // held while the line is written; null when the log has none
};

/**
 * Adds a line to today's file: "[<time>][pid=<process>][tid=<thread>]", the head and the message, which is cut to 2047
 * characters. The path is cut to 255. No failure is reported: when the file cannot be opened or the disk is full, the
 * line is lost.
 */
void WriteDatedLine(const DatedLine& line, const char* format, std::va_list arguments) noexcept
    UPDKRX_PRINTF_FORMAT(2, 0);

} // namespace updkrx
