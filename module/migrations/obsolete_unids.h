// References to documents whose UNID has vanished: dropped from lists of references, replaced in rule texts by the UNID
// of the document that stands in their place.
#pragma once

#include <set>
#include <string>

#include "foundation/notes_api.h"
#include "migrations/text_replacements.h"

namespace updkrx {

/** Notes that a UNID has vanished, and whose document took its place; the first note about a UNID counts. */
void RecordObsoleteUnid(const std::string& obsolete, const std::string& replacement);

/** Logs what RecordObsoleteUnid has noted. */
void LogObsoleteUnids();

/** Drop obsolete UNIDs from ReferDocs and UseDocs of all documents that detect or are used for it, and replace them in
 *  matchRule of all "template" documents. Return the status of the search or of compiling its formula, which is
 *  logged; what fails in a document is logged and leaves that document as it was. */
STATUS RemoveObsoleteUNID(DBHANDLE database);
STATUS ReplaceObsoleteUNID(DBHANDLE database);

/**
 * Do that to one text list of an open note. A list that holds no obsolete UNID, or cannot be read, which is logged, stays as it is; any other is written
 * anew in ascending order and without duplicates, or vanishes when nothing is left of it. False when it could be
 * written in part only: the note must not be saved then.
 */
[[nodiscard]] bool RemoveTextListfield(NOTEHANDLE note, const char* item);
[[nodiscard]] bool ReplaceTextListfield(NOTEHANDLE note, const char* item, const TextReplacements& replacements);

/** The parameter of ReplaceObsoleteUNIDCallback. */
struct ReplaceSearch {
    DBHANDLE database;
    const TextReplacements& replacements; // those of gMap
    std::set<NOTEID> visited;             // a document that is delivered again has had its replacements
};

/** Search steps; the parameter of the first is the database's handle. Always 0; failures are logged. */
STATUS LNCALLBACK RemoveObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) noexcept;
STATUS LNCALLBACK ReplaceObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) noexcept;

} // namespace updkrx
