// The replication settings of a database: its one replication formula note.
#pragma once

#include "notes_api.h"

namespace updkrx {

/**
 * Writes a replication formula note into an open database, titled with the server that the environment variable
 * MailServer names, for all documents and every class up to shared fields. Returns 0 when the note was saved; 1 when
 * MailServer is not set, memory could not be locked, or the class mask or the formula could not be written; else the
 * status of what failed. After a failure there is no new note; what failed is logged, but not that MailServer
 * is not set.
 */
[[nodiscard]] STATUS CreateReplicationSettings(DBHANDLE database) noexcept;

} // namespace updkrx
