// How a command ends.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace krxpatch {

/** What krxpatch exits with. */
enum ExitCode : int {
    succeeded = 0,
    failed = 1,
    notStarted = 2,
    changesPending = 3,
    heldByAnother = 4,
    interrupted = 130,
};

struct ExitMeaning {
    ExitCode code;
    const char* name; // to programs
    const char* meaning;
};

/** All of them: what --help and the operator's page tell. */
inline constexpr ExitMeaning exitMeanings[] = {
    {succeeded, "done", "done, or nothing to do"},
    {failed, "failed", "not done, or not as it should be"},
    {notStarted, "not-started", "could not start; nothing was touched"},
    {changesPending, "changes-pending", "changes are pending (plan; status when behind)"},
    {heldByAnother, "held", "another krxpatch holds the server folder; nothing was touched"},
    {interrupted, "interrupted", "interrupted; the last line says what state things are in"},
};

[[nodiscard]] constexpr const char* NameOf(ExitCode exitCode) {
    for (const ExitMeaning& row : exitMeanings) {
        if (row.code == exitCode) {
            return row.name;
        }
    }
    return "unknown";
}

/** Ends the command with an exit code. The message is one line that names the file and the cause. */
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exitCode, const std::string& message) : std::runtime_error(message), exitCode_(exitCode) {}

    [[nodiscard]] ExitCode Code() const noexcept { return exitCode_; }

private:
    ExitCode exitCode_;
};

/** What the system could not do: the file and the cause in one line. */
[[nodiscard]] inline std::string CauseOf(const std::filesystem::filesystem_error& error) {
    const std::filesystem::path& file = error.path2().empty() ? error.path1() : error.path2();
    return (file.empty() ? "" : file.string() + ": ") +
           (error.code() == std::errc::no_space_on_device ? "the disk is full" : error.code().message());
}

} // namespace krxpatch
