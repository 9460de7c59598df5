#include "migrations/note_items.h"

#include <cstring>

#include "common/ascii_text.h"
#include "foundation/debug_log.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/unid_text.h"

namespace updkrx {
namespace {

constexpr WORD flagSize = 256;

bool TellsOfAbsence(STATUS status) noexcept {
    const STATUS code = status & ERR_MASK;
    return code == ERR_NOTE_DELETED || code == ERR_INVALID_NOTE || code == ERR_NOT_FOUND;
}

} // namespace

std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept {
    char flag[flagSize];
    const auto length = ReadItemText(note, "pre-defined", flag, sizeof flag);
    if (!length) {
        return std::nullopt;
    }
    return EqualIgnoringAsciiCase({flag, *length}, "true");
}

NOTEID NoteIdOf(NOTEHANDLE note) noexcept {
    NOTEID noteId = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &noteId);
    return noteId;
}

std::string UnidTextOf(NOTEHANDLE note) {
    char text[unidTextSize];
    GetUnidText(note, text);
    return text;
}

UNID UnidOf(NOTEHANDLE note) noexcept {
    OID oid = {};
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    return {oid.File, oid.Note};
}

bool SameUnid(const UNID& a, const UNID& b) noexcept {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

std::optional<NOTEID> FindNote(DBHANDLE database, UNID unid) noexcept {
    ScopedNote note;
    const auto open = [&] { return note.Open(NSFNoteOpenByUNID, database, &unid, WORD{0}); };
    STATUS status = open();
    if (status != NOERROR && !TellsOfAbsence(status)) {
        status = open(); // what passes must not count
    }
    if (status == NOERROR) {
        return NoteIdOf(note.Get());
    }
    if (TellsOfAbsence(status)) {
        return NOTEID{0};
    }
    char text[unidTextSize];
    FormatUnidText(unid, text);
    DebugLog(level::progress, "Error: It cannot be found out which document has a UNID. UNID is %s, sError is %d", text,
             status);
    return std::nullopt;
}

} // namespace updkrx
