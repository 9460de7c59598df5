#include "migrations/replaced_document.h"

#include <initializer_list>

#include "foundation/debug_log.h"
#include "migrations/log_messages.h"

namespace updkrx {

void SetIdentity(NOTEHANDLE note, OID identity, NOTEID noteId) noexcept {
    NSFNoteSetInfo(note, _NOTE_OID, &identity);
    NSFNoteSetInfo(note, _NOTE_ID, &noteId);
}

ReplacedDocument::~ReplacedDocument() {
    if (restore_) {
        Restore();
    }
}

bool ReplacedDocument::Keep(NOTEHANDLE note) noexcept {
    if (const STATUS status = NSFNoteCopy(note, kept_.Out()); status != NOERROR) {
        DebugLog(level::progress, "Keep original dlp template error. unid is %s, sError is %d, czErrorMessage is %s...",
                 unid_.c_str(), status, StatusText(status).Text());
        return false;
    }
    return true;
}

OID ReplacedDocument::Successor() const noexcept {
    OID identity = {};
    NSFNoteGetInfo(kept_.Get(), _NOTE_OID, &identity);
    // The number is the low word, flags are the high one. The deletion has counted it up by one, saving does so too.
    identity.Sequence = (identity.Sequence & 0xFFFF0000U) | ((identity.Sequence + 1) & 0xFFFFU);
    return identity;
}

void ReplacedDocument::Restore() noexcept {
    // In the place of the note that has the document's UNID, if there is one, in one step: until then it may be all that
    // is left. The same goes for a copy under another UNID.
    SetIdentity(kept_.Get(), Successor(), copyHasUnid ? copyId : recreatedId);
    STATUS status = NSFNoteUpdate(kept_.Get(), UPDATE_FORCE);
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "Restore original dlp template error. unid is %s, sError is %d, czErrorMessage is %s...",
                 unid_.c_str(), status, StatusText(status).Text());
        return;
    }
    DebugLog(level::progress, "Restore original dlp template success. unid is %s", unid_.c_str());
    if (copyHasUnid || copyId == 0) {
        return;
    }
    if (status = NSFNoteDelete(database_, copyId, UPDATE_FORCE | UPDATE_NOSTUB); status != NOERROR) {
        DebugLog(level::progress, "The doc copied from ntf stays: notesid=%d, sError is %d, czErrorMessage is %s...",
                 static_cast<int>(copyId), status, StatusText(status).Text());
    }
}

} // namespace updkrx
