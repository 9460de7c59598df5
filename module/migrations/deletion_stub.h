// What deleted documents leave behind. A deletion stub keeps the document's UNID, for the replicas to learn of the
// deletion; some servers give that UNID to another document only when the stub is gone.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Whether a status says that a note cannot be stored because its UNID is taken, maybe by a stub only. */
[[nodiscard]] bool TellsOfTakenUnid(STATUS status) noexcept;

/** Deletes a note, or its stub, and leaves no stub. */
[[nodiscard]] STATUS DeleteWithoutTrace(DBHANDLE database, NOTEID noteId) noexcept;

/** A deletion stub, by the UNID that it has, and by its note ID where that is known. */
struct Stub {
    UNID unid;
    NOTEID noteId = 0; // 0: it has to be looked for, which takes a search through the database
};

/** Removes a deletion stub without a trace. False when there is none, or when that failed. */
[[nodiscard]] bool RemoveStub(DBHANDLE database, const Stub& stub) noexcept;

/** Carries out `store`, which stores a note under the stub's UNID and returns a status. When a deletion stub is in its
 *  way, the stub is removed and the step is tried once more. */
template<class Store>
[[nodiscard]] STATUS StoreOverStub(DBHANDLE database, const Stub& stub, Store store) noexcept {
    const STATUS status = store();
    return TellsOfTakenUnid(status) && RemoveStub(database, stub) ? store() : status;
}

/** Makes an open note one that saving creates, with this identity. */
void MakeNewNote(NOTEHANDLE note, OID identity) noexcept;

/** Saves an open note as a new one with this identity, whose UNID is the stub's, in the place of a deletion stub. The
 *  result is ERR_CANT_CHANGE_UNID, and the note is removed, when the server has given it another UNID. */
[[nodiscard]] STATUS SaveAs(DBHANDLE database, NOTEHANDLE note, const OID& identity, const Stub& stub) noexcept;

} // namespace updkrx
