#include "migrations/note_items.h"

#include <algorithm>

#include "common/ascii_text.h"
#include "foundation/item_reading.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

constexpr WORD flagSize = 256;
constexpr WORD entrySize = 8192; // with the terminator

} // namespace

std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept {
    char flag[flagSize];
    const auto length = ReadItemText(note, "pre-defined", flag, sizeof flag);
    if (!length) {
        return std::nullopt;
    }
    return EqualIgnoringAsciiCase({flag, *length}, "true");
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

bool ReadTextListfield(NOTEHANDLE note, const char* item, TextSet& entries) {
    const WORD count = NSFItemGetTextListEntries(note, item);
    bool suspicious = count == 0; // an empty answer may be a failure
    bool cut = false;
    size_t bytes = 0;
    for (WORD position = 0; position < count; ++position) {
        char entry[entrySize];
        const WORD length =
            std::min<WORD>(NSFItemGetTextListEntry(note, item, position, entry, entrySize - 1), entrySize - 1);
        entry[length] = '\0'; // the platform need not terminate it
        entries.emplace(entry);
        suspicious |= length == 0;
        cut |= length == entrySize - 1;
        bytes += length;
    }
    // What was cut off is more than what was read, too.
    return !suspicious || cut || !HasUnreadText(note, item, count, bytes);
}

STATUS AppendEntry(NOTEHANDLE note, const char* item, const std::string& entry) noexcept {
    constexpr BOOL allowDuplicates = 0;
    return NSFItemAppendTextList(note, item, entry.c_str(), static_cast<WORD>(entry.size()), allowDuplicates);
}

} // namespace updkrx
