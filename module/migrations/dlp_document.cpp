#include "migrations/dlp_document.h"

#include "common/ascii_text.h"
#include "foundation/debug_log.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_text.h"
#include "foundation/unid_text.h"
#include "migrations/log_messages.h"
#include "migrations/note_items.h"
#include "migrations/obsolete_unids.h"
#include "migrations/replaced_document.h"

namespace updkrx {
namespace {

constexpr WORD nameLength = 1024;
constexpr WORD nativeNameSize = 1024;

/** A document of the template that has been opened, and its name. */
struct TemplateDocument {
    NOTEID noteId;
    NOTEHANDLE note;
    const std::string& name;
};

/** The documents that refer to a document, and those that it uses. */
struct References {
    TextSet referDocs;
    TextSet useDocs;

    /** False when not all could be read, which is logged. */
    bool Read(NOTEHANDLE note) {
        return ReadTextListfield(note, "ReferDocs", referDocs) && ReadTextListfield(note, "UseDocs", useDocs);
    }
};

/** Logs how an operation on an open note went; true when it succeeded. */
bool Succeeded(const char* operation, STATUS status) noexcept {
    if (status != NOERROR) {
        DebugLog(level::progress, "%s error. sError is %d, czErrorMessage is %s...", operation, status,
                 StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "%s success.", operation);
    return true;
}

/** Deletes a document; true when it is gone. `what` and `success` are the log's words. */
bool Delete(DBHANDLE database, NOTEID noteId, const char* what, const char* success) noexcept {
    const int id = static_cast<int>(noteId);
    if (const STATUS status = NSFNoteDelete(database, noteId, UPDATE_FORCE); status != NOERROR) {
        DebugLog(level::progress, "Delete %s dlp template error. notesid=%d, sError is %d, czErrorMessage is %s...",
                 what, id, status, StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "Delete %s dlp template %s. notesid=%d", what, success, id);
    return true;
}

/** Copies the document out of the template and opens the copy; false when that failed. `copyId` gets its note ID as
 *  soon as there is one. */
bool CopyAndOpen(const SearchDLPDocParam& search, NOTEID templateNoteId, NOTEID& copyId, ScopedNote& copy) noexcept {
    const int oldId = static_cast<int>(templateNoteId);
    NOTEID newNoteId = 0;
    STATUS status = NSFDbCopyNote(search.hTemplate, nullptr, nullptr, templateNoteId, search.hDatabase, nullptr,
                                  nullptr, &newNoteId, nullptr);
    const int newId = static_cast<int>(newNoteId);
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "NSFDbCopyNote error. old notesid=%d, new notesid=%d, sError is %d, czErrorMessage is %s...", oldId,
                 newId, status, StatusText(status).Text());
        return false;
    }
    copyId = newNoteId;
    DebugLog(level::progress, "NSFDbCopyNote success. old notesid=%d, new notesid=%d", oldId, newId);
    status = NSFNoteOpen(search.hDatabase, newNoteId, 0, copy.Out());
    if (status != NOERROR) {
        DebugLog(level::progress, "NSFNoteOpen error. notesid=%d, sError is %d, czErrorMessage is %s...", newId, status,
                 StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "NSFNoteOpen success. notesid=%d", newId);
    return true;
}

/** Adds the entries that the copy lacks to one of its lists. */
bool CarryOver(NOTEHANDLE copy, const char* item, const TextSet& old, const TextSet& present) noexcept {
    for (const std::string& entry : old) {
        if (present.contains(entry)) {
            continue;
        }
        DebugLog(level::progress, "buf: %s cannot be found in ori ntf doc %s.", entry.c_str(), item);
        if (!Succeeded("NSFItemAppendTextList", AppendEntry(copy, item, entry))) {
            return false;
        }
    }
    return true;
}

/** Saves the copy once more, as the document that it takes the place of. */
bool SaveUnderOldUnid(const ScopedNote& copy, ReplacedDocument& old) noexcept {
    ScopedNote recreated;
    if (const STATUS status = NSFNoteCopy(copy.Get(), recreated.Out()); status != NOERROR) {
        return Succeeded("NSFNoteCopy", status);
    }
    MakeNewNote(recreated.Get(), old.Successor());
    if (!Succeeded("NSFNoteUpdate", NSFNoteUpdate(recreated.Get(), UPDATE_FORCE))) {
        return false;
    }
    old.recreatedId = NoteIdOf(recreated.Get());
    return true;
}

/** Gives a note this identity if its sequence number is the higher one: replicas must prefer the note to the deletion of
 *  the document whose UNID it has. */
void RaiseSequence(NOTEHANDLE note, OID identity) noexcept {
    OID own = {};
    NSFNoteGetInfo(note, _NOTE_OID, &own);
    if ((own.Sequence & 0xFFFFU) < (identity.Sequence & 0xFFFFU)) {
        NSFNoteSetInfo(note, _NOTE_OID, &identity);
    }
}

/** The database has no document of this name. */
void AddDocument(const SearchDLPDocParam& search, const TemplateDocument& document) {
    DebugLog(level::progress, "not find %s, add to nsf", document.name.c_str());
    const STATUS status = NSFDbCopyNote(search.hTemplate, nullptr, nullptr, document.noteId, search.hDatabase, nullptr,
                                        nullptr, nullptr, nullptr);
    if (status != NOERROR) {
        DebugLog(level::progress, "NSFDbCopyNote error. old notesid=%d, sError is %d, czErrorMessage is %s...",
                 static_cast<int>(document.noteId), status, StatusText(status).Text());
        return;
    }
    DebugLog(level::progress, "NSFDbCopyNote success");
    const std::string unid = UnidTextOf(document.note); // the copy's too
    DebugLog(level::progress, "NSFNoteGetInfo success");
    DebugLog(level::progress, "bq_snprintf success");
    DebugLog(level::progress, "szdlpdocUNID is %s, tmpunid is %s", unid.c_str(), unid.c_str());
    search.docMap->emplace(document.name, unid);
    DebugLog(level::progress, "UpgradeFormDocumentsWithIdentifiedFiledCallBack copy document %s:%s success",
             document.name.c_str(), unid.c_str());
}

/** The database's document is the customer's own. */
void KeepDocument(const std::string& name) noexcept {
    DebugLog(level::progress, "%s is find in nsf, it is NOT predefine", name.c_str());
}

/** The database's document is one that the product ships: it is deleted and made anew from the template, with its UNID
 *  and with the references that the template's version lacks. */
Ending ReplaceDocument(const SearchDLPDocParam& search, const TemplateDocument& document, const std::string& unid,
                       ScopedNote& note) {
    const DBHANDLE database = search.hDatabase;
    const char* name = document.name.c_str();
    DebugLog(level::progress, "%s is find in nsf, it is predefine", name);
    DebugLog(level::progress, "%s is %s by any rule or template, try to delete and recreate", name,
             HasItem(note.Get(), "ReferDocs") ? "used" : "NOT used");

    References oldReferences;
    if (!oldReferences.Read(note.Get())) {
        return Ending::stopped; // before the document is deleted, which would lose them
    }
    const NOTEID oldId = NoteIdOf(note.Get());
    ReplacedDocument old(database, unid, search.hTemplate, document.noteId);
    if (!old.Keep(note.Get())) {
        return Ending::stopped;
    }
    old.copyHasUnid = EqualIgnoringAsciiCase(UnidTextOf(document.note), unid); // copying keeps the UNID
    (void)note.Close();                                                        // always succeeds

    if (!Delete(database, oldId, "original", "Success")) {
        return Ending::stopped;
    }
    old.RestoreUnlessReplaced();

    ScopedNote copy;
    if (!CopyAndOpen(search, document.noteId, old.copyId, copy)) {
        return Ending::stopped;
    }
    const std::string copyUnid = UnidTextOf(copy.Get());
    const NOTEID copyId = NoteIdOf(copy.Get());
    References copyReferences;
    (void)copyReferences.Read(copy.Get()); // what is missed here is still not appended a second time

    if (!CarryOver(copy.Get(), "ReferDocs", oldReferences.referDocs, copyReferences.referDocs) ||
        !CarryOver(copy.Get(), "UseDocs", oldReferences.useDocs, copyReferences.useDocs)) {
        return Ending::stopped;
    }

    if (old.copyHasUnid) {
        RaiseSequence(copy.Get(), old.Successor());
    }
    if (!Succeeded("NSFNoteUpdate", NSFNoteUpdate(copy.Get(), UPDATE_FORCE))) {
        return Ending::stopped;
    }
    DebugLog(level::progress, "The doc copied from ntf: notesid=%d, unid is %s", static_cast<int>(copyId),
             copyUnid.c_str());

    if (EqualIgnoringAsciiCase(copyUnid, unid)) {
        old.Replaced();
        return Ending::finished;
    }

    DebugLog(level::progress, "The UNID is different, need action!");
    if (!SaveUnderOldUnid(copy, old)) {
        return Ending::stopped;
    }
    (void)copy.Close(); // always succeeds
    if (!Delete(database, copyId, "temp", "sucess")) {
        return Ending::stopped;
    }
    old.copyId = 0;
    RecordObsoleteUnid(copyUnid, unid);
    old.Replaced();
    return Ending::finished;
}

} // namespace

std::optional<std::string> ReadName(NOTEHANDLE note, const char* field) {
    char text[nameLength + 1];
    if (ReadItemText(note, field, text, sizeof text).value_or(0) == 0) {
        return std::nullopt;
    }
    char name[nativeNameSize];
    if (ToNative(text, name, sizeof name) == 0 && text[0] != '\0') { // all such documents would be taken for the same
        char unid[unidTextSize];
        GetUnidText(note, unid);
        DebugLog(level::progress, "Error: The name of a document cannot be translated. UNID is %s", unid);
        return std::nullopt;
    }
    return name;
}

Ending UpgradeDlpDocument(const SearchDLPDocParam& search, NOTEID templateNoteId) {
    ScopedNote templateNote;
    if (NSFNoteOpen(search.hTemplate, templateNoteId, 0, templateNote.Out()) != NOERROR) {
        DebugLog(level::progress, "open krconfntf failed.");
        return Ending::stopped;
    }
    const auto name = ReadName(templateNote.Get(), search.identifiedField.c_str());
    if (!name) {
        return Ending::finished;
    }
    const TemplateDocument document = {templateNoteId, templateNote.Get(), *name};
    const auto partner = search.docMap->find(*name);
    if (partner == search.docMap->end()) {
        AddDocument(search, document);
        return Ending::finished;
    }

    const std::string& unid = partner->second;
    DebugLog(level::progress, "current nsf doc name %s,unid:%s", partner->first.c_str(), unid.c_str());
    UNID parsed = {};
    ParseUnidText(unid, parsed);
    ScopedNote note;
    if (NSFNoteOpenByUNID(search.hDatabase, &parsed, 0, note.Out()) != NOERROR) {
        DebugLog(level::progress, "NSFNoteOpenByUNID, open note failed.");
        return Ending::stopped;
    }
    const auto predefined = IsPredefined(note.Get());
    if (!predefined) {
        return Ending::stopped;
    }
    if (!*predefined) {
        KeepDocument(*name);
        return Ending::finished;
    }
    return ReplaceDocument(search, document, unid, note);
}

} // namespace updkrx
