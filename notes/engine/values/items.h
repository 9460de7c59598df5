// What the platform does with the items of a note in memory. Names and texts are LMBCS.
//
// They are kept in the form in which they are stored, since most notes are opened, changed in one item and saved.
#pragma once

#include "engine/values/item_codec.h"
#include "engine/values/unid.h"

namespace embedded {

class Items {
public:
    Items() = default;
    /** Throws EMB_ERR_DAMAGED for bytes that are no encoded items. */
    explicit Items(std::string encoded);

    [[nodiscard]] const std::string& Encoded() const noexcept { return encoded_; }
    [[nodiscard]] bool empty() const noexcept { return encoded_.empty(); }
    [[nodiscard]] ItemCursor Cursor() const noexcept { return ItemCursor(encoded_); }
    /** The first item of that name. What it points to is valid until a change. */
    [[nodiscard]] std::optional<ItemView> Find(std::string_view name) const { return FindItem(encoded_, name); }

    /** Makes room for further items of this many bytes. */
    void Reserve(size_t bytes) { encoded_.reserve(encoded_.size() + bytes); }

    // What is added must not point into these items. Names beyond the platform's limits throw EMB_ERR_ARGUMENT or
    // EMB_ERR_TOO_LONG, lists whose lengths lie EMB_ERR_ITEM_TYPE; nothing is changed then. Values may be of any length
    // here: what is too long to be stored is refused when the note is.

    /** Adds an item, also beside one of the same name. */
    void Append(const ItemView& item);
    /** Puts the item in the place of all of its name. */
    void Set(const ItemView& item);
    /** Changes the first item of the name where it stands. There must be one. */
    void Change(const ItemView& item);
    /** Deletes all items of that name, or only the first; false when there is none. */
    bool Erase(std::string_view name, bool onlyFirst = false);

    bool operator==(const Items&) const = default;

private:
    std::string encoded_;
};

/** Throws ERR_SEGMENT_TOO_BIG for a value that stands in an object. */
void RequireInline(const ItemView& item);

// Of a value that stands in an object these throw ERR_SEGMENT_TOO_BIG.

/** A text item as one text, lists joined with "; "; empty for absent items and other types. */
std::string ItemText(const Items& items, std::string_view name);
/** The entries of a text item, valid until a change; none for absent items and other types. */
std::vector<std::string_view> ItemEntries(const Items& items, std::string_view name);

/** Adds an entry at the end of a text list; an absent item is created, a text becomes a list.
 *  Throws as Append() does. */
void AppendTextListEntry(Items& items, std::string_view name, std::string_view entry, bool allowDuplicates);

/** Texts, numbers and times become lists of one. */
void ExpandItems(Items& items);
/** Lists of one become single values. */
void ContractItems(Items& items);

/** Whether a note can be stored: no value is beyond the platform's limit, nor the summary items together. */
[[nodiscard]] bool FitIntoNote(const Items& items);

} // namespace embedded
