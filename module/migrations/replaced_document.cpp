#include "migrations/replaced_document.h"

#include <initializer_list>

#include "foundation/debug_log.h"
#include "migrations/log_messages.h"

namespace updkrx {

void MakeNewNote(NOTEHANDLE note, OID identity) noexcept {
    NOTEID none = 0;
    NSFNoteSetInfo(note, _NOTE_OID, &identity);
    NSFNoteSetInfo(note, _NOTE_ID, &none);
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
    STATUS failure = NOERROR; // the last one
    for (const NOTEID noteId : {copyId, recreatedId}) {
        if (noteId != 0) {
            if (const STATUS status = NSFNoteDelete(database_, noteId, UPDATE_FORCE | UPDATE_NOSTUB);
                status != NOERROR) {
                failure = status;
            }
        }
    }
    MakeNewNote(kept_.Get(), Successor());
    if (const STATUS status = NSFNoteUpdate(kept_.Get(), UPDATE_FORCE); status != NOERROR) {
        failure = status;
    }
    if (failure != NOERROR) {
        DebugLog(level::progress,
                 "Restore original dlp template error. unid is %s, sError is %d, czErrorMessage is %s...",
                 unid_.c_str(), failure, StatusText(failure).Text());
        return;
    }
    DebugLog(level::progress, "Restore original dlp template success. unid is %s", unid_.c_str());
}

} // namespace updkrx
