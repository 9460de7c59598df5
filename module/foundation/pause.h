// Pauses of the run.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Waits, also when the server wants the task to end: what was begun on the databases must come to its end. */
void Pause(DWORD milliseconds) noexcept;

} // namespace updkrx
