// What the patch brings, as its configuration file krxpatch.ini in the newest program folder says it.
#pragma once

#include "foundation/patch_run_context.h"
#include "notes_api.h"

namespace updkrx {

/**
 * Fills fileList, patchBuild, databaseList, updateExtension and skipDbSign from the section "Config". Returns 0, or 1
 * when the program folder is unknown, the file cannot be read, or one of the keys Files and BuildNumber is missing;
 * the cause is logged and the run cannot go on. The other keys may be missing.
 */
[[nodiscard]] STATUS ReadPatchConfig(PatchRunContext& context);

} // namespace updkrx
