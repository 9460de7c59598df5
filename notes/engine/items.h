// What the platform does with the items of a note in memory. Names and texts are LMBCS.
#pragma once

#include "engine/note_data.h"

namespace embedded {

using Items = std::vector<Item>;

/** The first item of that name, or NULL. */
const Item* findItem(const Items& items, std::string_view name) noexcept;
Item* findItem(Items& items, std::string_view name) noexcept;

/** A text item as one text, lists joined with "; "; empty for absent items and other types. */
std::string itemText(const Items& items, std::string_view name);
/** The entries of a text item; none for absent items and other types. */
std::vector<std::string_view> itemEntries(const Items& items, std::string_view name);

// The following throw EMB_ERR_ARGUMENT, EMB_ERR_TOO_LONG or EMB_ERR_ITEM_TYPE, and then change nothing.

/** Adds an item, also beside one of the same name. */
void appendItem(Items& items, Item item);
/** Puts the item in the place of all of its name. */
void setItem(Items& items, Item item);
/** Adds an entry at the end of a text list; an absent item is created, a text becomes a list. */
void appendTextListEntry(Items& items, std::string_view name, std::string_view entry, bool allowDuplicates);

/** Deletes all items of that name; false when there is none. */
bool deleteItems(Items& items, std::string_view name);

/** Texts, numbers and times become lists of one. */
void expandItems(Items& items);
/** Lists of one become single values. */
void contractItems(Items& items);

/** The bytes that the summary items take; the platform's limit is maxSummaryTotal. */
size_t summarySize(const Items& items) noexcept;
constexpr size_t maxSummaryTotal = 0x7FFF;

} // namespace embedded
