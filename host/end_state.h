// Whether an upgrade is really done: what the stamp of the build says is looked up in the databases.
#pragma once

#include <vector>

#include "finding.h"
#include "server_folder.h"

namespace krxpatch {

/** Needs the session; writes nothing. Each database has at least one finding: what is wrong with it, or that all is as
 *  it should be. */
[[nodiscard]] std::vector<Finding> ExamineEndState(const ServerFolder& server, const PatchFacts& facts);

} // namespace krxpatch
