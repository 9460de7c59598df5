// A document of a database while another takes its place. It is gone from the database by then and only memory has it,
// so this sees to it that one of the two is there in the end.
#pragma once

#include <string>

#include "foundation/notes_api.h"
#include "foundation/notes_scoped.h"

namespace updkrx {

/** Makes an open note one that saving creates, with this identity. */
void MakeNewNote(NOTEHANDLE note, OID identity) noexcept;

class ReplacedDocument {
public:
    /** A document of this UNID, and the one of the template that is to take its place. The handles stay open. */
    ReplacedDocument(DBHANDLE database, const std::string& unid, DBHANDLE hTemplate, NOTEID templateNoteId) noexcept
        : database_(database), unid_(unid), hTemplate_(hTemplate), templateNoteId_(templateNoteId) {}
    ReplacedDocument(const ReplacedDocument&) = delete;
    ReplacedDocument& operator=(const ReplacedDocument&) = delete;
    ~ReplacedDocument();

    /** Keeps the open document in memory, with all its items; a failure is logged. */
    [[nodiscard]] bool Keep(NOTEHANDLE note) noexcept;

    /** The document is deleted now. From here on the end of this object, unless Replaced was called, writes the document
     *  back in the place of what is named below, and logs whether that worked. Where it cannot be written, a copy out of
     *  the template is left instead, if one can be made. Close the notes that are named before. */
    void RestoreUnlessReplaced() noexcept { restore_ = true; }
    void Replaced() noexcept { restore_ = false; }

    /** The identity of the note that takes the document's place, to be saved for the first time: the document's UNID,
     *  and a sequence number that saving makes higher than that of the document's deletion, so that replicas prefer the
     *  new note. */
    [[nodiscard]] OID Successor() const noexcept;

    bool copyHasUnid = false; // a copy out of the template has the document's UNID
    NOTEID copyId = 0;        // the copy, once there is one
    NOTEID recreatedId = 0;   // the same under the document's UNID, when the copy has another

private:
    /** Nothing to remove is NOERROR; `noteId` is 0 once the note is gone. */
    STATUS Remove(NOTEID& noteId) noexcept;
    [[nodiscard]] STATUS WriteBack() noexcept;
    void CopyAgain() noexcept;
    void Restore() noexcept;

    DBHANDLE database_;
    const std::string& unid_;
    DBHANDLE hTemplate_;
    NOTEID templateNoteId_;
    ScopedNote kept_;
    bool restore_ = false;
};

} // namespace updkrx
