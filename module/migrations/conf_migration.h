// What happens to the configuration database after its template was replaced: the order of its migrations.
#pragma once

#include "foundation/notes_api.h"

namespace updkrx {

/** Brings the documents of the configuration database up to date and has the server refresh its design. Always 0; what
 *  fails is logged, but for a database that cannot be opened: its design is refreshed all the same. */
STATUS MigrateConfDatabase();

} // namespace updkrx
