// The encyclopedia database, which is made anew from its template when it is in the old format.
//
// The format shows in the versions of the pattern files: in the old one they have no ".".
#pragma once

#include "foundation/notes_api.h"

namespace updkrx {

/**
 * Makes the encyclopedia database anew if it is in the old format: as a copy of its template, with a fixed replica ID
 * and the access control list that it had. Returns 0 when that was done or not called for, which includes a database
 * that cannot be opened; else the status of the formula, of the deletion or of the creation, whichever failed, which
 * is logged. After a failed deletion the old database is still there, after a failed creation there is none. An
 * access control list that cannot be read or stored and a replica ID that cannot be set are passed over.
 */
DWORD UpdateKrency() noexcept;

/** The parameter of CheckPatternVersionCallback. */
struct PatternVersionSearch {
    DBHANDLE database;
    DWORD oldFormat; // starts as 0, becomes 1
};

/** Search step: sets oldFormat when a pattern file's version is of the old form. Always 0; a document that has no
 *  version, or of which it cannot be read, tells nothing. */
STATUS LNCALLBACK CheckPatternVersionCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) noexcept;

} // namespace updkrx
