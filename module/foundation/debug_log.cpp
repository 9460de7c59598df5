#include "foundation/debug_log.h"

#include "common/dated_line.h"
#include "notes_api.h"

namespace updkrx {
namespace {

constexpr size_t pathSize = 256;
constexpr size_t headSize = 32;

} // namespace

bool IsDebugLogEnabled() noexcept {
    return OSGetEnvironmentLong("KRX_ENABLE_KRENCY_LOG") == 1;
}

void GetDebugLogFolder(char* buffer, int size) noexcept {
    if (buffer == nullptr || size <= 0) {
        return;
    }
    char dataDirectory[MAXPATH] = {};
    (void)OSGetDataDirectory(dataDirectory); // its length; the text is terminated
    bq_snprintf(buffer, static_cast<size_t>(size), "%s\\krxtemp", dataDirectory);
}

void DebugLog(int32_t level, const char* format, ...) noexcept {
    if (!IsDebugLogEnabled()) {
        return;
    }
    char folder[pathSize];
    GetDebugLogFolder(folder, sizeof folder);
    char log[pathSize];
    bq_snprintf(log, sizeof log, "%s\\updkrx", folder);
    char head[headSize];
    bq_snprintf(head, sizeof head, "[module=%x]:", static_cast<uint32_t>(level));
    std::va_list arguments;
    va_start(arguments, format);
    WriteDatedLine({log, head, nullptr}, format, arguments);
    va_end(arguments);
}

} // namespace updkrx
