#include "migrations/deletion_stub.h"

#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/second_try.h"
#include "migrations/log_messages.h"
#include "migrations/note_identity.h"

namespace updkrx {
namespace {

/** Search step. Without a formula, what is delivered and does not match is a stub. Some stubs carry a mark in their
 *  note IDs. */
STATUS LNCALLBACK FindStub(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    constexpr STATUS endsTheSearch = 1;
    Stub& stub = *static_cast<Stub*>(parameter);
    const SEARCH_MATCH found = CopyMatch(match);
    const UNID unid = {found.OriginatorID.File, found.OriginatorID.Note};
    const bool deleted = !IsMatch(found) || (found.ID.NoteID & RRV_DELETED) != 0;
    if (!deleted || !SameUnid(unid, stub.unid)) {
        return NOERROR;
    }
    stub.noteId = found.ID.NoteID & ~RRV_DELETED;
    return endsTheSearch;
}

/** A note that can still be opened is no stub, whatever else was answered. */
bool IsLive(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    return OpenNote(note, database, noteId) == NOERROR;
}

bool Remove(DBHANDLE database, NOTEID noteId) noexcept {
    return noteId != 0 && !IsLive(database, noteId) && DeleteWithoutTrace(database, noteId) == NOERROR;
}

} // namespace

bool TellsOfTakenUnid(STATUS status) noexcept {
    const STATUS code = status & ERR_MASK;
    return code == ERR_DUPLICATE_UNID || code == ERR_NOTE_DELETED;
}

STATUS DeleteWithoutTrace(DBHANDLE database, NOTEID noteId) noexcept {
    return NSFNoteDelete(database, noteId, UPDATE_FORCE | UPDATE_NOSTUB);
}

bool RemoveStub(DBHANDLE database, const Stub& stub) noexcept {
    if (Remove(database, stub.noteId)) {
        return true;
    }
    Stub found = {stub.unid};
    (void)NSFSearch(database, NULLHANDLE, nullptr, SEARCH_ALL_VERSIONS, NOTE_CLASS_DOCUMENT, nullptr, FindStub, &found,
                    nullptr); // its result is the stub
    return Remove(database, found.noteId);
}

void MakeNewNote(NOTEHANDLE note, OID identity) noexcept {
    NOTEID none = 0;
    NSFNoteSetInfo(note, _NOTE_OID, &identity);
    NSFNoteSetInfo(note, _NOTE_ID, &none);
}

STATUS SaveAs(DBHANDLE database, NOTEHANDLE note, const OID& identity, const Stub& stub) noexcept {
    MakeNewNote(note, identity);
    const STATUS status = StoreOverStub(database, stub, [&] { return NSFNoteUpdate(note, UPDATE_FORCE); });
    if (status != NOERROR || SameUnid(UnidOf(note), stub.unid)) {
        return status;
    }
    // Stored it is, but not as it was to be.
    const NOTEID noteId = NoteIdOf(note);
    const STATUS removed = WithSecondTry([&] { return DeleteWithoutTrace(database, noteId); });
    if (removed != NOERROR) {
        LogCopyThatStays(noteId, removed);
    }
    return ERR_CANT_CHANGE_UNID;
}

} // namespace updkrx
