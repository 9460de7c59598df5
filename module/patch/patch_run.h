// The run book: what the upgrade does, in which order, and what ends it early.
#pragma once

#include "foundation/patch_run_context.h"
#include "notes_api.h"

namespace updkrx {

/** One whole run. It reports to the debug log only. */
void RunPatch();

/** Brings the databases up to the patch's build. Returns 0 when that went through or there was nothing to do, 1 when
 *  the newest program folder or the server's data directory is unknown, or the status of the database that could not be
 *  taken offline. */
STATUS ProcessDatabases(PatchRunContext& context);

} // namespace updkrx
