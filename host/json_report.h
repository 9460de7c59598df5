// A report to programs: docs/json.md describes it.
#pragma once

#include <ostream>

#include "change_report.h"

namespace krxpatch {

void PrintJson(std::ostream& out, const ChangeReport& report);

} // namespace krxpatch
