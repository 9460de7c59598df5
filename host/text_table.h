// Text for a terminal.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace krxpatch {

/** The texts with ", " between them. */
[[nodiscard]] std::string Join(const std::vector<std::string>& texts);

/** The text with a blank for a tab and "?" for any other control character, which could change what a terminal
 *  shows. */
[[nodiscard]] std::string Printable(std::string_view text);

/** A size, rounded up: "12 MB". */
[[nodiscard]] std::string Megabytes(uintmax_t bytes);

/** A text as an argument that can be pasted into a shell: in quotes when it has more than plain characters. */
[[nodiscard]] std::string Quoted(std::string_view text);

/** A command on a server as it can be pasted into a shell, in backquotes. */
[[nodiscard]] std::string CommandOn(const std::filesystem::path& server, const std::string& command,
                                    const std::string& options = "");

/** One line for each row, printable, with the columns aligned. */
[[nodiscard]] std::string FormatTable(const std::vector<std::vector<std::string>>& rows);

} // namespace krxpatch
