// What the module writes into its log while it runs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace krxpatch {

struct LoggedLine {
    std::string time; // as the line has it; empty when it has none
    std::string message;
};

/** A line without its header. */
[[nodiscard]] std::string_view MessageOf(std::string_view line);

/** Follows the log files of a folder; there may be two of them in a run that passes midnight. */
class LogFollower {
public:
    enum class From { beginning, now };

    /** From now: what stands in the files by now is not shown. */
    LogFollower(std::filesystem::path folder, From from);

    /** The lines written since the last call, without empty ones. */
    [[nodiscard]] std::vector<LoggedLine> TakeNewLines();

private:
    std::filesystem::path folder_;
    std::map<std::filesystem::path, std::streamoff> taken_; // the bytes of each file
};

} // namespace krxpatch
