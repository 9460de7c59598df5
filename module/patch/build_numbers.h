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

/** The parameter of GetBuildNumberCallback. */
struct BuildNumberSearch {
    DBHANDLE database;
    char text[buildTextSize]; // starts empty, receives the build text
};

/** Search step: reads a note's build text, if it has one. Always 0; a note that cannot be opened is reported to the
 *  server's log. */
STATUS LNCALLBACK GetBuildNumberCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) noexcept;

/** Search step: writes gBuildNumber into a note; the parameter is the database's handle. Always 0; failures are
 *  reported to the server's log. */
STATUS LNCALLBACK SetBuildNumberCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) noexcept;

} // namespace updkrx
