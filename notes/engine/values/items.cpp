#include "engine/values/items.h"

#include <algorithm>

#include "engine/values/status_error.h"

namespace embedded {
namespace {

void Check(const ItemView& item) {
    if (item.name.empty()) {
        throw StatusError(EMB_ERR_ARGUMENT);
    }
    if (item.name.size() > maxItemName) {
        throw StatusError(EMB_ERR_TOO_LONG);
    }
    if (IsKept(item.type) || (item.type == TYPE_TEXT_LIST && !item.object && !TextEntries(item.type, item.value))) {
        throw StatusError(EMB_ERR_ITEM_TYPE);
    }
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
Items Changed(const Items& items, Change&& change) {
    std::string encoded;
    encoded.reserve(items.Encoded().size());
    ItemCursor cursor = items.Cursor();
    for (ItemView view{}; cursor.Next(view);) {
        WORD type = view.type;
        std::string value(view.value);
        if (!view.object) {
            change(type, value);
        }
        AppendEncoded(encoded, {view.name, type, view.flags, value, view.object});
    }
    return Items(std::move(encoded));
}

void Expand(WORD& type, std::string& value) {
    for (const ListType& pair : listTypes) {
        if (type != pair.single) {
            continue;
        }
        if (type == TYPE_TEXT) {
            value = EncodeTextList({value});
        } else {
            value.insert(0, rangeOfOne);
        }
        type = pair.list;
        return;
    }
}

void Contract(WORD& type, std::string& value) {
    if (type == TYPE_TEXT_LIST) {
        const auto entries = TextEntries(type, value);
        if (!entries || entries->size() != 1) {
            return;
        }
        value = std::string(entries->front());
        type = TYPE_TEXT;
        return;
    }
    for (const ListType& pair : listTypes) {
        if (type != pair.list || !value.starts_with(rangeOfOne) || value.size() != rangeOfOne.size() + sizeof(NUMBER)) {
            continue;
        }
        value.erase(0, rangeOfOne.size());
        type = pair.single;
        return;
    }
}

} // namespace

Items::Items(std::string encoded) : encoded_(std::move(encoded)) {
    ItemCursor all = Cursor();
    for (ItemView view{}; all.Next(view);) {
    }
}

void Items::Append(const ItemView& item) {
    Check(item);
    AppendEncoded(encoded_, item);
}

void Items::Set(const ItemView& item) {
    Check(item);
    Erase(item.name);
    AppendEncoded(encoded_, item);
}

void Items::Change(const ItemView& item) {
    Check(item);
    ItemCursor all = Cursor();
    std::string_view from = all.Rest();
    for (ItemView view{}; all.Next(view) && !SameItemName(view.name, item.name); from = all.Rest()) {
    }
    std::string changed;
    AppendEncoded(changed, item);
    encoded_.replace(encoded_.size() - from.size(), from.size() - all.Rest().size(), changed);
}

bool Items::Erase(std::string_view name, bool onlyFirst) {
    bool erased = false;
    ItemCursor all = Cursor();
    std::string_view from = all.Rest();
    for (ItemView view{}; all.Next(view); from = all.Rest()) {
        if (!SameItemName(view.name, name)) {
            continue;
        }
        const size_t behind = all.Rest().size();
        encoded_.erase(encoded_.size() - from.size(), from.size() - behind);
        all = ItemCursor(std::string_view(encoded_).substr(encoded_.size() - behind));
        erased = true;
        if (onlyFirst) {
            break;
        }
    }
    return erased;
}

void RequireInline(const ItemView& item) {
    if (item.object) {
        throw StatusError(ERR_SEGMENT_TOO_BIG, "an item's value of " + std::to_string(item.object->size) +
                                                   " bytes is too large to be read at once");
    }
}

std::vector<std::string_view> ItemEntries(const Items& items, std::string_view name) {
    const auto item = items.Find(name);
    if (item) {
        RequireInline(*item);
    }
    return item ? TextEntries(item->type, item->value).value_or(std::vector<std::string_view>{})
                : std::vector<std::string_view>{};
}

std::string ItemText(const Items& items, std::string_view name) {
    std::string text;
    bool first = true;
    for (const std::string_view entry : ItemEntries(items, name)) {
        if (!first) {
            text += "; ";
        }
        first = false;
        text += entry;
    }
    return text;
}

void AppendTextListEntry(Items& items, std::string_view name, std::string_view entry, bool allowDuplicates) {
    const auto existing = items.Find(name);
    if (!existing) {
        return items.Append({name, TYPE_TEXT_LIST, ITEM_SUMMARY, EncodeTextList({entry})});
    }
    RequireInline(*existing);
    auto entries = TextEntries(existing->type, existing->value);
    if (!entries) {
        throw StatusError(EMB_ERR_ITEM_TYPE);
    }
    if (!allowDuplicates && std::find(entries->begin(), entries->end(), entry) != entries->end()) {
        return;
    }
    if (entries->size() >= MAXWORD) {
        throw StatusError(EMB_ERR_TOO_LONG);
    }
    entries->push_back(entry);
    const std::string ownName(existing->name);
    const std::string longer = EncodeTextList(*entries);
    items.Change({ownName, TYPE_TEXT_LIST, existing->flags, longer});
}

void ExpandItems(Items& items) {
    items = Changed(items, Expand);
}

void ContractItems(Items& items) {
    items = Changed(items, Contract);
}

bool FitIntoNote(const Items& items) {
    size_t summary = 0;
    ItemCursor cursor = items.Cursor();
    for (ItemView view{}; cursor.Next(view);) {
        if (view.value.size() > maxItemValue) {
            return false;
        }
        if (view.flags & ITEM_SUMMARY) {
            summary += view.name.size() + sizeof(WORD) + view.value.size();
        }
    }
    return summary <= maxSummaryValue;
}

} // namespace embedded
