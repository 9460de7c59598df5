#include "migrations/conflict_action.h"

#include "foundation/item_reading.h"
#include "foundation/note_saving.h"
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

/** A document that cannot be opened is passed over. */
void ChangeConflictActionCallback(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (OpenNote(note, database, noteId) != NOERROR || MayMergeConflicts(note.Get())) {
        return;
    }
    // What cannot be written waits for the next upgrade.
    (void)WithSecondTry([&] { return NSFItemSetText(note.Get(), item, mergeConflicts, sizeof mergeConflicts - 1); });
    (void)SaveOrLog("ChangeConflictActionCallback", note.Get());
}

} // namespace

int32_t ChangeConflictAction(DBHANDLE database) noexcept {
    ScopedFormula formula;
    const STATUS status = CompileOrLog("ChangeConflictAction", "FORM=\"Register\"", selectionLength, formula);
    if (status != NOERROR) {
        return status;
    }
    return SearchOrLog({"ChangeConflictActionCallback", database, formula.Get(), NOTE_CLASS_DOCUMENT},
                       [&](const SEARCH_MATCH& found) { ChangeConflictActionCallback(database, found.ID.NoteID); }) ==
           NOERROR;
}

} // namespace updkrx
