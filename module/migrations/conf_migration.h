// What happens to the configuration database after its template was replaced: the order of its migrations.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Puts back the documents that an earlier run had taken out and could not replace, and replaces them; repairs the
 *  references that it could not. */
void FinishConfDatabaseOfDeadRun() noexcept;

/** Brings the documents of the configuration database up to date and has the server refresh its design. Always 0.
 *  Logs failures, except that of opening the database; the design is refreshed even then. */
STATUS MigrateConfDatabase();

} // namespace updkrx
