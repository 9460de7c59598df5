#include "engine/items.h"

#include <algorithm>
#include <utility>

#include "engine/status_error.h"

namespace embedded {
namespace {

void check(const Item& item) {
    if (item.name.empty())
        throw StatusError(EMB_ERR_ARGUMENT);
    const size_t limit = item.flags & ITEM_SUMMARY ? maxSummaryValue : maxItemValue;
    if (item.name.size() > maxItemName || item.value.size() > limit)
        throw StatusError(EMB_ERR_TOO_LONG);
    if (item.type == TYPE_TEXT_LIST && !textEntries(item.type, item.value))
        throw StatusError(EMB_ERR_ITEM_TYPE);
}

auto named(std::string_view name) {
    return [name](const Item& item) { return sameItemName(item.name, name); };
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

} // namespace

const Item* findItem(const Items& items, std::string_view name) noexcept {
    const auto found = std::find_if(items.begin(), items.end(), named(name));
    return found == items.end() ? nullptr : &*found;
}

Item* findItem(Items& items, std::string_view name) noexcept {
    return const_cast<Item*>(findItem(std::as_const(items), name));
}

std::vector<std::string_view> itemEntries(const Items& items, std::string_view name) {
    const Item* item = findItem(items, name);
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

void appendItem(Items& items, Item item) {
    check(item);
    items.push_back(std::move(item));
}

void setItem(Items& items, Item item) {
    check(item);
    deleteItems(items, item.name);
    items.push_back(std::move(item));
}

void appendTextListEntry(Items& items, std::string_view name, std::string_view entry, bool allowDuplicates) {
    Item* existing = findItem(items, name);
    if (!existing)
        return appendItem(items, {std::string(name), TYPE_TEXT_LIST, ITEM_SUMMARY, encodeTextList({entry})});
    auto entries = textEntries(existing->type, existing->value);
    if (!entries)
        throw StatusError(EMB_ERR_ITEM_TYPE);
    if (!allowDuplicates && std::find(entries->begin(), entries->end(), entry) != entries->end())
        return;
    if (entries->size() >= MAXWORD)
        throw StatusError(EMB_ERR_TOO_LONG);
    entries->push_back(entry);
    Item longer{existing->name, TYPE_TEXT_LIST, existing->flags, encodeTextList(*entries)};
    check(longer);
    *existing = std::move(longer);
}

bool deleteItems(Items& items, std::string_view name) {
    return std::erase_if(items, named(name)) != 0;
}

void expandItems(Items& items) {
    for (Item& item : items) {
        for (const ListType& pair : listTypes) {
            if (item.type != pair.single)
                continue;
            item.value = pair.single == TYPE_TEXT ? encodeTextList({item.value}) : std::string(rangeOfOne) + item.value;
            item.type = pair.list;
            break;
        }
    }
}

void contractItems(Items& items) {
    for (Item& item : items) {
        if (item.type == TYPE_TEXT_LIST) {
            const auto entries = textEntries(item.type, item.value);
            if (!entries || entries->size() != 1)
                continue;
            item.value = std::string(entries->front());
            item.type = TYPE_TEXT;
            continue;
        }
        for (const ListType& pair : listTypes) {
            if (item.type != pair.list || !item.value.starts_with(rangeOfOne) ||
                item.value.size() != rangeOfOne.size() + sizeof(NUMBER))
                continue;
            item.value.erase(0, rangeOfOne.size());
            item.type = pair.single;
            break;
        }
    }
}

size_t summarySize(const Items& items) noexcept {
    size_t size = 0;
    for (const Item& item : items)
        if (item.flags & ITEM_SUMMARY)
            size += item.name.size() + sizeof(WORD) + item.value.size();
    return size;
}

} // namespace embedded
