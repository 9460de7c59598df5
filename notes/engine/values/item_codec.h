// Items in the platform's own byte forms, and the form in which a note's items stand together in one database field.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/values/ascii.h"
#include "engine/values/bytes.h"
#include "notes_api.h"

namespace embedded {

/** A value of any length that stands outside its note, in an object of the same database. */
struct ObjectRef {
    uint32_t id = 0;   // names the object in its database
    uint64_t size = 0; // in bytes
    uint64_t hash = 0; // Hash of the bytes: tells equal values without reading them

    bool operator==(const ObjectRef&) const = default;
};

/** One item. `name` is LMBCS and keeps its letter case; `value` is the platform's byte form without type word. */
struct Item {
    std::string name;
    WORD type = TYPE_INVALID_OR_UNKNOWN;
    WORD flags = 0;
    std::string value;                    // empty when the value stands in an object
    std::optional<ObjectRef> object = {}; // type and flags are those of its bytes

    bool operator==(const Item&) const = default;
};

/** The platform's limits on an item. */
constexpr size_t maxItemName = 0xFFFF;
constexpr size_t maxItemValue = 0xFFFF;
constexpr size_t maxSummaryValue = 0x7FFF;

// Types of the items in which a note keeps what DXL says and the platform has no bytes for. They are below the API: a
// search, a copy and an update carry them along, and no operation gives or takes a value of theirs.

/** An element as XML. One that is an item has its name, so that it is found and replaced by that; others have none. */
constexpr WORD keptElement = 0xFFF0;
/** Of the item in front of it, whose name it has. Five parts with zeros between them:
 *  the attributes of <item>;
 *  the attributes of its value's element;
 *  the name of that element, unless it is the one that the value's type has of itself;
 *  the hash of the value;
 *  what stands in the element, if export would write other words. */
constexpr WORD keptAttributes = 0xFFF1;
/** The note's own element: its name and attributes. First in a note. */
constexpr WORD keptHead = 0xFFF2;
/** Of <noteinfo>: attributes, and what stands in it, with a zero in front of each: '-' and an element as XML, or 'm'
 *  for <modified>, 'r' for <revised>, either with the time and the XML when that is in other words than export's. */
constexpr WORD keptInfo = 0xFFF3;

inline bool IsKept(WORD type) noexcept {
    return type >= keptElement;
}
/** Whether no operation finds an item of this type. */
inline bool IsHidden(WORD type) noexcept {
    return type > keptElement;
}

// Walking items and comparing their names is what a search and every change of an item consist of, hence inline.

/** Item names are equal without regard to the case of ASCII letters. */
inline bool SameItemName(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) {
        return false;
    }
    // From the end: the names of a note's items mostly begin alike.
    for (size_t i = a.size(); i-- > 0;) {
        if (a[i] != b[i] && LowerAscii(a[i]) != LowerAscii(b[i])) {
            return false;
        }
    }
    return true;
}

/** Encoded items stand one behind the other: WORD flags, WORD type, WORD name length, DWORD value length, name,
 *  value. With objectBit in the value length the value is an encoded ObjectRef: id, size, hash. */
constexpr size_t itemHeadSize = 10;
constexpr DWORD objectBit = 0x80000000u;

/** An item seen inside encoded items, without a copy. */
struct ItemView {
    std::string_view name;
    WORD type;
    WORD flags;
    std::string_view value;
    std::optional<ObjectRef> object = {};
};

/** Adds an item at the end of encoded items. */
void AppendEncoded(std::string& encoded, const ItemView& item);
/** The same with the value that `write` adds, which need not stand elsewhere before. */
void AppendEncoded(std::string& encoded, std::string_view name, WORD type, WORD flags,
                   const std::function<void(std::string& encoded)>& write);
std::string EncodeItems(const std::vector<Item>& items);

/** Walks encoded items in order. Throws StatusError EMB_ERR_DAMAGED for bytes that EncodeItems cannot have made. */
class ItemCursor {
public:
    explicit ItemCursor(std::string_view encoded) : rest_(encoded) {}
    /** False at the end. */
    bool Next(ItemView& item) {
        if (rest_.empty()) {
            return false;
        }
        if (rest_.size() < itemHeadSize) {
            Damaged();
        }
        const char* head = rest_.data();
        item.flags = ValueAt<WORD>(head);
        item.type = ValueAt<WORD>(head + 2);
        const size_t nameSize = ValueAt<WORD>(head + 4);
        const auto length = ValueAt<DWORD>(head + 6);
        const size_t valueSize = length & ~objectBit;
        const size_t size = itemHeadSize + nameSize + valueSize;
        if (rest_.size() < size) {
            Damaged();
        }
        item.name = {head + itemHeadSize, nameSize};
        item.value = {head + itemHeadSize + nameSize, valueSize};
        item.object.reset();
        if (length & objectBit) {
            item.object = ObjectRefFrom(item.value);
            item.value = {};
        }
        rest_.remove_prefix(size);
        return true;
    }
    /** Goes on to the next item of that name; false when there is none. */
    bool Find(std::string_view name, ItemView& item) {
        while (Next(item)) {
            if (SameItemName(item.name, name) && !IsHidden(item.type)) {
                return true;
            }
        }
        return false;
    }
    /** The bytes behind the item that Next() gave last. */
    [[nodiscard]] std::string_view Rest() const noexcept { return rest_; }

private:
    [[noreturn]] static void Damaged();
    static ObjectRef ObjectRefFrom(std::string_view bytes); // not of the item itself, which then stays in registers

    std::string_view rest_;
};

/** The first item of that name in encoded items. */
std::optional<ItemView> FindItem(std::string_view encoded, std::string_view name);

/** The objects that the items refer to. */
std::vector<ObjectRef> ObjectsOf(std::string_view encoded);
/** The items with each reference to an object replaced by what `replace` makes of it. */
std::string WithObjects(std::string_view encoded, const std::function<ObjectRef(const ObjectRef&)>& replace);

/** The entries of a TYPE_TEXT (one entry) or TYPE_TEXT_LIST value; nothing for other types or lying lengths. */
std::optional<std::vector<std::string_view>> TextEntries(WORD type, std::string_view value);
/** The TYPE_TEXT_LIST value of the entries, each of at most 0xFFFF bytes. */
std::string EncodeTextList(const std::vector<std::string_view>& entries);

} // namespace embedded
