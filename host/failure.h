// How a command ends when it cannot do what it was asked for.
#pragma once

#include <stdexcept>
#include <string>

namespace krxpatch {

/** What krxpatch exits with. */
enum ExitCode : int {
    succeeded = 0,
    failed = 1,     // the outcome is not what the command is for
    notStarted = 2, // nothing was touched: a bad command line, or something is missing that the command needs
};

/** Ends the command with an exit code. The message is one line that names the file and the cause. */
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exitCode, const std::string& message) : std::runtime_error(message), exitCode_(exitCode) {}

    [[nodiscard]] ExitCode Code() const noexcept { return exitCode_; }

private:
    ExitCode exitCode_;
};

} // namespace krxpatch
