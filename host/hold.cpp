#include "hold.h"

#include "config_file.h"
#include "failure.h"
#include "times.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

constexpr std::string_view by = " by ";
constexpr std::string_view since = ", since ";

} // namespace

std::string DescribeThis(const std::string& command) {
    std::string text = "krxpatch " + command;
    return text.append(by).append(platform::DescribeProcess()).append(since).append(TimeText(Now()));
}

std::pair<std::string, std::string> WhoAndWhen(const std::string& description) {
    const size_t who = description.find(by);
    const size_t when = description.rfind(since);
    if (who == std::string::npos || when == std::string::npos || when < who) {
        return {description, ""};
    }
    const size_t name = who + by.size();
    return {description.substr(name, when - name), description.substr(when + since.size())};
}

std::filesystem::path HoldFile(const std::filesystem::path& dataDirectory) {
    return dataDirectory / "krxpatch.hold";
}

platform::HeldFile Hold(const std::filesystem::path& dataDirectory, const std::string& description) {
    RequireNotHeld(dataDirectory); // asked first: another user's file cannot even be opened to try
    try {
        if (auto held = platform::HeldFile::Take(HoldFile(dataDirectory), description)) {
            return std::move(*held);
        }
    } catch (const std::filesystem::filesystem_error& error) {
        if (!std::filesystem::exists(HoldFile(dataDirectory))) {
            throw Failure(notStarted, dataDirectory.string() + ": cannot be written: " + error.code().message());
        }
        throw Failure(notStarted, CauseOf(error) + "; when no krxpatch is at work, remove it");
    }
    RequireNotHeld(dataDirectory);
    throw Failure(heldByAnother, dataDirectory.string() + ": was in use a moment ago: try again");
}

void RequireNotHeld(const std::filesystem::path& dataDirectory) {
    if (const auto holder = HolderOf(dataDirectory)) {
        throw Failure(heldByAnother, dataDirectory.string() + ": is in use: " + *holder);
    }
}

std::optional<std::string> HolderOf(const std::filesystem::path& dataDirectory) {
    const auto text = platform::HeldFile::TextOfHolder(HoldFile(dataDirectory));
    return text && text->empty() ? "a krxpatch that has just begun" : text;
}

std::optional<std::filesystem::path> ServerFolderAround(std::filesystem::path folder) {
    std::error_code ignored; // what cannot be looked into is no server folder
    while (!std::filesystem::is_regular_file(folder / "notes.ini", ignored)) {
        if (!folder.has_relative_path()) {
            return std::nullopt;
        }
        folder = folder.parent_path();
    }
    return folder;
}

std::optional<std::filesystem::path> DataDirectoryAround(const std::filesystem::path& folder) {
    const auto server = ServerFolderAround(folder);
    if (!server) {
        return std::nullopt;
    }
    std::error_code ignored; // what cannot be looked into is no data directory
    const auto directory = ConfigFile(*server / "notes.ini").Find("", "Directory");
    const std::filesystem::path data = *server / PathOf(directory ? directory->value : "");
    return std::filesystem::is_directory(data, ignored) ? std::optional(data) : std::nullopt;
}

} // namespace krxpatch
