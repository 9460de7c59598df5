#include "foundation/text_lists.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "foundation/item_reading.h"

namespace updkrx {
namespace {

constexpr WORD entrySize = 8192; // with the terminator

/** A text where a list is expected. */
bool ReadTextAsEntry(NOTEHANDLE note, const char* item, TextSet& entries) {
    char text[entrySize];
    if (!ReadItemText(note, item, text, sizeof text)) {
        return false;
    }
    entries.emplace(text);
    return true;
}

/** Makes a text of `length` bytes a list of this one entry, unless it equals `entry`, which is not to be added then. */
STATUS RebuildAsList(NOTEHANDLE note, const char* item, size_t length, std::string_view entry, bool& isEntry) noexcept {
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[length + 2]);
    if (!buffer) {
        return ERR_MEMORY;
    }
    // Whether the size counts a terminator differs from server to server; there is room for it in any case.
    if (NSFItemGetText(note, item, buffer.get(), static_cast<WORD>(length + 1)) != length) {
        return ERR_UNKNOWN;
    }
    isEntry = std::string_view(buffer.get(), length) == entry;
    return isEntry ? NOERROR : NSFItemCreateTextList(note, item, buffer.get(), static_cast<WORD>(length));
}

} // namespace

bool ReadTextListfield(NOTEHANDLE note, const char* item, TextSet& entries) {
    const WORD count = NSFItemGetTextListEntries(note, item);
    if (count == 0 && TextLengthOf(note, item)) {
        return ReadTextAsEntry(note, item, entries);
    }
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

STATUS AppendEntry(NOTEHANDLE note, const char* item, std::string_view entry) noexcept {
    if (const auto length = TextLengthOf(note, item)) {
        bool isEntry = false;
        const STATUS status = RebuildAsList(note, item, *length, entry, isEntry);
        if (status != NOERROR || isEntry) {
            return status;
        }
    }
    constexpr BOOL allowDuplicates = 0;
    return NSFItemAppendTextList(note, item, entry.data(), static_cast<WORD>(entry.size()), allowDuplicates);
}

} // namespace updkrx
