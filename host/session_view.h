// What the process's session shows of its server.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "change_report.h"
#include "database_diff.h"
#include "server_folder.h"

namespace krxpatch {

/** The server's databases, as they are compared without a session. */
[[nodiscard]] DatabaseFolder ViewOf(const ServerFolder& server);

/** The same in a session for reading, which begins and ends here. Throws Failure as ServerFolder does. */
[[nodiscard]] DatabaseFolder ViewServer(const std::filesystem::path& folder);

/** The name in the ID that signs. */
[[nodiscard]] std::string IdInUse();

/** The commands that were sent to the server's console in this session. */
[[nodiscard]] std::vector<ConsoleCommand> ConsoleCommands();

} // namespace krxpatch
