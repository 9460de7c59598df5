#include "migrations/note_identity.h"

#include <cstring>

#include "foundation/debug_log.h"
#include "foundation/notes_scoped.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

bool TellsOfAbsentNote(STATUS status) noexcept {
    const STATUS code = status & ERR_MASK;
    return code == ERR_NOTE_DELETED || code == ERR_INVALID_NOTE || code == ERR_NOT_FOUND;
}

} // namespace

NOTEID NoteIdOf(NOTEHANDLE note) noexcept {
    NOTEID noteId = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &noteId);
    return noteId;
}

OID OidOf(NOTEHANDLE note) noexcept {
    OID oid = {};
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    return oid;
}

UNID UnidOf(NOTEHANDLE note) noexcept {
    const OID oid = OidOf(note);
    return {oid.File, oid.Note};
}

std::string UnidTextOf(const UNID& unid) {
    char text[unidTextSize];
    FormatUnidText(unid, text);
    return text;
}

std::string UnidTextOf(NOTEHANDLE note) {
    return UnidTextOf(UnidOf(note));
}

bool SameUnid(const UNID& a, const UNID& b) noexcept {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

std::optional<NOTEID> FindNote(DBHANDLE database, UNID unid) noexcept {
    ScopedNote note;
    const auto open = [&] { return note.Open(NSFNoteOpenByUNID, database, &unid, WORD{0}); };
    STATUS status = open();
    if (status != NOERROR && !TellsOfAbsentNote(status)) {
        status = open(); // what passes must not count
    }
    if (status == NOERROR) {
        return NoteIdOf(note.Get());
    }
    if (TellsOfAbsentNote(status)) {
        return NOTEID{0};
    }
    char text[unidTextSize];
    FormatUnidText(unid, text);
    DebugLog(level::progress, "Error: It cannot be found out which document has a UNID. UNID is %s, sError is %d", text,
             status);
    return std::nullopt;
}

} // namespace updkrx
