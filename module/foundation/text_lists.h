// Lists of texts in the items of a note. Where a list is expected, a single text is one of one entry: servers differ in
// what their own list operations make of such an item.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "notes_api.h"

namespace updkrx {

/** Texts in ascending order of their bytes, each once. */
using TextSet = std::set<std::string>;

/** Adds every entry of a text list, as it is stored, to `entries`: up to its first zero byte, and cut to 8191 bytes. An
 *  absent item adds nothing. False when not all entries could be read, which is logged. */
[[nodiscard]] bool ReadTextListfield(NOTEHANDLE note, const char* item, TextSet& entries);

/** Adds an entry behind the others, unless it is there already; an absent item is created. Returns the status of the
 *  operation that failed, ERR_UNKNOWN when the item's own text cannot be read. The item may then be a list of what was
 *  in it, and lacks the entry. */
[[nodiscard]] STATUS AppendEntry(NOTEHANDLE note, const char* item, std::string_view entry) noexcept;

} // namespace updkrx
