#include "maintenance/expressions.h"

#include <algorithm>
#include <string_view>

#include "foundation/debug_log.h"
#include "foundation/item_reading.h"
#include "foundation/note_saving.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/text_lists.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

constexpr WORD selectionLength = 31;
constexpr WORD itemTextSize = 255;

/** An item's text, line breaks and all; empty when it cannot be read. */
std::string_view ReadText(NOTEHANDLE note, const char* item, char (&buffer)[itemTextSize]) noexcept {
    return {buffer, ReadItemText(note, item, buffer, itemTextSize).value_or(WORD{0})};
}

/** The shipped expression of exactly this text; null when there is none. */
const DefaultExpression* Find(std::span<const DefaultExpression> table, std::string_view expression) noexcept {
    const auto found = std::ranges::lower_bound(table, expression, {}, &DefaultExpression::expression);
    return found != table.end() && found->expression == expression ? &*found : nullptr;
}

// Of the next two changes, one that fails does not keep the other from being saved.

void CorrectDocId(NOTEHANDLE note) noexcept {
    char unid[unidTextSize];
    GetUnidText(note, unid);
    char buffer[itemTextSize] = {};
    if (ReadText(note, "DocID", buffer) != unid) {
        (void)WithSecondTry([&] { return NSFItemSetText(note, "DocID", unid, unidTextSize - 1); });
    }
}

void AddReference(NOTEHANDLE note, std::span<const DefaultExpression> table) noexcept {
    char buffer[itemTextSize] = {};
    if (const DefaultExpression* shipped = Find(table, ReadText(note, "Expression", buffer)); shipped != nullptr) {
        (void)WithSecondTry([&] { return AppendEntry(note, "RefContent", shipped->unid); });
    }
}

/** Returns the status of compiling the formula. */
STATUS MigrateDocuments() noexcept {
    ScopedDatabase database;
    if (OpenDatabase(database, "krx/krconf.nsf") != NOERROR) {
        return NOERROR;
    }
    ScopedFormula formula;
    const STATUS status = CompileOrLog("UpdateKrency", "FORM=\"Expression\"", selectionLength, formula);
    if (status != NOERROR) {
        return status;
    }
    const ExpressionSearch search = {database.Get(), DefaultExpressionTable};
    (void)SearchOrLog({"MigrateExpressionCallback", database.Get(), formula.Get(), NOTE_CLASS_DOCUMENT},
                      [&](const SEARCH_MATCH& found) { MigrateExpressionCallback(search, found.ID.NoteID); });
    return NOERROR;
}

void LogTable() noexcept {
    for (const auto& [expression, unid] : DefaultExpressionTable) {
        DebugLog(level::detail, "\tgMap[\"%s\"]=\"%s\";", expression.data(), unid.data());
    }
}

} // namespace

DWORD MigrateContentFilterExpressions() noexcept {
    const STATUS status = MigrateDocuments();
    if (status == NOERROR) {
        LogTable();
    }
    return status;
}

void MigrateExpressionCallback(const ExpressionSearch& search, NOTEID noteId) noexcept {
    ScopedNote note;
    if (const STATUS status = OpenNote(note, search.database, noteId); status != NOERROR) {
        DebugLog(level::detail, "NSFNoteOpen error %d", status);
        return;
    }
    CorrectDocId(note.Get());
    AddReference(note.Get(), search.table);
    (void)SaveOrLog("MigrateExpressionCallback", note.Get());
}

} // namespace updkrx
