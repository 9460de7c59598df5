#include "maintenance/signing.h"

#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/item_reading.h"
#include "foundation/note_saving.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
#include "foundation/product_folder.h"
#include "maintenance/replication_settings.h"

namespace updkrx {
namespace {

constexpr int32_t notSigned = 65535;
constexpr STATUS signDatabaseFailed = 0x9728;
/** What a client verifies as lists even where a value is single, so that it must be signed as lists. */
constexpr WORD expandedClasses = NOTE_CLASS_INFO | NOTE_CLASS_FORM | NOTE_CLASS_HELP | NOTE_CLASS_FIELD;

/** Adds a status's text to the server's log, and tells the debug log which step failed with it on which database. */
void ReportFailure(const char* step, const char* database, STATUS status, const char* lineEnd) noexcept {
    char text[MAXSPRINTF];
    GetStatusText(status, text, sizeof text);
    AddServerLogLine(text);
    DebugLog(level::progress, "Failed to %s %s - %s%s", step, database, text, lineEnd);
}

WORD ClassOf(NOTEHANDLE note) noexcept {
    WORD noteClass = 0;
    NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
    return noteClass;
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
    // Most have none or one. One that cannot be deleted is replaced, on most servers.
    (void)WithSecondTry([&] { return ClearItems(note, "$Signature"); });
    return WithSecondTry([&] { return NSFNoteSign(note); });
}

/** Signs a note and saves it. Returns the status of opening the note when that failed, else of closing it. */
STATUS SignNoteCallback(DBHANDLE database, NOTEID noteId) noexcept {
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
    if (const STATUS status = expanded ? WithSecondTry([&] { return NSFNoteContract(note.Get()); }) : NOERROR;
        status != NOERROR) { // saved as it is, it would be another design
        DebugLog(level::progress, "Error: A note stays expanded and is not saved. Note ID is %X, sError is %d", noteId,
                 status);
        return note.Close();
    }
    (void)SaveOrLog("SignNoteCallback", note.Get()); // one note that cannot be saved does not fail the database
    return note.Close();
}

/** Deletes a note if it is a replication formula. Returns the status of opening the note when that failed, else of
 *  closing it. */
STATUS RemoveReplFormulaCallback(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (const STATUS status = OpenNote(note, database, noteId); status != NOERROR) {
        return status;
    }
    const WORD noteClass = ClassOf(note.Get());
    const STATUS status = note.Close();
    if ((noteClass & NOTE_CLASS_REPLFORMULA) == 0) {
        return NOERROR;
    }
    const STATUS deleted = WithSecondTry([&] { return NSFNoteDelete(database, noteId, UPDATE_FORCE); });
    if (deleted != NOERROR) { // the new one is written all the same
        DebugLog(level::progress, "Error: An old replication formula stays. Note ID is %X, sError is %d", noteId,
                 deleted);
    }
    return status;
}

STATUS SignDesign(DBHANDLE database) noexcept {
    return SearchNotes({"SignNoteCallback", database, NULLHANDLE, NOTE_CLASS_ALLNONDATA},
                       [&](const SEARCH_MATCH& found) { return SignNoteCallback(database, found.ID.NoteID); });
}

STATUS RemoveReplFormulas(DBHANDLE database) noexcept {
    const NoteSearch search = {"RemoveReplFormulaCallback", database, NULLHANDLE, NOTE_CLASS_ALLNONDATA};
    const STATUS status = WithSecondTry([&] {
        return SearchNotes(
            search, [&](const SEARCH_MATCH& found) { return RemoveReplFormulaCallback(database, found.ID.NoteID); });
    });
    if (status != NOERROR) {
        LogBrokenSearch(search, status);
    }
    return status;
}

void HideDesign(DBHANDLE database, const char* name) noexcept {
    DBREPLICAINFO info = {};
    STATUS status = WithSecondTry([&] { return NSFDbReplicaInfoGet(database, &info); });
    if (status == NOERROR) { // else nothing may be written: the record is written as a whole, replica ID included
        info.Flags |= REPLFLG_HIDDEN_DESIGN;
        status = WithSecondTry([&] { return NSFDbReplicaInfoSet(database, &info); });
    }
    if (status != NOERROR) { // fails nothing
        DebugLog(level::progress, "Error: The design stays visible. (%s):(%x)", name, status);
    }
}

void SignProductDatabase(const char* path) {
    DebugLog(level::progress, "%s", path);
    ScopedDatabase database;
    if (const STATUS status = OpenDatabase(database, path); status != NOERROR) {
        AddServerLogLine(path);
        ReportFailure("open", path, status, "");
        return;
    }
    DebugLog(level::progress, "Start to sign - %s", path);
    if (const STATUS status = WithSecondTry([&] { return SignDesign(database.Get()); }); status != NOERROR) {
        ReportFailure("sign", path, status, "");
    } else {
        DebugLog(level::progress, "Succeeded to sign - %s", path);
    }
    (void)RemoveReplFormulas(database.Get());        // what is left does not keep the new one out
    (void)CreateReplicationSettings(database.Get()); // a database without them still works
}

} // namespace

int32_t SignAndHideDatabase(const std::string& fileName, const PatchRunContext& context) {
    const char* name = fileName.c_str();
    char path[MAXPATH];
    (void)GetProductPath(name, path); // of a path that is cut, there is no database
    ScopedDatabase database;
    if (const STATUS status = OpenDatabase(database, path); status != NOERROR) {
        AddServerLogLine(path);
        ReportFailure("open", name, status, "\n");
        return notSigned;
    }
    if (context.skipDbSign == 0) {
        DebugLog(level::progress, "Info: Start to sign - %s\n", name);
        const STATUS status = WithSecondTry([&] { return SignDesign(database.Get()); });
        if (status == signDatabaseFailed) {
            DebugLog(level::progress, "Error: Sign database failed - %s. The error number is %d\n", name, status);
            return notSigned;
        }
        if (status != NOERROR) {
            ReportFailure("sign", name, status, "\n");
            return notSigned;
        }
        DebugLog(level::progress, "Info: Succeeded to sign - %s\n", name);
    }
    DebugLog(level::progress, "Info: Start to hide design of %s \n", name);
    HideDesign(database.Get(), name);
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

} // namespace updkrx
