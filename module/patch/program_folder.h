// The folder of the newest program build: it holds the patch's files, and its name tells the installed build.
#pragma once

#include "foundation/patch_run_context.h"

namespace updkrx {

/** Looks the folder up, once in a run; false when it is unknown, which is logged. */
[[nodiscard]] bool FindProgramFolder(PatchRunContext& context);

} // namespace updkrx
