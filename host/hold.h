// One command at a time changes what is below a server folder: it holds the folder meanwhile.
//
// The hold is the file krxpatch.hold in the server folder, locked by the operating system. It goes away with the
// command; after a crash it may stay behind and holds nothing.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform.h"

namespace krxpatch {

/** A command to others: what it is, who runs it where, and since when, as one line. */
[[nodiscard]] std::string DescribeThis(const std::string& command);

/** Holds a server folder for as long as the result lives. Throws Failure, as failed, when another command holds it, and
 *  as not started when the folder cannot be written. `description` tells others who holds it. */
[[nodiscard]] platform::HeldFile HoldServer(const std::filesystem::path& server, const std::string& description);

/** The description of the command that holds a server folder; nothing when none does. Writes nothing. */
[[nodiscard]] std::optional<std::string> HolderOf(const std::filesystem::path& server);

/** The server folder that a folder is or lies in; nothing when there is none. */
[[nodiscard]] std::optional<std::filesystem::path> ServerOf(std::filesystem::path folder);

} // namespace krxpatch
