#include "common/dated_line.h"

#include <cstdio>
#include <ctime>
#include <optional>

#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t pathSize = 256;
constexpr size_t timeTextSize = 20; // "2026/11/18 10:15:00"
constexpr size_t messageSize = 2048;

} // namespace

void WriteDatedLine(const DatedLine& line, const char* format, std::va_list arguments) noexcept {
    std::tm now = {};
    char time[timeTextSize];
    char date[timeTextSize];
    if (!os::LocalTime(now) || std::strftime(time, sizeof time, "%Y/%m/%d %H:%M:%S", &now) == 0 ||
        std::strftime(date, sizeof date, "%Y%m%d", &now) == 0) {
        return;
    }
    char path[pathSize];
    bq_snprintf(path, sizeof path, "%s_%s.dbg", line.log, date);
    os::OwnedFile file = os::OpenForAppend(path);
    if (file == nullptr) {
        return;
    }
    char message[messageSize];
    bq_vsnprintf(message, sizeof message, format, arguments);

    std::optional<ExclusiveLockGuard> appending;
    if (line.lock != nullptr) {
        appending.emplace(*line.lock);
    }
    // One write for the whole line, so that lines of two writers stay whole. A line that cannot be written is lost:
    // there is nowhere to report it.
    (void)std::fprintf(file.get(), "[%s][pid=%d][tid=%d]%s%s\n", time, os::ProcessId(), os::ThreadId(), line.head,
                       message);
    file.reset(); // written out before the next writer may
}

} // namespace updkrx
