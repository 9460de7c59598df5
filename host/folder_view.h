// The databases of a server folder, as they are seen without a session.
#pragma once

#include <filesystem>

#include "database_diff.h"

namespace krxpatch {

/** Begins and ends the process's session, for reading. Throws Failure as ServerFolder does. */
[[nodiscard]] DatabaseFolder ViewServer(const std::filesystem::path& folder);

/** The same inside of a session. */
class ServerFolder;
[[nodiscard]] DatabaseFolder ViewOf(const ServerFolder& server);

} // namespace krxpatch
