// Moments as people read them.
#pragma once

#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>

namespace krxpatch {

[[nodiscard]] inline std::time_t Now() {
    return std::time(nullptr);
}

/** In UTC, in the form of strftime. */
[[nodiscard]] inline std::string FormatTime(std::time_t moment, const char* format) {
    std::ostringstream text;
    text << std::put_time(std::gmtime(&moment), format);
    return text.str();
}

[[nodiscard]] inline std::string TimeText(std::time_t moment) {
    return FormatTime(moment, "%Y-%m-%d %H:%M:%S UTC");
}

} // namespace krxpatch
