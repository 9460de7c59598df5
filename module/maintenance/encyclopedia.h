// The encyclopedia database, which is made anew from its template when it is in the old format.
//
// The format shows in the versions of the pattern files: in the old one they have no ".".
//
// A database that is to be made anew is deleted first. Until the new one is finished, the old one is kept as a file
// beside it, and put back when there is to be no new one.
#pragma once

#include "notes_api.h"

namespace updkrx {

/**
 * Makes the encyclopedia database anew if it is in the old format: as a copy of its template, with a fixed replica ID
 * and the access control list that it had. Returns 0 when that was done or not called for, which includes a database
 * that cannot be opened; else the status of the formula, of the deletion or of the creation, whichever failed, which is
 * logged; ERR_UNKNOWN when the old database cannot be kept. After a failure the old database is there as it was. When
 * the access control list cannot be read or stored, or the replica ID not be set, which is logged, the new database
 * stands in its place and the file of the old one stays.
 */
DWORD UpdateKrency() noexcept;

/** Where a run has died while it made the database anew: puts the old one back, brings it online and begins again. To
 *  be called before anything looks at the database, whatever else there is to do. What fails is logged. */
void FinishKrencyOfDeadRun() noexcept;

/** Where the patch has brought a new database: an old one that a dead run has kept, and that could not be put back, is
 *  not to take its place. Its file stays, under a name by which nothing looks for it. */
void KeepNoKrencyOfDeadRun() noexcept;

} // namespace updkrx
