#include "migrations/note_items.h"

#include <algorithm>
#include <cstring>

#include "common/ascii_text.h"
#include "foundation/debug_log.h"
#include "foundation/notes_text.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

constexpr WORD flagSize = 256;
constexpr WORD entrySize = 8192; // with the terminator

STATUS GetItemSize(NOTEHANDLE note, const char* item, WORD* type, DWORD* length) noexcept {
    return NSFItemInfo(note, item, static_cast<WORD>(std::strlen(item)), nullptr, type, nullptr, length);
}

/** Whether `count` entries of `bytes` in all are all that an item has: the platform answers to a failure as it does for
 *  an item that is absent or an entry that is empty. */
bool IsWholeList(NOTEHANDLE note, const char* item, size_t count, size_t bytes) noexcept {
    WORD type = TYPE_INVALID_OR_UNKNOWN;
    DWORD length = 0;
    if (const STATUS status = GetItemSize(note, item, &type, &length); status != NOERROR) {
        return (status & ERR_MASK) == ERR_ITEM_NOT_FOUND;
    }
    const size_t heads = type == TYPE_TEXT_LIST ? sizeof(LIST) + count * sizeof(USHORT) : 0;
    const bool isText = type == TYPE_TEXT_LIST || type == TYPE_TEXT;
    return !isText || sizeof type + heads + bytes >= length;
}

} // namespace

bool HasItem(NOTEHANDLE note, const char* item) noexcept {
    return GetItemSize(note, item, nullptr, nullptr) == NOERROR;
}

std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept {
    char flag[flagSize];
    const auto length = GetItemText(note, "pre-defined", flag, sizeof flag);
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
    constexpr WORD maxLength = entrySize - 1;
    const WORD count = NSFItemGetTextListEntries(note, item);
    size_t bytes = 0;
    bool cut = false;
    for (WORD position = 0; position < count; ++position) {
        char entry[entrySize];
        const WORD length = std::min(NSFItemGetTextListEntry(note, item, position, entry, maxLength), maxLength);
        entry[length] = '\0'; // the platform need not terminate it
        entries.emplace(entry);
        bytes += length;
        cut |= length == maxLength; // maybe: its whole length is not to be had
    }
    if (cut || IsWholeList(note, item, count, bytes)) {
        return true;
    }
    DebugLog(level::progress, "Error: The entries of an item cannot be read. item is %s, UNID is %s", item,
             UnidTextOf(note).c_str());
    return false;
}

STATUS AppendEntry(NOTEHANDLE note, const char* item, const std::string& entry) noexcept {
    constexpr BOOL allowDuplicates = 0;
    return NSFItemAppendTextList(note, item, entry.c_str(), static_cast<WORD>(entry.size()), allowDuplicates);
}

} // namespace updkrx
