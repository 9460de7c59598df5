// Which note a note is: its ID in the database, and its UNID.
#pragma once

#include <optional>
#include <string>

#include "notes_api.h"

namespace updkrx {

[[nodiscard]] NOTEID NoteIdOf(NOTEHANDLE note) noexcept;
/** UNID, sequence number and its time. */
[[nodiscard]] OID OidOf(NOTEHANDLE note) noexcept;
[[nodiscard]] UNID UnidOf(NOTEHANDLE note) noexcept;

/** The text of a UNID, or of a note's. */
[[nodiscard]] std::string UnidTextOf(const UNID& unid);
[[nodiscard]] std::string UnidTextOf(NOTEHANDLE note);

[[nodiscard]] bool SameUnid(const UNID& a, const UNID& b) noexcept;

/** The note that has this UNID, 0 when there is none; nothing, which is logged, when that cannot be found out. */
[[nodiscard]] std::optional<NOTEID> FindNote(DBHANDLE database, UNID unid) noexcept;

} // namespace updkrx
