#include "foundation/debug_log.h"

#include <cstdio>
#include <ctime>

#include "notes_api.h"
#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t pathSize = 256;
constexpr size_t timeTextSize = 20; // "2026/11/18 10:15:00"
constexpr size_t headerSize = 100;
constexpr size_t messageSize = 2048;

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
    std::tm now = {};
    char timeStamp[timeTextSize];
    char date[timeTextSize];
    if (!os::LocalTime(now) || std::strftime(timeStamp, sizeof timeStamp, "%Y/%m/%d %H:%M:%S", &now) == 0 ||
        std::strftime(date, sizeof date, "%Y%m%d", &now) == 0) {
        return;
    }
    char folder[pathSize];
    GetDebugLogFolder(folder, sizeof folder);
    char path[pathSize];
    bq_snprintf(path, sizeof path, "%s%s%s_%s.dbg", folder, "\\", "updkrx", date);
    std::FILE* file = os::OpenForAppend(path);
    if (file == nullptr) {
        return;
    }
    char header[headerSize];
    bq_snprintf(header, sizeof header, "[%s][pid=%d][tid=%d][module=%x]:", timeStamp, os::ProcessId(), os::ThreadId(),
                static_cast<uint32_t>(level));
    char message[messageSize];
    std::va_list arguments;
    va_start(arguments, format);
    bq_vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    // One write for the whole line, so that lines of two writers stay whole. A line that cannot be written is lost:
    // there is nowhere to report it.
    (void)std::fprintf(file, "%s%s\n", header, message);
    (void)std::fclose(file);
}

} // namespace updkrx
