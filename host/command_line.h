// The command line: which command is meant, and with what.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands.h"

namespace CLI {
class App;
}

namespace krxpatch {

struct CommandLine {
    std::string command;
    bool json = false;         // the report is printed and nothing else
    bool quiet = false;        // nothing is printed but what went wrong
    bool printsReport = false; // the command does that itself: it may be too large to be held
    /** Carries the command out; empty when help or the version was asked for, which then is printed. */
    std::function<ExitCode(Report& report)> run;
};

/** Touches nothing. Where the command line is not wholly understood, `run` fails, as not started. */
[[nodiscard]] CommandLine ParseCommandLine(const std::vector<std::string>& arguments);

/** Shows the commands as they are registered, to what is written about them. */
void DescribeCommands(const std::function<void(const CLI::App& program)>& describe);

} // namespace krxpatch
