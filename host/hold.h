// One command at a time changes what is below a data directory: it holds it meanwhile.
//
// The hold is the file krxpatch.hold in the data directory itself and not in a folder that leads there, so that every
// way to the databases meets the same file. The operating system locks it. It goes away with the command; after a crash
// it may stay behind and holds nothing.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "platform.h"

namespace krxpatch {

/** A command to others: what it is, who runs it where, and since when, as one line. */
[[nodiscard]] std::string DescribeThis(const std::string& command);

/** Who it is and since when, of such a line; what is no such line is all "who". */
[[nodiscard]] std::pair<std::string, std::string> WhoAndWhen(const std::string& description);

/** The file of a hold: of a command at work, or of one that died, which holds nothing. */
[[nodiscard]] std::filesystem::path HoldFile(const std::filesystem::path& dataDirectory);

/** Holds a data directory for as long as the result lives. Throws Failure, as held, when another command holds it, and
 *  as not started when it cannot be written. `description` tells others who holds it. */
[[nodiscard]] platform::HeldFile Hold(const std::filesystem::path& dataDirectory, const std::string& description);

/** Throws Failure, as held, when another command holds a data directory. Writes nothing. */
void RequireNotHeld(const std::filesystem::path& dataDirectory);

/** The description of the command that holds a data directory; nothing when none does. Writes nothing. */
[[nodiscard]] std::optional<std::string> HolderOf(const std::filesystem::path& dataDirectory);

/** The server folder that a folder is or lies in, or that server's data directory; nothing when there is none. */
[[nodiscard]] std::optional<std::filesystem::path> ServerFolderAround(std::filesystem::path folder);
[[nodiscard]] std::optional<std::filesystem::path> DataDirectoryAround(const std::filesystem::path& folder);

} // namespace krxpatch
