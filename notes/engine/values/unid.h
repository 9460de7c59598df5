// Identifiers of databases and notes: their text, and those that the platform generates itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "notes_api.h"

namespace embedded {

inline bool operator==(const TIMEDATE& a, const TIMEDATE& b) noexcept {
    return a.Innards[0] == b.Innards[0] && a.Innards[1] == b.Innards[1];
}

inline bool operator==(const UNID& a, const UNID& b) noexcept {
    return a.File == b.File && a.Note == b.Note;
}

/** 32 upper-case hexadecimal digits. */
std::string UnidText(const UNID& unid);
std::optional<UNID> ParseUnid(std::string_view text);
/** 16 upper-case hexadecimal digits, high word first. */
std::string IdText(const TIMEDATE& id);
std::optional<TIMEDATE> ParseId(std::string_view text);

/**
 * The File half of a UNID that the platform generates itself: the serial number and a hash of it and the replica
 * ID. Replicas of one database that give out the same serial still differ in the other half, the moment.
 */
DBID GeneratedUnidFile(const TIMEDATE& replicaId, uint32_t serial) noexcept;
/** Whether the UNID was generated in a database of this replica ID. */
bool IsGeneratedUnid(const UNID& unid, const TIMEDATE& replicaId) noexcept;

inline UNID UnidOf(const OID& oid) noexcept {
    return UNID{oid.File, oid.Note};
}

} // namespace embedded
