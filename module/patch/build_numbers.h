// Which build is installed, which build the databases carry, and how a database comes to carry one: in the text item
// BuildNumber of its help notes (the Using This Database page).
#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/patch_run_context.h"
#include "notes_api.h"

namespace updkrx {

inline constexpr size_t buildTextSize = 64;

/** The build text that is written into databases, such as 5.8.0.3050. */
extern char gBuildNumber[buildTextSize];

/** Makes gBuildNumber the text of a build. */
void SetBuildText(int32_t build) noexcept;

/** Fills runningBuild and databaseBuild. Returns 0, or 1 when the installed build is unknown, which is logged. */
[[nodiscard]] STATUS GetRunningBuild(PatchRunContext& context);

/** Writes gBuildNumber into every product database that can be opened. Always 0; failures are logged. */
STATUS SetBuildNumberOfAllDatabases();

/** Writes gBuildNumber into every help note of one database, given by its path in the Notes character set. Nothing
 *  happens when it cannot be opened; other failures are logged. */
void StampBuildNumber(const char* path);

} // namespace updkrx
