#include <algorithm>
#include <limits>
#include <optional>

#include "api/call.h"
#include "engine/values/items.h"

using namespace embedded;

namespace {

std::string_view ItemName(const char* name, size_t length = MAXWORD) {
    const std::string_view text = TextOf(name, length);
    if (text.empty()) {
        throw StatusError(EMB_ERR_ARGUMENT);
    }
    return text;
}

/** Puts at most `size` bytes into the buffer, and a terminator if one fits into them too. */
WORD Fill(char* buffer, WORD size, std::string_view text) {
    RequirePointer(buffer);
    const size_t length = std::min<size_t>(size, text.size());
    std::copy_n(text.data(), length, buffer);
    if (length < size) {
        buffer[length] = '\0';
    }
    return static_cast<WORD>(length);
}

ItemView TextItem(const char* name, WORD type, std::string_view value) {
    return {ItemName(name), type, ITEM_SUMMARY, value};
}

bool IsText(const Items& items, std::string_view name) {
    const auto item = items.Find(name);
    return item && item->type == TYPE_TEXT;
}

/** The entries of a list, and of a single text where that counts as one. */
std::vector<std::string_view> EntriesOf(Session& session, NOTEHANDLE note, std::string_view name) {
    const Items& items = session.NoteOf(note).items;
    if (session.GetServer().Has(Deviation::entriesOfTextNone) && IsText(items, name)) {
        return {};
    }
    return ItemEntries(items, name);
}

/** Passes over what DXL keeps in a note and no item has. */
std::optional<ItemView> FirstItem(const Items& items) {
    ItemCursor cursor = items.Cursor();
    for (ItemView item{}; cursor.Next(item);) {
        if (!item.name.empty() && !IsHidden(item.type)) {
            return item;
        }
    }
    return std::nullopt;
}

/** A copy of the item, with its type word, in memory that belongs to the note. */
BLOCKID Lend(Session& session, NOTEHANDLE note, const ItemView& item) {
    RequireInline(item);
    std::string bytes(reinterpret_cast<const char*>(&item.type), sizeof item.type);
    bytes += item.value;
    return BLOCKID{session.Lend(note, bytes), 0};
}

} // namespace

WORD LNPUBLIC NSFItemGetText(NOTEHANDLE note, const char* name, char* buffer, WORD size) {
    return CallValue<WORD>(Operation::NSFItemGetText, 0, [&](Session& session) {
        const std::string text = ItemText(session.NoteOf(note).items, ItemName(name));
        if (size == 0 || !session.GetServer().Has(Deviation::getTextSizeWithTerminator)) {
            return Fill(buffer, size, text);
        }
        return Fill(buffer, size, std::string_view(text).substr(0, size - size_t{1}));
    });
}

STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE note, const char* name, const char* text, WORD length) {
    return Call(Operation::NSFItemSetText, [&](Session& session) {
        session.NoteOf(note).items.Set(TextItem(name, TYPE_TEXT, TextOf(text, length)));
    });
}

STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE note, const char* name, WORD nameLength, BLOCKID* item, WORD* type,
                            BLOCKID* value, DWORD* length) {
    return Call(Operation::NSFItemInfo, [&](Session& session) {
        if (type) {
            *type = TYPE_INVALID_OR_UNKNOWN;
        }
        const Items& items = session.NoteOf(note).items;
        std::optional<ItemView> found;
        if (name) {
            found = items.Find(ItemName(name, nameLength));
        } else if (nameLength == 0) {
            found = FirstItem(items);
        }
        if (!found) {
            throw StatusError(ERR_ITEM_NOT_FOUND);
        }
        if (IsKept(found->type)) {
            found = ItemView{found->name, TYPE_INVALID_OR_UNKNOWN, found->flags, {}}; // it has no bytes to show
        }
        if (type) {
            *type = found->type;
        }
        if (length) {
            const uint64_t size = sizeof(WORD) + (found->object ? found->object->size : found->value.size());
            *length = static_cast<DWORD>(std::min<uint64_t>(size, std::numeric_limits<DWORD>::max()));
        }
        if (item || value) {
            const BLOCKID lent = Lend(session, note, *found);
            if (item) {
                *item = lent;
            }
            if (value) {
                *value = lent;
            }
        }
    });
}

STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE note, const char* name, WORD nameLength) {
    return Call(Operation::NSFItemDelete, [&](Session& session) {
        if (!session.NoteOf(note).items.Erase(ItemName(name, nameLength),
                                              session.GetServer().Has(Deviation::deleteItemFirst))) {
            throw StatusError(ERR_ITEM_NOT_FOUND);
        }
    });
}

STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE note, WORD flags, const char* name, WORD nameLength, WORD type,
                              const void* value, DWORD length) {
    return Call(Operation::NSFItemAppend, [&](Session& session) {
        if (length != 0) {
            RequirePointer(value);
        }
        if (length > maxItemValue) {
            throw StatusError(ERR_SEGMENT_TOO_BIG);
        }
        if ((flags & ITEM_SUMMARY) && length > maxSummaryValue) {
            throw StatusError(ERR_SUMMARY_TOO_BIG);
        }
        session.NoteOf(note).items.Append(
            {ItemName(name, nameLength), type, flags, std::string_view(static_cast<const char*>(value), length)});
    });
}

WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE note, const char* name) {
    return CallValue<WORD>(Operation::NSFItemGetTextListEntries, 0, [&](Session& session) {
        return static_cast<WORD>(EntriesOf(session, note, ItemName(name)).size());
    });
}

WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE note, const char* name, WORD position, char* buffer, WORD size) {
    return CallValue<WORD>(Operation::NSFItemGetTextListEntry, 0, [&](Session& session) -> WORD {
        const auto entries = EntriesOf(session, note, ItemName(name));
        if (position >= entries.size()) {
            return 0;
        }
        RequirePointer(buffer);
        // Unlike a text, an entry comes without a terminator.
        const size_t length = std::min<size_t>(size, entries[position].size());
        std::copy_n(entries[position].data(), length, buffer);
        return static_cast<WORD>(length);
    });
}

STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE note, const char* name, const char* text, WORD length) {
    return Call(Operation::NSFItemCreateTextList, [&](Session& session) {
        const std::string list = EncodeTextList({TextOf(text, length)});
        session.NoteOf(note).items.Set(TextItem(name, TYPE_TEXT_LIST, list));
    });
}

STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE note, const char* name, const char* text, WORD length,
                                      BOOL allowDuplicates) {
    return Call(Operation::NSFItemAppendTextList, [&](Session& session) {
        Items& items = session.NoteOf(note).items;
        if (session.GetServer().Has(Deviation::appendToTextRefused) && IsText(items, ItemName(name))) {
            throw StatusError(EMB_ERR_ITEM_TYPE);
        }
        AppendTextListEntry(items, ItemName(name), TextOf(text, length), allowDuplicates != 0);
    });
}
