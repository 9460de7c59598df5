#include "migrations/note_items.h"

#include <algorithm>
#include <cstring>

#include "common/ascii_text.h"
#include "foundation/notes_text.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

constexpr WORD flagSize = 256;
constexpr WORD entrySize = 8192; // with the terminator

} // namespace

bool HasItem(NOTEHANDLE note, const char* item) noexcept {
    return NSFItemInfo(note, item, static_cast<WORD>(std::strlen(item)), nullptr, nullptr, nullptr, nullptr) == NOERROR;
}

bool IsPredefined(NOTEHANDLE note) noexcept {
    char flag[flagSize];
    const WORD length = GetItemText(note, "pre-defined", flag, sizeof flag);
    return EqualIgnoringAsciiCase({flag, length}, "true");
}

NOTEID NoteIdOf(NOTEHANDLE note) noexcept {
    NOTEID noteId = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &noteId);
    return noteId;
}

std::string UnidTextOf(NOTEHANDLE note) {
    char text[unidTextSize];
    GetUnidText(note, text);
    return text;
}

void ReadTextListfield(NOTEHANDLE note, const char* item, TextSet& entries) {
    const WORD count = NSFItemGetTextListEntries(note, item);
    for (WORD position = 0; position < count; ++position) {
        char entry[entrySize];
        const WORD length = NSFItemGetTextListEntry(note, item, position, entry, entrySize - 1);
        entry[std::min<WORD>(length, entrySize - 1)] = '\0'; // the platform need not terminate it
        entries.emplace(entry);
    }
}

STATUS AppendEntry(NOTEHANDLE note, const char* item, const std::string& entry) noexcept {
    constexpr BOOL allowDuplicates = 0;
    return NSFItemAppendTextList(note, item, entry.c_str(), static_cast<WORD>(entry.size()), allowDuplicates);
}

} // namespace updkrx
