#include "log_follower.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform.h"

namespace krxpatch {
namespace {

/** In the order of their dates. */
std::vector<std::filesystem::path> LogFiles(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    std::error_code ignored; // without the folder there is no log
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        if (entry.path().extension() == ".dbg" && entry.path().filename().string().starts_with("updkrx_")) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

/** What stands in the first brackets of a header, [time][pid=...][tid=...][module=...]: */
std::string TimeOf(std::string_view line) {
    return MessageOf(line).size() == line.size() ? "" : std::string(line.substr(1, line.find(']') - 1));
}

} // namespace

std::string_view MessageOf(std::string_view line) {
    if (line.ends_with('\r')) {
        line.remove_suffix(1); // some systems end lines in two characters
    }
    const size_t level = line.find("[module=");
    const size_t end = level == std::string_view::npos ? level : line.find("]:", level);
    return line.starts_with('[') && end != std::string_view::npos ? line.substr(end + 2) : line;
}

LogFollower::LogFollower(std::filesystem::path folder, From from) : folder_(std::move(folder)) {
    if (from == From::now) {
        (void)TakeNewLines();
    }
}

std::vector<LoggedLine> LogFollower::TakeNewLines() {
    std::vector<LoggedLine> lines;
    for (const std::filesystem::path& file : LogFiles(folder_)) {
        std::streamoff& taken = taken_[file];
        std::ifstream stream(file, std::ios::binary);
        stream.seekg(taken);
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        size_t start = 0;
        for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
            const std::string_view line = std::string_view(text).substr(start, end - start);
            if (const std::string_view message = MessageOf(line); !message.empty()) {
                lines.push_back({TimeOf(line), platform::Utf8FromNative(message)});
            }
        }
        taken += static_cast<std::streamoff>(start); // a line that is not whole yet comes with the next call
    }
    return lines;
}

} // namespace krxpatch
