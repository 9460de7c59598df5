// The command line: which command is meant, and with what.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands.h"

namespace krxpatch {

struct CommandLine {
    std::string command;
    bool json = false;         // the report is printed and nothing else
    bool quiet = false;        // nothing is printed but what went wrong
    bool printsReport = false; // the command does that itself: it may be too large to be held
    /** Carries the command out; empty when help or the version was asked for, which then is printed. */
    std::function<ExitCode(Report& report)> run;
};

/** Touches nothing. Throws Failure, as not started, for a command line that is not wholly understood. */
[[nodiscard]] CommandLine ParseCommandLine(std::vector<std::string> arguments);

/** Whether a bad command line asks for JSON. */
[[nodiscard]] bool AsksForJson(const std::vector<std::string>& arguments);

} // namespace krxpatch
