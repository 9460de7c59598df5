#include "migrations/retired_documents.h"

#include <iterator>
#include <vector>

#include "common/startup.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "migrations/note_identity.h"
#include "migrations/predefined.h"

namespace updkrx {
namespace {

constexpr WORD itemTextSize = 256;

// What cannot be read keeps a document: it goes only when it is certain that neither holds.

bool MayBePredefined(NOTEHANDLE note) noexcept {
    return IsPredefined(note).value_or(true);
}

bool MayBeReferredTo(NOTEHANDLE note) noexcept {
    char text[itemTextSize];
    return !LacksItem(note, "ReferDocs") && ReadItemText(note, "ReferDocs", text, sizeof text) != WORD{0};
}

/** Adds a document that is to go to the list. Returns 0, or the masked status of a document that cannot be opened,
 *  which ends the search. */
STATUS MigrateCFDLPDeleteAttachmentActionCallback(DBHANDLE database, NOTEID noteId, std::vector<NOTEID>& deleteList) {
    ScopedNote note;
    if (const STATUS status = OpenNote(note, database, noteId); status != NOERROR) {
        DebugLog(level::detail, "MigrateCFDLPDeleteAttachmentActionCallback, open note failed.");
        return status & ERR_MASK;
    }
    if (!MayBePredefined(note.Get()) && !MayBeReferredTo(note.Get()) &&
        RetiredDocumentUNIDSet.contains(UnidTextOf(note.Get()))) {
        deleteList.push_back(noteId);
    }
    return NOERROR;
}

} // namespace

void InitRetiredDocumentUNIDSet() {
    RetiredDocumentUNIDSet.clear();
    RetiredDocumentUNIDSet.insert(std::begin(retiredDocuments), std::end(retiredDocuments));
}

namespace {

int32_t DeleteRetiredDocuments() {
    InitRetiredDocumentUNIDSet();
    ScopedDatabase database;
    STATUS status = OpenDatabase(database, "krx/krconf.nsf");
    if (status != NOERROR) {
        return status;
    }
    ScopedFormula formula;
    status = CompileOrLog("UpdateKrency", "Form=\"dictionary\" | Form=\"entity\"", maxSelectionLength, formula);
    if (status != NOERROR) {
        return status;
    }
    std::vector<NOTEID> deleteList; // deleted after the search, so as not to disturb it
    const NoteSearch search = {"MigrateCFDLPDeleteAttachmentActionCallback", database.Get(), formula.Get(),
                               NOTE_CLASS_ALL};
    status = SearchNotes(search, [&](const SEARCH_MATCH& found) {
        return MigrateCFDLPDeleteAttachmentActionCallback(database.Get(), found.ID.NoteID, deleteList);
    });
    if (status != NOERROR) {
        DebugLog(level::detail, "NSFSearch failed for template");
    }
    for (const NOTEID noteId : deleteList) {
        if (WithSecondTry([&] { return NSFNoteDelete(database.Get(), noteId, UPDATE_FORCE); }) != NOERROR) {
            DebugLog(level::detail, "cannot delete note: %0x", noteId);
        }
    }
    return status;
}

} // namespace

int32_t MigrateCFDLPDeleteAttachmentAction() {
    return WithoutExceptions("MigrateCFDLPDeleteAttachmentAction", int32_t{ERR_MEMORY}, DeleteRetiredDocuments);
}

} // namespace updkrx
