#include "migrations/replaced_document.h"

#include <utility>

#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/second_try.h"
#include "foundation/unid_text.h"
#include "migrations/deletion_stub.h"
#include "migrations/kept_documents.h"
#include "migrations/log_messages.h"
#include "migrations/note_identity.h"
#include "migrations/obsolete_unids.h"

namespace updkrx {
namespace {

constexpr DWORD versionMask = 0xFFFF; // of a sequence number: the number itself, the rest is flags

UNID UnidFrom(const std::string& text) noexcept {
    UNID unid = {};
    ParseUnidText(text, unid);
    return unid;
}

/** The identity of the note that takes a document's place, to be saved for the first time: the document's UNID, and a
 *  sequence number that saving makes higher than that of the document's deletion. */
OID SuccessorOf(NOTEHANDLE note) noexcept {
    OID identity = OidOf(note);
    // The deletion has counted the number up by one, saving does so too.
    identity.Sequence = (identity.Sequence & ~versionMask) | ((identity.Sequence + 1) & versionMask);
    return identity;
}

/** Deletes a document; true when it is gone. `what` and `success` are the log's words. */
bool Delete(DBHANDLE database, NOTEID noteId, const char* what, const char* success) noexcept {
    const int id = static_cast<int>(noteId);
    if (const STATUS status = NSFNoteDelete(database, noteId, UPDATE_FORCE); status != NOERROR) {
        DebugLog(level::progress, "Delete %s dlp template error. notesid=%d, sError is %d, czErrorMessage is %s...",
                 what, id, status, StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "Delete %s dlp template %s. notesid=%d", what, success, id);
    return true;
}

} // namespace

ReplacedDocument::ReplacedDocument(DBHANDLE database, std::string unid, DBHANDLE hTemplate, NOTEHANDLE templateNote)
    : database_(database), unidText_(std::move(unid)), unid_(UnidFrom(unidText_)), hTemplate_(hTemplate),
      templateNote_(templateNote), copied_(unidText_), shipped_(unidText_) {}

ReplacedDocument::~ReplacedDocument() {
    (void)PutBack(); // an exception has ended the work, or there is nothing to do
}

bool ReplacedDocument::TakeOut(ScopedNote& note) {
    oldId_ = NoteIdOf(note.Get());
    STATUS status =
        KeepOnDisk(database_, oldId_, unid_, {hTemplate_, NoteIdOf(templateNote_), UnidOf(templateNote_)}, prepared_);
    if (status == NOERROR) {
        status = kept_.Open(NSFNoteCopy, note.Get());
    }
    if (status != NOERROR) {
        DebugLog(level::progress, "Keep original dlp template error. unid is %s, sError is %d, czErrorMessage is %s...",
                 unidText_.c_str(), status, StatusText(status).Text());
        return false;
    }
    successor_ = SuccessorOf(note.Get());
    MakeNewNote(kept_.Get(), successor_); // no note of the database is open when it is deleted
    note.Close();
    const bool deleted = Delete(database_, oldId_, "original", "Success");
    if (deleted || FindNote(database_, unid_) == NOTEID{0}) { // what failed may have been done all the same
        stage_ = Stage::takenOut;
    }
    return deleted;
}

bool ReplacedDocument::CopyAndOpen() noexcept {
    const NOTEID templateId = NoteIdOf(templateNote_);
    const UNID templateUnid = UnidOf(templateNote_);
    const Stub inTheWay = {templateUnid, SameUnid(templateUnid, unid_) ? oldId_ : 0};
    NOTEID newId = 0;
    STATUS status = StoreOverStub(database_, inTheWay, [&] {
        return prepared_ != 0 ? CopyPrepared(prepared_, database_, newId)
                              : NSFDbCopyNote(hTemplate_, nullptr, nullptr, templateId, database_, nullptr, nullptr,
                                              &newId, nullptr);
    });
    const int loggedTemplateId = static_cast<int>(templateId);
    const int loggedId = static_cast<int>(newId);
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "NSFDbCopyNote error. old notesid=%d, new notesid=%d, sError is %d, czErrorMessage is %s...",
                 loggedTemplateId, loggedId, status, StatusText(status).Text());
        refused_ = TellsOfTakenUnid(status) && FindNote(database_, templateUnid).value_or(0) != 0;
        return false;
    }
    copyId_ = newId;
    DebugLog(level::progress, "NSFDbCopyNote success. old notesid=%d, new notesid=%d", loggedTemplateId, loggedId);
    status = OpenNote(copy_, database_, newId);
    if (status != NOERROR) {
        DebugLog(level::progress, "NSFNoteOpen error. notesid=%d, sError is %d, czErrorMessage is %s...", loggedId,
                 status, StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "NSFNoteOpen success. notesid=%d", loggedId);
    return true;
}

bool ReplacedDocument::MakeFromTemplate(const References& references) {
    if (!CopyAndOpen()) {
        return false;
    }
    const UNID copyUnid = UnidOf(copy_.Get());
    const std::string copyUnidText = UnidTextOf(copy_.Get());
    References own;
    (void)own.Read(copy_.Get()); // what is missed here is still not appended a second time
    // Nothing may fail for want of memory once the document is replaced.
    copied_.Add(copyUnidText);
    if (!SameUnid(UnidOf(templateNote_), copyUnid)) {
        shipped_.Add(UnidTextOf(templateNote_));
        if (!NoteCopyOfKept(unid_, copyUnid)) {
            copy_.Close();
            const STATUS status = WithSecondTry([&] { return Remove(copyId_); });
            DebugLog(level::progress, "Error: The doc copied from ntf cannot be noted. unid is %s, sError is %d",
                     copyUnidText.c_str(), status);
            return false;
        }
    }
    if (!references.AddTo(copy_.Get(), own) || !Succeeded("NSFNoteUpdate", NSFNoteUpdate(copy_.Get(), UPDATE_FORCE))) {
        return false;
    }
    if (SameUnid(copyUnid, unid_)) {
        stage_ = Stage::replaced;
    }
    DebugLog(level::progress, "The doc copied from ntf: notesid=%d, unid is %s", static_cast<int>(copyId_),
             copyUnidText.c_str());
    return true;
}

bool ReplacedDocument::GiveOldUnid() noexcept {
    bool removed = true;
    if (stage_ == Stage::replaced) {
        RaiseSequence();
    } else {
        DebugLog(level::progress, "The UNID is different, need action!");
        if (!SaveUnderOldUnid()) {
            return false;
        }
        copy_.Close();
        removed = Delete(database_, copyId_, "temp", "sucess");
        // Two documents of one name are worth a second try.
        if (const STATUS status = removed ? NOERROR : Remove(copyId_); status != NOERROR) {
            LogCopyThatStays(copyId_, status);
        } else {
            copied_.Record();
        }
    }
    if (!shipped_.Empty()) {
        shipped_.RecordUnlessTaken(database_, UnidOf(templateNote_));
    }
    return removed;
}

bool ReplacedDocument::SaveUnderOldUnid() noexcept {
    ScopedNote recreated;
    if (const STATUS status = recreated.Open(NSFNoteCopy, copy_.Get()); status != NOERROR) {
        return Succeeded("NSFNoteCopy", status);
    }
    const STATUS status = SaveAs(database_, recreated.Get(), successor_, {unid_, oldId_});
    if (status == NOERROR) {
        stage_ = Stage::replaced;
    }
    return Succeeded("NSFNoteUpdate", status);
}

/** Replicas prefer the version with the higher number: the deletion of the document must not win over the copy, which
 *  has come with the number that it had in the template. Saving is what counts it up. */
void ReplacedDocument::RaiseSequence() noexcept {
    const OID own = OidOf(copy_.Get());
    const DWORD wanted = (successor_.Sequence + 1) & versionMask;
    for (DWORD version = own.Sequence & versionMask; version < wanted; ++version) {
        const STATUS status = WithSecondTry([&] { return NSFNoteUpdate(copy_.Get(), UPDATE_FORCE); });
        if (status != NOERROR) { // the document is complete as it is
            DebugLog(level::progress,
                     "Error: Replicas may take the deletion of a document for newer than what has replaced it. "
                     "UNID is %s, sError is %d",
                     unidText_.c_str(), status);
            return;
        }
    }
}

STATUS ReplacedDocument::Remove(NOTEID& noteId) noexcept {
    const STATUS status = noteId == 0 ? NOERROR : DeleteWithoutTrace(database_, noteId);
    if (status == NOERROR) {
        noteId = 0;
    }
    return status;
}

bool ReplacedDocument::CopyHasOldUnid() noexcept {
    if (copyId_ == 0) {
        return false;
    }
    if (OpenNote(copy_, database_, copyId_) != NOERROR) {
        return FindNote(database_, unid_) == copyId_;
    }
    const bool same = SameUnid(UnidOf(copy_.Get()), unid_);
    copy_.Close();
    return same;
}

STATUS ReplacedDocument::WriteBack() noexcept {
    // A copy that has the document's UNID has to make room for it. One under another UNID goes when the document is
    // back: until then it may be all that is left.
    if (CopyHasOldUnid()) {
        if (const STATUS status = WithSecondTry([&] { return Remove(copyId_); }); status != NOERROR) {
            return status;
        }
    }
    const STATUS status = WithSecondTry([&] { return SaveAs(database_, kept_.Get(), successor_, {unid_, oldId_}); });
    // A server that saves no note may still copy one.
    return status == NOERROR
               ? status
               : WithoutExceptions("ReplacedDocument", status, [&] { return PutBackKeptDocument(database_, unid_); });
}

bool ReplacedDocument::PutBack() noexcept {
    if (stage_ == Stage::takenOut) {
        stage_ = Restore() ? Stage::inPlace : Stage::kept;
    }
    return stage_ == Stage::inPlace;
}

bool ReplacedDocument::Restore() noexcept {
    STATUS status = WriteBack();
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "Restore original dlp template error. unid is %s, sError is %d, czErrorMessage is %s...",
                 unidText_.c_str(), status, StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "Restore original dlp template success. unid is %s", unidText_.c_str());
    if (status = WithSecondTry([&] { return Remove(copyId_); }); status != NOERROR) {
        LogCopyThatStays(copyId_, status);
    }
    return true;
}

} // namespace updkrx
