#include "maintenance/signing.h"

#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
#include "maintenance/replication_settings.h"

namespace updkrx {
namespace {

constexpr int32_t notSigned = 65535;
constexpr STATUS signDatabaseFailed = 0x9728;
/** What a client verifies as lists even where a value is single, so that it must be signed as lists. */
constexpr WORD expandedClasses = NOTE_CLASS_INFO | NOTE_CLASS_FORM | NOTE_CLASS_HELP | NOTE_CLASS_FIELD;

/** A status's text, which is added to the server's log at once. */
class ReportedStatus {
public:
    explicit ReportedStatus(STATUS status) noexcept {
        GetStatusText(status, text_, sizeof text_);
        AddServerLogLine(text_);
    }
    [[nodiscard]] const char* Text() const noexcept { return text_; }

private:
    char text_[MAXSPRINTF];
};

WORD ClassOf(NOTEHANDLE note) noexcept {
    WORD noteClass = 0;
    NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
    return noteClass;
}

STATUS SearchDesign(DBHANDLE database, NSFSEARCHPROC step) noexcept {
    return SearchNotes(database, NULLHANDLE, NOTE_CLASS_ALLNONDATA, step, &database);
}

STATUS OpenToSign(DBHANDLE database, NOTEID noteId, WORD flags, ScopedNote& note) noexcept {
    const STATUS status = OpenNote(note, database, noteId, flags);
    if (status != NOERROR) {
        DebugLog(level::progress, "Signning failed!!!");
    }
    return status;
}

/** Signs an open note anew; some servers only add to the signatures that it has. */
STATUS Sign(NOTEHANDLE note) noexcept {
    (void)DeleteItems(note, "$Signature"); // most have none or one
    return NSFNoteSign(note);
}

STATUS SignNote(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (const STATUS status = OpenToSign(database, noteId, 0, note); status != NOERROR) {
        return status;
    }
    const bool expanded = (ClassOf(note.Get()) & expandedClasses) != 0;
    const WORD flags = expanded ? OPEN_EXPAND : 0;
    if (expanded) {
        if (const STATUS status = OpenToSign(database, noteId, flags, note); status != NOERROR) {
            return status;
        }
    }
    if (const STATUS status = Sign(note.Get()); status != NOERROR) {
        DebugLog(level::progress, "%sNSFNotesSign error: %d", expanded ? "" : "22222 ", status);
        // The note keeps the signature that it has.
        if (OpenNote(note, database, noteId, flags) != NOERROR) {
            return NOERROR;
        }
    }
    if (expanded) {
        (void)NSFNoteContract(note.Get()); // a note that stays expanded is still worth saving
    }
    (void)NSFNoteUpdate(note.Get(), UPDATE_FORCE); // one note that cannot be saved does not fail the database
    return note.Close();
}

STATUS RemoveReplFormula(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (const STATUS status = OpenNote(note, database, noteId); status != NOERROR) {
        return status;
    }
    const WORD noteClass = ClassOf(note.Get());
    const STATUS status = note.Close();
    if ((noteClass & NOTE_CLASS_REPLFORMULA) == 0) {
        return NOERROR;
    }
    (void)NSFNoteDelete(database, noteId, UPDATE_FORCE); // the new one is written all the same
    return status;
}

void HideDesign(DBHANDLE database) noexcept {
    DBREPLICAINFO info = {};
    if (NSFDbReplicaInfoGet(database, &info) != NOERROR) {
        return; // the record is written as a whole, replica ID included
    }
    info.Flags |= REPLFLG_HIDDEN_DESIGN;
    (void)NSFDbReplicaInfoSet(database, &info); // a design that stays visible fails nothing
}

void SignProductDatabase(const char* path) {
    DebugLog(level::progress, "%s", path);
    ScopedDatabase database;
    if (const STATUS status = database.Open(NSFDbOpen, path); status != NOERROR) {
        AddServerLogLine(path);
        DebugLog(level::progress, "Failed to open %s - %s", path, ReportedStatus(status).Text());
        return;
    }
    DebugLog(level::progress, "Start to sign - %s", path);
    if (const STATUS status = SearchDesign(database.Get(), SignNoteCallback); status != NOERROR) {
        DebugLog(level::progress, "Failed to sign %s - %s", path, ReportedStatus(status).Text());
    } else {
        DebugLog(level::progress, "Succeeded to sign - %s", path);
    }
    (void)SearchDesign(database.Get(), RemoveReplFormulaCallback); // what is left does not keep the new one out
    (void)CreateReplicationSettings(database.Get());               // a database without them still works
}

} // namespace

int32_t SignAndHideDatabase(const std::string& fileName, const PatchRunContext& context) {
    const std::string path = "krx/" + fileName;
    const char* name = fileName.c_str();
    ScopedDatabase database;
    if (const STATUS status = database.Open(NSFDbOpen, path.c_str()); status != NOERROR) {
        AddServerLogLine(path.c_str());
        DebugLog(level::progress, "Failed to open %s - %s\n", name, ReportedStatus(status).Text());
        return notSigned;
    }
    if (context.skipDbSign == 0) {
        DebugLog(level::progress, "Info: Start to sign - %s\n", name);
        const STATUS status = SearchDesign(database.Get(), SignNoteCallback);
        if (status == signDatabaseFailed) {
            DebugLog(level::progress, "Error: Sign database failed - %s. The error number is %d\n", name, status);
            return notSigned;
        }
        if (status != NOERROR) {
            DebugLog(level::progress, "Failed to sign %s - %s\n", name, ReportedStatus(status).Text());
            return notSigned;
        }
        DebugLog(level::progress, "Info: Succeeded to sign - %s\n", name);
    }
    DebugLog(level::progress, "Info: Start to hide design of %s \n", name);
    HideDesign(database.Get());
    DebugLog(level::progress, "Info: End to hide the design.\n");
    return 0;
}

void SignDatabase(const char* folder) {
    char separator[MAXPATH];
    ToLmbcs("\\", separator, sizeof separator);
    DebugLog(level::progress, "SignDatabase Enter");
    for (const ProductDatabase& product : ProductDatabases) {
        char name[MAXPATH];
        ToLmbcs(product.databaseName, name, sizeof name);
        char path[MAXPATH];
        bq_snprintf(path, sizeof path, "%s%s%s", folder, separator, name);
        SignProductDatabase(path);
    }
    DebugLog(level::progress, "SignDatabase Leave");
}

STATUS SignNoteCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("SignNoteCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        return IsMatch(found) ? SignNote(*static_cast<DBHANDLE*>(parameter), found.ID.NoteID) : NOERROR;
    });
}

STATUS RemoveReplFormulaCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("RemoveReplFormulaCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        return IsMatch(found) ? RemoveReplFormula(*static_cast<DBHANDLE*>(parameter), found.ID.NoteID) : NOERROR;
    });
}

} // namespace updkrx
