// Which note a note is: its ID in the database, and its UNID.
#pragma once

#include <optional>
#include <string>

#include "notes_api.h"

namespace updkrx {

[[nodiscard]] NOTEID NoteIdOf(NOTEHANDLE note) noexcept;

/** The text of a note's UNID. */
[[nodiscard]] std::string UnidTextOf(NOTEHANDLE note);

[[nodiscard]] UNID UnidOf(NOTEHANDLE note) noexcept;
[[nodiscard]] bool SameUnid(const UNID& a, const UNID& b) noexcept;

/** The note that has this UNID, 0 when there is none; nothing, which is logged, when that cannot be found out. */
[[nodiscard]] std::optional<NOTEID> FindNote(DBHANDLE database, UNID unid) noexcept;

} // namespace updkrx
