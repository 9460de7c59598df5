// What happens to the configuration database after its template was replaced: the order of its migrations.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Puts back the documents that an earlier run had taken out and could not replace, and replaces them. */
void FinishConfDatabaseOfDeadRun() noexcept;

/** Brings the documents of the configuration database up to date and has the server refresh its design. Always 0; what
 *  fails is logged, but for a database that cannot be opened: its design is refreshed all the same. */
STATUS MigrateConfDatabase();

} // namespace updkrx
