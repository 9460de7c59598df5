// A document of the database while the template's version takes its place.
//
//     in place ---TakeOut---> taken out ---MakeFromTemplate---> copied ---GiveOldUnid---> replaced
//                                 |                                |
//                                 +------------- failure ----------+-----> in place again
//
// Between "taken out" and "replaced" the database lacks the document: whatever ends the work there brings it back, out
// of memory or, in the next run, from where it is kept on the disk (kept_documents.h). Once the template's version
// stands complete under the document's UNID, nothing undoes that any more.
//
// No UNID is taken for granted. Servers differ in which one a copy gets: the template document's, a derived or a wholly
// new one. A copy that has the document's own UNID is the replacement; any other is saved once more, under that UNID,
// and then removed.
#pragma once

#include <string>

#include "foundation/notes_scoped.h"
#include "migrations/obsolete_unids.h"
#include "migrations/references.h"
#include "notes_api.h"

namespace updkrx {

class ReplacedDocument {
public:
    /** A document of this UNID, and the template's document that is to take its place. The handles stay open. */
    ReplacedDocument(DBHANDLE database, std::string unid, DBHANDLE hTemplate, NOTEHANDLE templateNote);
    ReplacedDocument(const ReplacedDocument&) = delete;
    ReplacedDocument& operator=(const ReplacedDocument&) = delete;
    /** Brings the document back if it is taken out and not replaced, and logs whether that worked. Where it cannot be
     *  written, it stays kept for the next run. */
    ~ReplacedDocument();

    // The three steps, to be taken in this order while each is true. They log what they do and what fails.

    /** Keeps the open document, in memory and on the disk, and deletes it. Its note is closed. */
    [[nodiscard]] bool TakeOut(ScopedNote& note);
    /** Copies the template's document into the database and adds the references that it lacks. */
    [[nodiscard]] bool MakeFromTemplate(const References& references);
    /** Sees to it that the copy stands under the old UNID, and records what UNIDs have vanished by that. */
    [[nodiscard]] bool GiveOldUnid() noexcept;

    /** After a step that was false: true when the document is in its place as it was, or is again. That it is not, when
     *  it was taken out, is logged. */
    [[nodiscard]] bool PutBack() noexcept;
    /** Whether another try can go better: not while another document has the UNID that the copy has to get. */
    [[nodiscard]] bool MayTryAgain() const noexcept { return !refused_; }

private:
    enum class Stage { inPlace, takenOut, replaced, kept };

    [[nodiscard]] bool CopyAndOpen() noexcept;
    [[nodiscard]] bool SaveUnderOldUnid() noexcept;
    void RaiseSequence() noexcept;

    [[nodiscard]] bool Restore() noexcept;
    [[nodiscard]] bool CopyHasOldUnid() noexcept;
    [[nodiscard]] STATUS WriteBack() noexcept;
    STATUS Remove(NOTEID& noteId) noexcept;

    DBHANDLE database_;
    std::string unidText_;
    UNID unid_;
    DBHANDLE hTemplate_;
    NOTEHANDLE templateNote_;
    Stage stage_ = Stage::inPlace;
    bool refused_ = false;
    NOTEID oldId_ = 0;    // of the document, and of its deletion stub later
    ScopedNote kept_;     // the document in memory
    NOTEID prepared_ = 0; // where documents are kept, a copy out of the template with a UNID of its own
    NOTEID copyId_ = 0;   // of the copy out of the template, while there is one
    ScopedNote copy_;
    OID successor_ = {};     // the identity of what takes the document's place
    VanishingUnids copied_;  // the copy's UNID
    VanishingUnids shipped_; // the template document's, when the copy has another
};

} // namespace updkrx
