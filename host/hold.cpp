#include "hold.h"

#include <ctime>

#include "failure.h"

namespace krxpatch {
namespace {

std::filesystem::path HoldFile(const std::filesystem::path& server) {
    return server / "krxpatch.hold";
}

std::string NowText() {
    const std::time_t now = std::time(nullptr);
    char text[32] = "";
    (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", std::gmtime(&now)); // its length; it fits
    return text;
}

} // namespace

std::string DescribeThis(const std::string& command) {
    return "krxpatch " + command + " by " + platform::DescribeProcess() + ", since " + NowText();
}

platform::HeldFile HoldServer(const std::filesystem::path& server, const std::string& description) {
    // Asked first: another user's file cannot even be opened to try.
    auto holder = HolderOf(server);
    try {
        if (!holder) {
            if (auto held = platform::HeldFile::Take(HoldFile(server), description)) {
                return std::move(*held);
            }
            holder = HolderOf(server);
        }
    } catch (const std::filesystem::filesystem_error& error) {
        throw Failure(notStarted, server.string() + ": cannot be written: " + error.path1().filename().string() + ": " +
                                      error.code().message());
    }
    throw Failure(failed, server.string() + ": is in use: " + holder.value_or("try again"));
}

std::optional<std::string> HolderOf(const std::filesystem::path& server) {
    const auto text = platform::HeldFile::TextOfHolder(HoldFile(server));
    return text && text->empty() ? "a krxpatch that has just begun" : text;
}

std::optional<std::filesystem::path> ServerOf(std::filesystem::path folder) {
    std::error_code ignored; // what cannot be looked into is no server folder
    while (!std::filesystem::is_regular_file(folder / "notes.ini", ignored)) {
        if (!folder.has_relative_path()) {
            return std::nullopt;
        }
        folder = folder.parent_path();
    }
    return folder;
}

} // namespace krxpatch
