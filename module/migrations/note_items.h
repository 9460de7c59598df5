// Items of a document as the migrations look at them.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "foundation/notes_api.h"

namespace updkrx {

/** Texts in ascending order of their bytes, each once. */
using TextSet = std::set<std::string>;

/** True for a document that the product ships, until the customer makes it the customer's own. Nothing when that cannot
 *  be read, which is logged. */
[[nodiscard]] std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept;

[[nodiscard]] NOTEID NoteIdOf(NOTEHANDLE note) noexcept;

/** The text of a note's UNID. */
[[nodiscard]] std::string UnidTextOf(NOTEHANDLE note);

/** Adds every entry of a text list, as it is stored, to `entries`: up to its first zero byte, and cut to 8191 bytes. An
 *  absent item adds nothing. False when not all entries could be read, which is logged. */
[[nodiscard]] bool ReadTextListfield(NOTEHANDLE note, const char* item, TextSet& entries);

/** Adds an entry behind the others, unless it is there already; an absent item is created. */
[[nodiscard]] STATUS AppendEntry(NOTEHANDLE note, const char* item, const std::string& entry) noexcept;

} // namespace updkrx
