#include "patch/build_numbers.h"

#include <cstring>

#include "common/ascii_text.h"
#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
#include "foundation/product_folder.h"
#include "patch/program_folder.h"

namespace updkrx {
namespace {

constexpr size_t itemTextSize = 16;

/** The number after the last "." of `text`, up to whatever follows it, such as a path's separator; false when there
 *  is no ".". */
bool NumberAfterLastDot(const char* text, int32_t& number) {
    const char* dot = std::strrchr(text, '.');
    if (dot != nullptr) {
        number = NumberOf(dot + 1);
    }
    return dot != nullptr;
}

/** Reads a note's build text, if it has one, into `buildText`. A note that cannot be opened is reported to the server's
 *  log. */
void GetBuildNumberCallback(DBHANDLE database, NOTEID noteId, char (&buildText)[itemTextSize]) noexcept {
    ScopedNote note;
    if (const STATUS status = OpenNote(note, database, noteId); status != NOERROR) {
        AddServerLogStatus(status);
        return;
    }
    char text[itemTextSize];
    if (GetItemText(note.Get(), "BuildNumber", text, sizeof text) > 0) {
        bq_snprintf(buildText, sizeof buildText, "%s", text);
    }
}

int32_t ReadDatabaseBuild() {
    ScopedDatabase database;
    if (OpenDatabase(database, "krx/krmsg.nsf") != NOERROR) {
        return 0;
    }
    char text[itemTextSize] = "";
    const NoteSearch search = {"GetBuildNumberCallback", database.Get(), NULLHANDLE, NOTE_CLASS_HELP};
    if (SearchOrLog(search, [&](const SEARCH_MATCH& found) {
            GetBuildNumberCallback(database.Get(), found.ID.NoteID, text);
        }) != NOERROR) {
        DebugLog(level::progress, "Error: Get build number failed");
        return 0;
    }
    int32_t build = 0;
    (void)NumberAfterLastDot(text, build); // a text without a "." carries no build
    return build;
}

STATUS WriteBuildText(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    STATUS status = OpenNote(note, database, noteId);
    if (status == NOERROR) {
        status = NSFItemSetText(note.Get(), "BuildNumber", gBuildNumber, static_cast<WORD>(std::strlen(gBuildNumber)));
    }
    if (status == NOERROR) {
        status = NSFNoteUpdate(note.Get(), UPDATE_FORCE);
    }
    return status;
}

/** Writes gBuildNumber into a note; a failure is reported to the server's log. */
void SetBuildNumberCallback(DBHANDLE database, NOTEID noteId) noexcept {
    DebugLog(level::progress, "Set the build number to '%s'", gBuildNumber);
    if (const STATUS status = WithSecondTry([&] { return WriteBuildText(database, noteId); }); status != NOERROR) {
        AddServerLogStatus(status);
    }
}

} // namespace

char gBuildNumber[buildTextSize] = "5.8.0.3001";

void SetBuildText(int32_t build) noexcept {
    bq_snprintf(gBuildNumber, sizeof gBuildNumber, "5.8.0.%d", build);
}

STATUS GetRunningBuild(PatchRunContext& context) {
    if (!FindProgramFolder(context)) {
        return 1;
    }
    if (!NumberAfterLastDot(context.programFolder.c_str(), context.runningBuild)) {
        DebugLog(level::progress, "Cannot get the build number from path.");
        return 1;
    }
    context.databaseBuild = ReadDatabaseBuild();
    DebugLog(level::progress, "The running KRX build is %d", context.runningBuild);
    DebugLog(level::progress, "The running KRX database build is %d", context.databaseBuild);
    return 0;
}

void StampBuildNumber(const char* path) {
    ScopedDatabase database;
    if (OpenDatabase(database, path) != NOERROR) {
        return;
    }
    DebugLog(level::progress, "Info: start to set build number -'%s'.\n", path);
    const NoteSearch search = {"SetBuildNumberCallback", database.Get(), NULLHANDLE, NOTE_CLASS_HELP};
    if (SearchOrLog(search, [&](const SEARCH_MATCH& found) {
            SetBuildNumberCallback(database.Get(), found.ID.NoteID);
        }) != NOERROR) {
        DebugLog(level::progress, "Error: Set build number failed -'%s'.\n", path);
    }
}

STATUS SetBuildNumberOfAllDatabases() {
    DebugLog(level::progress, "Info: Begin process databases.");
    for (const ProductDatabase& product : ProductDatabases) {
        char name[MAXPATH];
        ToLmbcs(product.databaseName, name, sizeof name);
        char path[MAXPATH];
        (void)GetProductPath(name, path); // it fits
        StampBuildNumber(path);
    }
    DebugLog(level::progress, "Info: Have processed all KRX databases.");
    return NOERROR;
}

} // namespace updkrx
