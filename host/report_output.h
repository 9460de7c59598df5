// How a command that makes a report ends: with the report on standard output, also when it could not do its work.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "change_report.h"

namespace krxpatch {

struct ReportOptions {
    bool json = false;
    bool colour = false;
    std::filesystem::path html; // empty: none
};

/** Runs `work`, which fills the report, and prints it; with JSON also when `work` throws, with the failure as an error.
 *  Returns the report's exit code; as text, throws Failure for what went wrong, which the caller then reports. A page
 *  that cannot be written has no say in how a run ends: Failure tells it with the run's own exit code. */
[[nodiscard]] ExitCode OutputReport(const std::string& command, const ReportOptions& options,
                                    const std::function<void(ChangeReport& report)>& work);

/** The same of work that only reads: in a thread of its own, and when somebody asks this process to end meanwhile, it
 *  ends at once. */
[[nodiscard]] ExitCode OutputReading(const std::string& command, const ReportOptions& options,
                                     const std::function<void(ChangeReport& report)>& work);

/** Ends the process as an interrupted one that has changed nothing; where JSON is wanted, with a report of that. */
[[noreturn]] void EndInterrupted(const std::string& command, const ReportOptions& options);

} // namespace krxpatch
