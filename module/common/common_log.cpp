#include "common/common_log.h"

#include "common/dated_line.h"

namespace updkrx {
namespace {

constexpr size_t logSize = 256;
constexpr size_t headSize = 256;

bool IsWritten(int32_t level) noexcept {
    // A level of 0 or below leaves a remainder of 0 or below, which any setting but off lets through.
    return CommonLogSettings.level >= 0 && level % 4 <= CommonLogSettings.level;
}

} // namespace

void CommonLogWrite(const char* sourceFile, int32_t line, int32_t level, const char* format, ...) noexcept {
    if (!IsWritten(level)) {
        return;
    }
    char log[logSize];
    bq_snprintf(log, sizeof log, "%s/%s", CommonLogSettings.directory, CommonLogSettings.baseName);
    char head[headSize];
    bq_snprintf(head, sizeof head, "[module=%08x] [%35s(%4d)]:", static_cast<uint32_t>(level), sourceFile, line);
    std::va_list arguments;
    va_start(arguments, format);
    WriteDatedLine({log, head, &CommonLogLock}, format, arguments);
    va_end(arguments);
}

} // namespace updkrx
