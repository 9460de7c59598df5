// The facts of databases as a table, one line for each.
#pragma once

#include <string>
#include <vector>

#include "database_report.h"

namespace krxpatch {

[[nodiscard]] std::string FormatDatabases(const std::vector<DatabaseReport>& reports);

/** The same after a run, with the build that each database carried before it. */
[[nodiscard]] std::string FormatDatabases(const std::vector<DatabaseReport>& before,
                                          const std::vector<DatabaseReport>& after);

} // namespace krxpatch
