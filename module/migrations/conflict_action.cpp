#include "migrations/conflict_action.h"

#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"

namespace updkrx {
namespace {

constexpr WORD selectionLength = 31;
constexpr WORD actionSize = 32;
constexpr const char* item = "$ConflictAction";
constexpr char mergeConflicts[] = "3";

/** Also of a document whose action cannot be read: it keeps the one that it has. */
bool MayMergeConflicts(NOTEHANDLE note) noexcept {
    char action[actionSize];
    const auto length = ReadItemText(note, item, action, sizeof action);
    return !length || (*length > 0 && action[0] == mergeConflicts[0]);
}

void MergeConflicts(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (OpenNote(note, database, noteId) != NOERROR || MayMergeConflicts(note.Get())) {
        return;
    }
    // What cannot be written waits for the next upgrade.
    (void)NSFItemSetText(note.Get(), item, mergeConflicts, sizeof mergeConflicts - 1);
    (void)NSFNoteUpdate(note.Get(), UPDATE_FORCE);
}

} // namespace

int32_t ChangeConflictAction(DBHANDLE database) noexcept {
    ScopedFormula formula;
    if (const STATUS status = CompileSelection("FORM=\"Register\"", selectionLength, formula); status != NOERROR) {
        LogCompileFailure("ChangeConflictAction", status);
        return status;
    }
    return SearchNotes(database, formula.Get(), NOTE_CLASS_DOCUMENT, ChangeConflictActionCallback, &database) ==
           NOERROR;
}

STATUS LNCALLBACK ChangeConflictActionCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("ChangeConflictActionCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        if (IsMatch(found)) {
            MergeConflicts(*static_cast<const DBHANDLE*>(parameter), found.ID.NoteID);
        }
        return NOERROR;
    });
}

} // namespace updkrx
