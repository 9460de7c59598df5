#include "engine/values/items.h"

#include <algorithm>

#include "engine/values/status_error.h"

namespace embedded {
namespace {

void check(const ItemView& item) {
    if (item.name.empty())
        throw StatusError(EMB_ERR_ARGUMENT);
    if (item.name.size() > maxItemName)
        throw StatusError(EMB_ERR_TOO_LONG);
    if (item.type == TYPE_TEXT_LIST && !textEntries(item.type, item.value))
        throw StatusError(EMB_ERR_ITEM_TYPE);
}

/** The single type and the list type that belong together; the list's head is a RANGE for all but texts. */
struct ListType {
    WORD single;
    WORD list;
};

constexpr ListType listTypes[] = {
    {TYPE_TEXT, TYPE_TEXT_LIST},
    {TYPE_NUMBER, TYPE_NUMBER_RANGE},
    {TYPE_TIME, TYPE_TIME_RANGE},
};

// A RANGE of one entry and no pairs.
constexpr std::string_view rangeOfOne("\1\0\0\0", 4);

/** The items with each one's type and value changed by `change`. */
template<typename Change>
Items changed(const Items& items, Change&& change) {
    std::string encoded;
    encoded.reserve(items.encoded().size());
    ItemCursor cursor = items.cursor();
    for (ItemView view{}; cursor.next(view);) {
        WORD type = view.type;
        std::string value(view.value);
        change(type, value);
        appendEncoded(encoded, {view.name, type, view.flags, value});
    }
    return Items(std::move(encoded));
}

void expand(WORD& type, std::string& value) {
    for (const ListType& pair : listTypes) {
        if (type != pair.single)
            continue;
        if (type == TYPE_TEXT)
            value = encodeTextList({value});
        else
            value.insert(0, rangeOfOne);
        type = pair.list;
        return;
    }
}

void contract(WORD& type, std::string& value) {
    if (type == TYPE_TEXT_LIST) {
        const auto entries = textEntries(type, value);
        if (!entries || entries->size() != 1)
            return;
        value = std::string(entries->front());
        type = TYPE_TEXT;
        return;
    }
    for (const ListType& pair : listTypes) {
        if (type != pair.list || !value.starts_with(rangeOfOne) || value.size() != rangeOfOne.size() + sizeof(NUMBER))
            continue;
        value.erase(0, rangeOfOne.size());
        type = pair.single;
        return;
    }
}

} // namespace

Items::Items(std::string encoded) : encoded_(std::move(encoded)) {
    ItemCursor all = cursor();
    for (ItemView view{}; all.next(view);) {
    }
}

void Items::append(const ItemView& item) {
    check(item);
    appendEncoded(encoded_, item);
}

void Items::set(const ItemView& item) {
    check(item);
    erase(item.name);
    appendEncoded(encoded_, item);
}

void Items::change(const ItemView& item) {
    check(item);
    ItemCursor all = cursor();
    std::string_view from = all.rest();
    for (ItemView view{}; all.next(view) && !sameItemName(view.name, item.name); from = all.rest()) {
    }
    std::string changed;
    appendEncoded(changed, item);
    encoded_.replace(encoded_.size() - from.size(), from.size() - all.rest().size(), changed);
}

bool Items::erase(std::string_view name, bool onlyFirst) {
    bool erased = false;
    ItemCursor all = cursor();
    std::string_view from = all.rest();
    for (ItemView view{}; all.next(view); from = all.rest()) {
        if (!sameItemName(view.name, name))
            continue;
        const size_t behind = all.rest().size();
        encoded_.erase(encoded_.size() - from.size(), from.size() - behind);
        all = ItemCursor(std::string_view(encoded_).substr(encoded_.size() - behind));
        erased = true;
        if (onlyFirst)
            break;
    }
    return erased;
}

std::vector<std::string_view> itemEntries(const Items& items, std::string_view name) {
    const auto item = items.find(name);
    return item ? textEntries(item->type, item->value).value_or(std::vector<std::string_view>{})
                : std::vector<std::string_view>{};
}

std::string itemText(const Items& items, std::string_view name) {
    std::string text;
    bool first = true;
    for (const std::string_view entry : itemEntries(items, name)) {
        if (!first)
            text += "; ";
        first = false;
        text += entry;
    }
    return text;
}

void appendTextListEntry(Items& items, std::string_view name, std::string_view entry, bool allowDuplicates) {
    const auto existing = items.find(name);
    if (!existing)
        return items.append({name, TYPE_TEXT_LIST, ITEM_SUMMARY, encodeTextList({entry})});
    auto entries = textEntries(existing->type, existing->value);
    if (!entries)
        throw StatusError(EMB_ERR_ITEM_TYPE);
    if (!allowDuplicates && std::find(entries->begin(), entries->end(), entry) != entries->end())
        return;
    if (entries->size() >= MAXWORD)
        throw StatusError(EMB_ERR_TOO_LONG);
    entries->push_back(entry);
    const std::string ownName(existing->name);
    const std::string longer = encodeTextList(*entries);
    items.change({ownName, TYPE_TEXT_LIST, existing->flags, longer});
}

void expandItems(Items& items) {
    items = changed(items, expand);
}

void contractItems(Items& items) {
    items = changed(items, contract);
}

bool fitIntoNote(const Items& items) {
    size_t summary = 0;
    ItemCursor cursor = items.cursor();
    for (ItemView view{}; cursor.next(view);) {
        if (view.value.size() > maxItemValue)
            return false;
        if (view.flags & ITEM_SUMMARY)
            summary += view.name.size() + sizeof(WORD) + view.value.size();
    }
    return summary <= maxSummaryValue;
}

} // namespace embedded
