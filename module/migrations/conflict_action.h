// Registered servers: two that save their document at the same time get it merged.
#pragma once

#include <cstdint>

#include "notes_api.h"

namespace updkrx {

/** Gives every "Register" document of the open configuration database the conflict action "3". Returns 1, 0 when the
 *  search failed, or the status of compiling its formula, which is logged. A document that cannot be opened is passed
 *  over. */
int32_t ChangeConflictAction(DBHANDLE database) noexcept;

} // namespace updkrx
