// Looking at the items of a note. The platform answers to a failed read with an empty text or an empty list, as it does
// when there is nothing to read: here the two are told apart.
#pragma once

#include <cstddef>
#include <optional>

#include "foundation/notes_api.h"

namespace updkrx {

/** Whether an item is known to be there: false also when that cannot be found out. */
[[nodiscard]] bool HasItem(NOTEHANDLE note, const char* item) noexcept;
/** Whether an item is known to be absent: false also when that cannot be found out. */
[[nodiscard]] bool LacksItem(NOTEHANDLE note, const char* item) noexcept;

/** As GetItemText, but nothing, which is logged, when the item has a text of which none could be read, or when it
 *  cannot be found out whether it has. `text` is then empty. */
[[nodiscard]] std::optional<WORD> ReadItemText(NOTEHANDLE note, const char* item, char* text, WORD size) noexcept;

/** Whether an item of which `entries` entries with `bytes` bytes in all were read, one entry for a text, holds more than
 *  that. Also true when it cannot be found out. Logged when true. */
[[nodiscard]] bool HasUnreadText(NOTEHANDLE note, const char* item, size_t entries, size_t bytes) noexcept;

} // namespace updkrx
