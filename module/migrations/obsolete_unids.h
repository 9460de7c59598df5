// References to documents whose UNID has vanished: dropped from lists of references, replaced in rule texts by the UNID
// of the document that stands in their place.
#pragma once

#include <map>
#include <set>
#include <string>

#include "migrations/text_replacements.h"
#include "notes_api.h"

namespace updkrx {

/** UNIDs that are about to vanish, and the UNID that takes their places. What is added here is recorded later, when it
 *  is certain, without taking any memory. */
class VanishingUnids {
public:
    explicit VanishingUnids(std::string replacement) : replacement_(std::move(replacement)) {}

    /** Nothing is added for the replacement itself. */
    void Add(const std::string& unid);
    [[nodiscard]] bool Empty() const noexcept { return unids_.empty(); }
    /** From here on references to them are obsolete; the first record about a UNID counts. */
    void Record() noexcept;
    /** Records them unless the database has a document under `unid`, which others mean then. When that cannot be found
     *  out, they are recorded as doubtful. */
    void RecordUnlessTaken(DBHANDLE database, const UNID& unid) noexcept;

private:
    std::string replacement_;
    std::set<std::string> unids_;
    std::map<std::string, std::string> replacements_;
};

/** A document stands under this UNID from now on: references to it are not obsolete, whatever was recorded. */
void KeepReferencesTo(const std::string& unid) noexcept;

/** Logs what has been recorded. */
void LogObsoleteUnids();

/** Drop obsolete UNIDs from ReferDocs and UseDocs of all documents that detect or are used for it, and replace them in
 *  matchRule of all "template" documents. Return the status of the search or of compiling its formula, which is
 *  logged; what fails in a document is logged and leaves that document as it was. `whole` tells whether every document
 *  is as it is to be. */
STATUS RemoveObsoleteUNID(DBHANDLE database, bool& whole);
STATUS ReplaceObsoleteUNID(DBHANDLE database, bool& whole);

/**
 * Do that to one text list of an open note. A list that holds no obsolete UNID stays as it is; any other is written
 * anew in ascending order and without duplicates, or vanishes when nothing is left of it. False when it could not be
 * read or not be written whole, which is logged: the note in memory must not be saved then.
 */
[[nodiscard]] bool RemoveTextListfield(NOTEHANDLE note, const char* item);
[[nodiscard]] bool ReplaceTextListfield(NOTEHANDLE note, const char* item, const TextReplacements& replacements);

} // namespace updkrx
