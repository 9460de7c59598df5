#include "migrations/retired_documents.h"

#include <iterator>

#include "common/startup.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "migrations/note_items.h"

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

STATUS CollectIfRetired(const RetiredSearch& search, NOTEID noteId) {
    ScopedNote note;
    if (const STATUS status = OpenNote(note, search.database, noteId); status != NOERROR) {
        DebugLog(level::detail, "MigrateCFDLPDeleteAttachmentActionCallback, open note failed.");
        return status & ERR_MASK;
    }
    if (!MayBePredefined(note.Get()) && !MayBeReferredTo(note.Get()) &&
        RetiredDocumentUNIDSet.contains(UnidTextOf(note.Get()))) {
        search.deleteList.push_back(noteId);
    }
    return NOERROR;
}

} // namespace

void InitRetiredDocumentUNIDSet() {
    RetiredDocumentUNIDSet.clear();
    RetiredDocumentUNIDSet.insert(std::begin(RetiredDocuments), std::end(RetiredDocuments));
}

namespace {

int32_t DeleteRetiredDocuments() {
    InitRetiredDocumentUNIDSet();
    ScopedDatabase database;
    STATUS status = database.Open(NSFDbOpen, "krx/krconf.nsf");
    if (status != NOERROR) {
        return status;
    }
    ScopedFormula formula;
    status = CompileSelection("Form=\"dictionary\" | Form=\"entity\"", maxSelectionLength, formula);
    if (status != NOERROR) {
        LogCompileFailure("UpdateKrency", status);
        return status;
    }
    std::vector<NOTEID> deleteList;
    RetiredSearch search = {database.Get(), deleteList};
    status =
        SearchNotes(database.Get(), formula.Get(), NOTE_CLASS_ALL, MigrateCFDLPDeleteAttachmentActionCallback, &search);
    if (status != NOERROR) {
        DebugLog(level::detail, "NSFSearch failed for template");
    }
    for (const NOTEID noteId : deleteList) {
        if (NSFNoteDelete(database.Get(), noteId, UPDATE_FORCE) != NOERROR) {
            DebugLog(level::detail, "cannot delete note: %0x", noteId);
        }
    }
    return status;
}

} // namespace

int32_t MigrateCFDLPDeleteAttachmentAction() {
    return WithoutExceptions("MigrateCFDLPDeleteAttachmentAction", int32_t{ERR_MEMORY}, DeleteRetiredDocuments);
}

STATUS LNCALLBACK MigrateCFDLPDeleteAttachmentActionCallback(void* parameter, SEARCH_MATCH* match,
                                                             ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("MigrateCFDLPDeleteAttachmentActionCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        return IsMatch(found) ? CollectIfRetired(*static_cast<const RetiredSearch*>(parameter), found.ID.NoteID)
                              : NOERROR;
    });
}

} // namespace updkrx
