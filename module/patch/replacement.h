// Replacing the databases and templates that the patch brings, one at a time, while the server goes on running.
#pragma once

#include <optional>
#include <string>

#include "foundation/notes_scoped.h"
#include "foundation/patch_run_context.h"
#include "notes_api.h"

namespace updkrx {

/** What the entries of one run share. */
struct ReplacementRun {
    std::string databaseFolder;     // native path of the product's databases
    ScopedMemory accessControlList; // read last; nothing before the first
};

/** Puts back the old content of a DLP policy that an earlier run has left half written. */
void FinishPolicyOfDeadRun() noexcept;

/** The record for a run's first entry. The product's databases are in "krx" below the data directory; nothing, which is
 *  logged, when the server does not tell that directory or its path is too long. */
[[nodiscard]] std::optional<ReplacementRun> BeginReplacement();

/**
 * Replaces one file of the product's folder by the one in the context's program folder, named as the patch's
 * configuration has it:
 *   - the predefined DLP policy is only copied;
 *   - a database is taken offline, copied, brought online and signed; it gets the access control list that the
 *     encyclopedia database had when the last ".nsf" entry came;
 *   - a template is stamped with the build instead, and the server converts the database that is made from it;
 *   - a name that is too long for a path is passed over, which is logged.
 * Returns 0 when the run goes on, whatever else failed (that is logged, except for a database that could not be
 * copied); the status of taking the database offline when it stays in use or that fails, which ends the run.
 */
[[nodiscard]] STATUS ReplaceDatabaseEntry(const std::string& entry, const PatchRunContext& context,
                                          ReplacementRun& run);

} // namespace updkrx
