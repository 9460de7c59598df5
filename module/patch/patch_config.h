// What the patch brings, as its configuration file krxpatch.ini in the newest program folder says it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "foundation/patch_run_context.h"
#include "notes_api.h"

namespace updkrx {

/**
 * Fills fileList, patchBuild, databaseList, updateExtension and skipDbSign from the section "Config". Returns 0, or 1
 * when the program folder is unknown, the file cannot be read, or one of the keys Files and BuildNumber is missing;
 * the cause is logged and the run cannot go on. The other keys may be missing.
 */
[[nodiscard]] STATUS ReadPatchConfig(PatchRunContext& context);

/** Adds the items of a comma-separated text to the end of `list`, exactly as they are written: blanks and empty items
 *  stay. An empty text has no items, and one comma at the end adds none. Always 0. */
int SplitCommaList(std::vector<std::string>& list, std::string_view text);

} // namespace updkrx
