// The findings of the checks as programs get them.
#pragma once

#include <vector>

#include "checks.h"
#include "commands.h"

namespace krxpatch {

/** Adds "findings", and those that are failures to "errors". */
void AddFindings(Report& report, const std::vector<Finding>& findings);

} // namespace krxpatch
