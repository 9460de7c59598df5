// One document of the template on its way into the configuration database.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "notes_api.h"

namespace updkrx {

struct TemplateDocumentId {
    NOTEID noteId;
    UNID unid;
};

/** A form's documents in the database. */
struct DocumentMap {
    /** UNID texts by name, in the native character set. Of several documents with one name the first that was found
     *  counts. */
    std::map<std::string, std::string> unids;
    /** False when the name of some document could not be read. Then no document is added: the unread one might be its
     *  double. */
    bool complete = true;
    /** Documents of the template by name, whose copying has failed. It may have been done all the same. */
    std::map<std::string, TemplateDocumentId> notAdded;
};

/** What the search for the documents of a form works on. */
struct SearchDLPDocParam {
    DBHANDLE hTemplate; // 0 in the search over the database
    DBHANDLE hDatabase;
    DocumentMap* docMap;
    std::string identifiedField; // the item that holds the name
};

/** How the work on a document ended. The log tells an early end from the others. */
enum class Ending {
    finished,
    undone,  // for a failure: the database has what it had
    stopped, // early, likewise
    stuck,   // early: it is upgraded with a copy left, out and kept for the next run, or refused: no second try
};

/** A document's name in the native character set, empty when it has none; nothing, which is logged, when it cannot be
 *  read or translated. A line break in it is a zero byte. */
[[nodiscard]] std::optional<std::string> ReadName(NOTEHANDLE note, const char* field);

/** From now on references to a document of the template mean the database's document of its name, unless the database
 *  has one under the template document's UNID, `shipped`, as well. */
void LetReferencesMean(DBHANDLE database, const std::string& unid, const UNID& shipped);

/**
 * Upgrades the database by one document of the template: copies it when the map is complete and has no document of its
 * name, replaces that document when the product ships it, and leaves it alone when not. Failures are logged, and what
 * failed is tried once more where nothing is changed. Whatever fails, and also when an exception ends the work, the
 * document that the database had is written back; when that fails too, which is logged, it stays kept for the next run.
 */
Ending UpgradeDlpDocument(const SearchDLPDocParam& search, NOTEID templateNoteId);

} // namespace updkrx
