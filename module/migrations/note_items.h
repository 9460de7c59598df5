// Items of a document as the migrations look at them.
#pragma once

#include <optional>
#include <string>

#include "notes_api.h"

namespace updkrx {

/** True for a document that the product ships, until the customer makes it the customer's own. Nothing when that cannot
 *  be read, which is logged. */
[[nodiscard]] std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept;

[[nodiscard]] NOTEID NoteIdOf(NOTEHANDLE note) noexcept;

/** The text of a note's UNID. */
[[nodiscard]] std::string UnidTextOf(NOTEHANDLE note);

[[nodiscard]] UNID UnidOf(NOTEHANDLE note) noexcept;
[[nodiscard]] bool SameUnid(const UNID& a, const UNID& b) noexcept;

/** The note that has this UNID, 0 when there is none; nothing, which is logged, when that cannot be found out. */
[[nodiscard]] std::optional<NOTEID> FindNote(DBHANDLE database, UNID unid) noexcept;

} // namespace updkrx
