// Commands to the console of the server that the process runs on.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Sends a command, given in the Notes character set, and returns the status of that. How the command ends is not
 *  waited for, and the server's reply is not read. */
STATUS RunConsoleCommand(const char* command);

/** Sends a command to load a task, once more when that fails: logs it and pauses. Whether it could be sent is passed
 *  over. */
void RunConsoleCommandAndWait(const char* command);

} // namespace updkrx
