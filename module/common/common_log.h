// The log of the product's shared library: one text file a day. It is off, and nothing in this module switches it on.
#pragma once

#include <cstdint>

#include "common/bounded_text.h"
#include "common/rw_lock.h"

namespace updkrx {

struct CommonLogRecord {
    int32_t level = -1; // the highest message level that is written, 0 to 3; below 0 the log is off
    int32_t mode = 0;
    bool is64Bit = false;
    uint64_t processIdFile = ~uint64_t{0}; // the platform's invalid handle: this module opens no such file
    char baseName[256] = {};               // of the log files
    char directory[256] = {};
};

/** Both stand from load to unload. The lock serialises appends to the log; if it could not be created they are not
 *  serialised. */
extern RwLock CommonLogLock;
extern CommonLogRecord CommonLogSettings;

/**
 * Adds a line to today's file, directory/baseName_date.dbg. Only `level` modulo 4 decides; the line shows all of it. A
 * level of 0 or below is written unless the log is off. The message is cut to 2047 characters, the head before it to
 * 255. No failure is reported: when the file cannot be opened the line is lost.
 */
void CommonLogWrite(const char* sourceFile, int32_t line, int32_t level, const char* format, ...) noexcept
    UPDKRX_PRINTF_FORMAT(4, 5);

} // namespace updkrx
