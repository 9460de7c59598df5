// The vanished UNIDs to which references may be left at the end of a run: a file beside the databases has them for the
// next run, one pair of texts a line, the UNID that has vanished and the one that took its place.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Whether an earlier run, or this one, has left the file. */
[[nodiscard]] bool HasUnrepairedReferences();

/** Records as obsolete what the file has and what is doubtful, except a UNID under which the database has a document.
 *  False, which is logged, when not all could be read or looked up: the file must stay then. */
[[nodiscard]] bool RecordUnrepairedReferences(DBHANDLE database);

/** Adds all that is recorded as obsolete, and what is doubtful, to the file, for the next run. False, which is logged,
 *  when it cannot be written. */
[[nodiscard]] bool KeepUnrepairedReferences();

/** Removes the file, if there is one; logged when it stays, which does no harm. */
void ForgetUnrepairedReferences();

} // namespace updkrx
