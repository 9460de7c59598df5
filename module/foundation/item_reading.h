// Looking at the items of a note. The platform answers to a failed read with an empty text or an empty list, as it does
// when there is nothing to read: here the two are told apart.
#pragma once

#include <cstddef>
#include <optional>

#include "notes_api.h"

namespace updkrx {

/** Whether an item is known to be there: false also when that cannot be found out. */
[[nodiscard]] bool HasItem(NOTEHANDLE note, const char* item) noexcept;
/** Whether an item is known to be absent: false also when that cannot be found out. */
[[nodiscard]] bool LacksItem(NOTEHANDLE note, const char* item) noexcept;

/** The length of an item that is a single text; nothing when it is absent, of another type, or cannot be looked at. */
[[nodiscard]] std::optional<size_t> TextLengthOf(NOTEHANDLE note, const char* item) noexcept;

/** Deletes all items of a name. Returns the status of the deletion that failed, and ERR_ITEM_NOT_FOUND when there was
 *  nothing to delete. */
[[nodiscard]] STATUS DeleteItems(NOTEHANDLE note, const char* item) noexcept;

/** DeleteItems, for which an item that is absent already counts as deleted. */
[[nodiscard]] STATUS ClearItems(NOTEHANDLE note, const char* item) noexcept;

/** As GetItemText, but nothing, which is logged, when the item has a text of which none could be read, or when it
 *  cannot be found out whether it has. `text` is then empty. */
[[nodiscard]] std::optional<WORD> ReadItemText(NOTEHANDLE note, const char* item, char* text, WORD size) noexcept;

/** Whether an item of which `entries` entries with `bytes` bytes in all were read, one entry for a text, holds more
 *  than that. Also true when it cannot be found out. Logged when true. */
[[nodiscard]] bool HasUnreadText(NOTEHANDLE note, const char* item, size_t entries, size_t bytes) noexcept;

} // namespace updkrx
