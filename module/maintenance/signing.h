// Signing the design of databases, with the ID under which the process runs, and hiding it.
//
// Every note but documents is signed. A note that cannot be signed is logged and does not make its database fail; one
// that cannot be opened ends the signing of its database.
#pragma once

#include <cstdint>
#include <string>

#include "foundation/patch_run_context.h"

namespace updkrx {

/**
 * Signs a database of the product's folder, unless the context says to skip that, and hides its design. Returns 0, or
 * 65535 when the database could not be opened or signed; its design is then as it was. Failures are logged.
 */
int32_t SignAndHideDatabase(const std::string& fileName, const PatchRunContext& context);

/** Signs every product database and gives it new replication settings. `folder` is the name of the product's folder,
 *  in the Notes character set. Failures are logged, and the next step or database follows. */
void SignDatabase(const char* folder);

} // namespace updkrx
