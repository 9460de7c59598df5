#include "foundation/item_reading.h"

#include <cstring>

#include "foundation/debug_log.h"
#include "foundation/notes_text.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

bool TellsOfAbsence(STATUS status) noexcept {
    return (status & ERR_MASK) == ERR_ITEM_NOT_FOUND;
}

STATUS LookAt(NOTEHANDLE note, const char* item, WORD* type, DWORD* length) noexcept {
    const auto look = [&] {
        return NSFItemInfo(note, item, static_cast<WORD>(std::strlen(item)), nullptr, type, nullptr, length);
    };
    const STATUS status = look();
    return status == NOERROR || TellsOfAbsence(status) ? status : look();
}

/** The size of what an item's value holds beside `entries` entries' lengths; 0 for an item that has no text. Nothing
 *  when the item cannot be looked at. */
std::optional<size_t> TextBytes(NOTEHANDLE note, const char* item, size_t entries) noexcept {
    WORD type = TYPE_INVALID_OR_UNKNOWN;
    DWORD length = 0;
    const STATUS status = LookAt(note, item, &type, &length);
    if (status != NOERROR && !TellsOfAbsence(status)) {
        return std::nullopt;
    }
    size_t heads = sizeof type;
    if (type == TYPE_TEXT_LIST) {
        heads += sizeof(LIST) + entries * sizeof(USHORT);
    } else if (type != TYPE_TEXT) {
        return 0;
    }
    return length > heads ? length - heads : 0;
}

bool MayHoldMore(NOTEHANDLE note, const char* item, size_t entries, size_t bytes) noexcept {
    const auto held = TextBytes(note, item, entries);
    return !held || *held > bytes;
}

void LogUnread(NOTEHANDLE note, const char* item) noexcept {
    char unid[unidTextSize];
    GetUnidText(note, unid);
    DebugLog(level::progress, "Error: An item cannot be read. item is %s, UNID is %s", item, unid);
}

} // namespace

bool HasItem(NOTEHANDLE note, const char* item) noexcept {
    return LookAt(note, item, nullptr, nullptr) == NOERROR;
}

bool LacksItem(NOTEHANDLE note, const char* item) noexcept {
    return TellsOfAbsence(LookAt(note, item, nullptr, nullptr));
}

std::optional<size_t> TextLengthOf(NOTEHANDLE note, const char* item) noexcept {
    WORD type = TYPE_INVALID_OR_UNKNOWN;
    DWORD length = 0;
    if (LookAt(note, item, &type, &length) != NOERROR || type != TYPE_TEXT || length < sizeof type) {
        return std::nullopt;
    }
    return length - sizeof type;
}

STATUS DeleteItems(NOTEHANDLE note, const char* item) noexcept {
    const WORD length = static_cast<WORD>(std::strlen(item));
    STATUS status = NSFItemDelete(note, item, length);
    if (status != NOERROR) {
        return status;
    }
    // Of several items of one name, some servers delete the first one only.
    while (status == NOERROR && !LacksItem(note, item)) {
        status = NSFItemDelete(note, item, length);
    }
    return TellsOfAbsence(status) ? NOERROR : status;
}

STATUS ClearItems(NOTEHANDLE note, const char* item) noexcept {
    const STATUS status = DeleteItems(note, item);
    return TellsOfAbsence(status) ? NOERROR : status;
}

std::optional<WORD> ReadItemText(NOTEHANDLE note, const char* item, char* text, WORD size) noexcept {
    WORD length = GetItemText(note, item, text, size);
    if (length == 0 && MayHoldMore(note, item, 1, 0)) {
        length = GetItemText(note, item, text, size);
        if (length == 0) {
            LogUnread(note, item);
            return std::nullopt;
        }
    }
    return length;
}

bool HasUnreadText(NOTEHANDLE note, const char* item, size_t entries, size_t bytes) noexcept {
    const bool unread = MayHoldMore(note, item, entries, bytes);
    if (unread) {
        LogUnread(note, item);
    }
    return unread;
}

} // namespace updkrx
