#include "engine/values/item_codec.h"

#include "engine/values/bytes.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr DWORD objectRefSize = sizeof(uint32_t) + 2 * sizeof(uint64_t);

} // namespace

void ItemCursor::Damaged() {
    throw StatusError(EMB_ERR_DAMAGED, "the items of a note are damaged");
}

ObjectRef ItemCursor::ObjectRefFrom(std::string_view bytes) {
    if (bytes.size() != objectRefSize) {
        Damaged();
    }
    return {ValueAt<uint32_t>(bytes.data()), ValueAt<uint64_t>(bytes.data() + 4), ValueAt<uint64_t>(bytes.data() + 12)};
}

void AppendEncoded(std::string& encoded, const ItemView& item) {
    const auto nameSize = static_cast<WORD>(item.name.size());
    const DWORD valueSize = item.object ? objectRefSize | objectBit : static_cast<DWORD>(item.value.size());
    char head[itemHeadSize];
    std::memcpy(head, &item.flags, sizeof item.flags);
    std::memcpy(head + 2, &item.type, sizeof item.type);
    std::memcpy(head + 4, &nameSize, sizeof nameSize);
    std::memcpy(head + 6, &valueSize, sizeof valueSize);
    encoded.append(head, sizeof head).append(item.name);
    if (!item.object) {
        encoded.append(item.value);
        return;
    }
    AppendValue(encoded, item.object->id);
    AppendValue(encoded, item.object->size);
    AppendValue(encoded, item.object->hash);
}

void AppendEncoded(std::string& encoded, std::string_view name, WORD type, WORD flags,
                   const std::function<void(std::string& encoded)>& write) {
    const size_t start = encoded.size();
    AppendEncoded(encoded, {name, type, flags, {}});
    const size_t value = encoded.size();
    write(encoded);
    const auto size = static_cast<DWORD>(encoded.size() - value);
    std::memcpy(encoded.data() + start + 6, &size, sizeof size);
}

std::string EncodeItems(const std::vector<Item>& items) {
    std::string encoded;
    for (const Item& item : items) {
        AppendEncoded(encoded, {item.name, item.type, item.flags, item.value, item.object});
    }
    return encoded;
}

std::optional<ItemView> FindItem(std::string_view encoded, std::string_view name) {
    std::optional<ItemView> found(std::in_place); // filled where it stays: a copy costs as much as a short walk
    if (!ItemCursor(encoded).Find(name, *found)) {
        found.reset();
    }
    return found;
}

std::vector<ObjectRef> ObjectsOf(std::string_view encoded) {
    std::vector<ObjectRef> objects;
    ItemCursor cursor(encoded);
    for (ItemView view{}; cursor.Next(view);) {
        if (view.object) {
            objects.push_back(*view.object);
        }
    }
    return objects;
}

std::string WithObjects(std::string_view encoded, const std::function<ObjectRef(const ObjectRef&)>& replace) {
    std::string replaced;
    replaced.reserve(encoded.size());
    ItemCursor cursor(encoded);
    for (ItemView view{}; cursor.Next(view);) {
        if (view.object) {
            view.object = replace(*view.object);
        }
        AppendEncoded(replaced, view);
    }
    return replaced;
}

std::optional<std::vector<std::string_view>> TextEntries(WORD type, std::string_view value) {
    if (type == TYPE_TEXT) {
        return std::vector{value};
    }
    if (type != TYPE_TEXT_LIST || value.size() < sizeof(WORD)) {
        return std::nullopt;
    }
    const size_t count = ValueAt<WORD>(value.data());
    size_t at = sizeof(WORD) * (1 + count);
    if (value.size() < at) {
        return std::nullopt;
    }
    std::vector<std::string_view> entries;
    entries.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const size_t length = ValueAt<WORD>(value.data() + sizeof(WORD) * (1 + i));
        if (value.size() - at < length) {
            return std::nullopt;
        }
        entries.push_back(value.substr(at, length));
        at += length;
    }
    return entries;
}

std::string EncodeTextList(const std::vector<std::string_view>& entries) {
    std::string out;
    AppendValue(out, static_cast<WORD>(entries.size()));
    for (const std::string_view entry : entries) {
        AppendValue(out, static_cast<WORD>(entry.size()));
    }
    for (const std::string_view entry : entries) {
        out += entry;
    }
    return out;
}

} // namespace embedded
