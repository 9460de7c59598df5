#include "patch/build_numbers.h"

#include <cstring>

#include "common/ascii_text.h"
#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
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

int32_t ReadDatabaseBuild() {
    ScopedDatabase database;
    if (database.Open(NSFDbOpen, "krx/krmsg.nsf") != NOERROR) {
        return 0;
    }
    BuildNumberSearch search = {database.Get(), {}};
    if (SearchNotes(database.Get(), NULLHANDLE, NOTE_CLASS_HELP, GetBuildNumberCallback, &search) != NOERROR) {
        DebugLog(level::progress, "Error: Get build number failed");
        return 0;
    }
    int32_t build = 0;
    (void)NumberAfterLastDot(search.text, build); // a text without a "." carries no build
    return build;
}

STATUS ReadBuildText(BuildNumberSearch& search, NOTEID noteId) {
    ScopedNote note;
    const STATUS status = OpenNote(note, search.database, noteId);
    if (status != NOERROR) {
        return status;
    }
    char text[itemTextSize];
    if (GetItemText(note.Get(), "BuildNumber", text, sizeof text) > 0) {
        bq_snprintf(search.text, sizeof search.text, "%s", text);
    }
    return NOERROR;
}

STATUS WriteBuildText(DBHANDLE database, NOTEID noteId) {
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

} // namespace

char gBuildNumber[buildTextSize] = "5.8.0.3001";

void SetBuildText(int32_t build) noexcept {
    bq_snprintf(gBuildNumber, sizeof gBuildNumber, "5.8.0.%d", build);
}

STATUS GetRunningBuild(PatchRunContext& context) {
    char folder[programFolderSize];
    if (!GetProgramFolder(folder)) {
        return 1;
    }
    if (!NumberAfterLastDot(folder, context.runningBuild)) {
        DebugLog(level::progress, "Cannot get the build number from path.");
        return 1;
    }
    context.databaseBuild = ReadDatabaseBuild();
    DebugLog(level::progress, "The running KRX build is %d", context.runningBuild);
    DebugLog(level::progress, "The running KRX database build is %d", context.databaseBuild);
    return 0;
}

STATUS GetBuildNumberCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("GetBuildNumberCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        if (!IsMatch(found)) {
            return NOERROR;
        }
        const STATUS status = ReadBuildText(*static_cast<BuildNumberSearch*>(parameter), found.ID.NoteID);
        if (status != NOERROR) {
            AddServerLogStatus(status);
        }
        return NOERROR;
    });
}

STATUS SetBuildNumberCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("SetBuildNumberCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        if (!IsMatch(found)) {
            return NOERROR;
        }
        DebugLog(level::progress, "Set the build number to '%s'", gBuildNumber);
        const STATUS status = WriteBuildText(*static_cast<DBHANDLE*>(parameter), found.ID.NoteID);
        if (status != NOERROR) {
            AddServerLogStatus(status);
        }
        return NOERROR;
    });
}

void StampBuildNumber(const char* path) {
    ScopedDatabase database;
    if (database.Open(NSFDbOpen, path) != NOERROR) {
        return;
    }
    DebugLog(level::progress, "Info: start to set build number -'%s'.\n", path);
    DBHANDLE handle = database.Get();
    if (SearchNotes(handle, NULLHANDLE, NOTE_CLASS_HELP, SetBuildNumberCallback, &handle) != NOERROR) {
        DebugLog(level::progress, "Error: Set build number failed -'%s'.\n", path);
    }
}

STATUS SetBuildNumberOfAllDatabases() {
    DebugLog(level::progress, "Info: Begin process databases.");
    for (const ProductDatabase& product : ProductDatabases) {
        char name[MAXPATH];
        ToLmbcs(product.databaseName, name, sizeof name);
        char path[MAXPATH];
        bq_snprintf(path, sizeof path, "krx/%s", name);
        StampBuildNumber(path);
    }
    DebugLog(level::progress, "Info: Have processed all KRX databases.");
    return NOERROR;
}

} // namespace updkrx
