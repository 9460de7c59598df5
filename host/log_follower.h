// What the module writes into its log while it runs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace krxpatch {

/** Follows the log files of a folder; there may be two of them in a run that passes midnight. */
class LogFollower {
public:
    /** What stands in the files by now is not shown. */
    explicit LogFollower(std::filesystem::path folder);

    /** The messages written since the last call, without the lines' headers and without empty lines. */
    [[nodiscard]] std::vector<std::string> TakeNewMessages();

private:
    std::filesystem::path folder_;
    std::map<std::filesystem::path, std::streamoff> taken_; // the bytes of each file
};

} // namespace krxpatch
