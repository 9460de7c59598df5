#include "common/common_log.h"

#include <cstdio>
#include <ctime>

#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t pathSize = 256;
constexpr size_t timeTextSize = 20; // "2026/11/18 10:15:00"
constexpr size_t headerSize = 100;
constexpr size_t messageSize = 2048;

bool IsWritten(int32_t level) noexcept {
    // A level of 0 or below leaves a remainder of 0 or below, which any setting but off lets through.
    return CommonLogSettings.level >= 0 && level % 4 <= CommonLogSettings.level;
}

} // namespace

void CommonLogWrite(const char* sourceFile, int32_t line, int32_t level, const char* format, ...) noexcept {
    if (!IsWritten(level)) {
        return;
    }
    std::tm now = {};
    char timeStamp[timeTextSize];
    char date[timeTextSize];
    if (!os::LocalTime(now) || std::strftime(timeStamp, sizeof timeStamp, "%Y/%m/%d %H:%M:%S", &now) == 0 ||
        std::strftime(date, sizeof date, "%Y%m%d", &now) == 0) {
        return;
    }
    char path[pathSize];
    bq_snprintf(path, sizeof path, "%s/%s_%s.dbg", CommonLogSettings.directory, CommonLogSettings.baseName, date);
    std::FILE* file = os::OpenForAppend(path);
    if (file == nullptr) {
        return;
    }
    char header[headerSize];
    bq_snprintf(header, sizeof header, "[%s][pid=%d][tid=%d][module=%08x]", timeStamp, os::ProcessId(), os::ThreadId(),
                static_cast<uint32_t>(level));
    char message[messageSize];
    std::va_list arguments;
    va_start(arguments, format);
    bq_vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);

    const ExclusiveLockGuard appending(CommonLogLock);
    // A line that cannot be written is lost: there is nowhere to report it.
    (void)std::fprintf(file, "%s [%35s(%4d)]:%s\n", header, sourceFile, line, message);
    (void)std::fclose(file);
}

} // namespace updkrx
