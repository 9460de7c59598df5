// Saving notes that a step has changed.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Saves an open note, once more when that fails. One that cannot be saved keeps what it had, which is logged with the
 *  name of the step. */
STATUS SaveOrLog(const char* step, NOTEHANDLE note) noexcept;

} // namespace updkrx
