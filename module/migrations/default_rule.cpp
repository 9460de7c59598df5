#include "migrations/default_rule.h"

#include <algorithm>

#include "common/ascii_text.h"
#include "foundation/item_reading.h"
#include "foundation/note_saving.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "migrations/note_identity.h"

namespace updkrx {
namespace {

constexpr WORD selectionLength = 31;
constexpr WORD formSize = 64;
constexpr const char* item = "DefaultRule";

bool IsKept(NOTEHANDLE note) noexcept {
    const OID oid = OidOf(note);
    char buffer[formSize];
    const auto length = ReadItemText(note, "Form", buffer, sizeof buffer);
    return std::ranges::any_of(keptDefaultDocuments, [&](const DefaultDocument& kept) {
        // A form that cannot be read may be the one: the rule would be lost.
        return (!length || EqualIgnoringAsciiCase({buffer, *length}, kept.form)) &&
               oid.Note.Innards[0] == kept.note.Innards[0] && oid.Note.Innards[1] == kept.note.Innards[1];
    });
}

/** A document that cannot be opened is passed over. */
void ClearDefaultRuleCallback(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (OpenNote(note, database, noteId) != NOERROR || IsKept(note.Get())) {
        return;
    }
    // What cannot be written waits for the next upgrade.
    (void)WithSecondTry([&] { return DeleteItems(note.Get(), item); });
    (void)SaveOrLog("ClearDefaultRuleCallback", note.Get());
}

} // namespace

STATUS ClearDefaultRule(DBHANDLE database) noexcept {
    ScopedFormula formula;
    const STATUS status = CompileOrLog("ChangeConflictAction", "DefaultRule=\"1\"", selectionLength, formula);
    if (status != NOERROR) {
        return status;
    }
    return SearchOrLog({"ClearDefaultRuleCallback", database, formula.Get(), NOTE_CLASS_DOCUMENT},
                       [&](const SEARCH_MATCH& found) { ClearDefaultRuleCallback(database, found.ID.NoteID); });
}

} // namespace updkrx
