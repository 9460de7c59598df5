#include <algorithm>
#include <optional>

#include "api/call.h"
#include "engine/values/items.h"

using namespace embedded;

namespace {

std::string_view itemName(const char* name, size_t length = MAXWORD) {
    const std::string_view text = textOf(name, length);
    if (text.empty())
        throw StatusError(EMB_ERR_ARGUMENT);
    return text;
}

/** Puts at most `size` bytes into the buffer, and a terminator if one fits into them too. */
WORD fill(char* buffer, WORD size, std::string_view text) {
    requirePointer(buffer);
    const size_t length = std::min<size_t>(size, text.size());
    std::copy_n(text.data(), length, buffer);
    if (length < size)
        buffer[length] = '\0';
    return static_cast<WORD>(length);
}

ItemView textItem(const char* name, WORD type, std::string_view value) {
    return {itemName(name), type, ITEM_SUMMARY, value};
}

bool isText(const Items& items, std::string_view name) {
    const auto item = items.find(name);
    return item && item->type == TYPE_TEXT;
}

/** The entries of a list, and of a single text where that counts as one. */
std::vector<std::string_view> entriesOf(Session& session, NOTEHANDLE note, std::string_view name) {
    const Items& items = requireNote(session, note).items;
    if (session.behaviours.has(Deviation::entriesOfTextNone) && isText(items, name))
        return {};
    return itemEntries(items, name);
}

/** A copy of the item, with its type word, in memory that belongs to the note. */
BLOCKID lend(Session& session, NoteEntry& note, const ItemView& item) {
    std::string bytes(reinterpret_cast<const char*>(&item.type), sizeof item.type);
    bytes += item.value;
    const DHANDLE block = session.allocate(bytes, true);
    note.blocks.push_back(block);
    return BLOCKID{block, 0};
}

} // namespace

WORD LNPUBLIC NSFItemGetText(NOTEHANDLE note, const char* name, char* buffer, WORD size) {
    return callValue<WORD>(Operation::NSFItemGetText, 0, [&](Session& session) {
        const std::string text = itemText(requireNote(session, note).items, itemName(name));
        if (size == 0 || !session.behaviours.has(Deviation::getTextSizeWithTerminator))
            return fill(buffer, size, text);
        return fill(buffer, size, std::string_view(text).substr(0, size - size_t{1}));
    });
}

STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE note, const char* name, const char* text, WORD length) {
    return call(Operation::NSFItemSetText, [&](Session& session) {
        requireNote(session, note).items.set(textItem(name, TYPE_TEXT, textOf(text, length)));
    });
}

STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE note, const char* name, WORD nameLength, BLOCKID* item, WORD* type,
                            BLOCKID* value, DWORD* length) {
    return call(Operation::NSFItemInfo, [&](Session& session) {
        if (type)
            *type = TYPE_INVALID_OR_UNKNOWN;
        NoteEntry& entry = requireNote(session, note);
        std::optional<ItemView> found;
        if (name)
            found = entry.items.find(itemName(name, nameLength));
        else if (ItemView first{}; nameLength == 0 && entry.items.cursor().next(first))
            found = first;
        if (!found)
            throw StatusError(ERR_ITEM_NOT_FOUND);
        if (type)
            *type = found->type;
        if (length)
            *length = static_cast<DWORD>(sizeof(WORD) + found->value.size());
        if (item || value) {
            const BLOCKID lent = lend(session, entry, *found);
            if (item)
                *item = lent;
            if (value)
                *value = lent;
        }
    });
}

STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE note, const char* name, WORD nameLength) {
    return call(Operation::NSFItemDelete, [&](Session& session) {
        if (!requireNote(session, note)
                 .items.erase(itemName(name, nameLength), session.behaviours.has(Deviation::deleteItemFirst)))
            throw StatusError(ERR_ITEM_NOT_FOUND);
    });
}

STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE note, WORD flags, const char* name, WORD nameLength, WORD type,
                              const void* value, DWORD length) {
    return call(Operation::NSFItemAppend, [&](Session& session) {
        if (length != 0)
            requirePointer(value);
        if (length > maxItemValue)
            throw StatusError(ERR_SEGMENT_TOO_BIG);
        if ((flags & ITEM_SUMMARY) && length > maxSummaryValue)
            throw StatusError(ERR_SUMMARY_TOO_BIG);
        requireNote(session, note)
            .items.append(
                {itemName(name, nameLength), type, flags, std::string_view(static_cast<const char*>(value), length)});
    });
}

WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE note, const char* name) {
    return callValue<WORD>(Operation::NSFItemGetTextListEntries, 0, [&](Session& session) {
        return static_cast<WORD>(entriesOf(session, note, itemName(name)).size());
    });
}

WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE note, const char* name, WORD position, char* buffer, WORD size) {
    return callValue<WORD>(Operation::NSFItemGetTextListEntry, 0, [&](Session& session) -> WORD {
        const auto entries = entriesOf(session, note, itemName(name));
        if (position >= entries.size())
            return 0;
        requirePointer(buffer);
        // Unlike a text, an entry comes without a terminator.
        const size_t length = std::min<size_t>(size, entries[position].size());
        std::copy_n(entries[position].data(), length, buffer);
        return static_cast<WORD>(length);
    });
}

STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE note, const char* name, const char* text, WORD length) {
    return call(Operation::NSFItemCreateTextList, [&](Session& session) {
        const std::string list = encodeTextList({textOf(text, length)});
        requireNote(session, note).items.set(textItem(name, TYPE_TEXT_LIST, list));
    });
}

STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE note, const char* name, const char* text, WORD length,
                                      BOOL allowDuplicates) {
    return call(Operation::NSFItemAppendTextList, [&](Session& session) {
        Items& items = requireNote(session, note).items;
        if (session.behaviours.has(Deviation::appendToTextRefused) && isText(items, itemName(name)))
            throw StatusError(EMB_ERR_ITEM_TYPE);
        appendTextListEntry(items, itemName(name), textOf(text, length), allowDuplicates != 0);
    });
}
