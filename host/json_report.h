// A report to programs; docs/json.md tells what its members are.
#pragma once

#include <ostream>

#include <nlohmann/json_fwd.hpp>

#include "change_report.h"

namespace krxpatch {

/** The members that the report of every command begins with. It is a success unless there are errors. */
[[nodiscard]] nlohmann::ordered_json HeadOf(const std::string& command, ExitCode exitCode,
                                            const std::vector<ReportError>& errors);

void PrintJson(std::ostream& out, const ChangeReport& report);

} // namespace krxpatch
