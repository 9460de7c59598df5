#include "migrations/replaced_document.h"

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

STATUS ReplacedDocument::Remove(NOTEID& noteId) noexcept {
    const STATUS status = noteId == 0 ? NOERROR : NSFNoteDelete(database_, noteId, UPDATE_FORCE | UPDATE_NOSTUB);
    if (status == NOERROR) {
        noteId = 0;
    }
    return status;
}

STATUS ReplacedDocument::WriteBack() noexcept {
    // Only what has the document's UNID makes room for it. A copy under another UNID goes when the document is back: until
    // then it may be all that is left.
    if (const STATUS status = Remove(copyHasUnid ? copyId : recreatedId); status != NOERROR) {
        return status;
    }
    MakeNewNote(kept_.Get(), Successor());
    return NSFNoteUpdate(kept_.Get(), UPDATE_FORCE);
}

void ReplacedDocument::CopyAgain() noexcept {
    const STATUS status =
        NSFDbCopyNote(hTemplate_, nullptr, nullptr, templateNoteId_, database_, nullptr, nullptr, nullptr, nullptr);
    DebugLog(level::progress, "Copy ntf doc in place of original dlp template. unid is %s, sError is %d", unid_.c_str(),
             status);
}

void ReplacedDocument::Restore() noexcept {
    STATUS status = WriteBack();
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "Restore original dlp template error. unid is %s, sError is %d, czErrorMessage is %s...",
                 unid_.c_str(), status, StatusText(status).Text());
        if (copyId == 0 && recreatedId == 0) { // nothing is left
            CopyAgain();
        }
        return;
    }
    DebugLog(level::progress, "Restore original dlp template success. unid is %s", unid_.c_str());
    const auto left = static_cast<int>(copyId);
    if (status = Remove(copyId); status != NOERROR) {
        DebugLog(level::progress, "The doc copied from ntf stays: notesid=%d, sError is %d, czErrorMessage is %s...",
                 left, status, StatusText(status).Text());
    }
}

} // namespace updkrx
