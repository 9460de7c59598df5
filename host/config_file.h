// A file of KEY=VALUE lines as it stands, to tell a person which line of it is wrong. What the product reads from such
// a file is told by its own readers.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krxpatch {

struct ConfigLine {
    size_t number = 0;   // counted from 1
    std::string section; // that it stands in, in lower case; empty before the first one
    std::string text;    // without its line end
    std::string key;     // empty in a line without "="; blanks belong to key and value
    std::string value;
};

class ConfigFile {
public:
    /** A file that cannot be read has no lines. */
    explicit ConfigFile(const std::filesystem::path& file);

    [[nodiscard]] const std::vector<ConfigLine>& Lines() const noexcept { return lines_; }
    /** All bytes. */
    [[nodiscard]] const std::string& Bytes() const noexcept { return bytes_; }
    /** The first line with the key in a section ("" is any); blanks around key and value are dropped, and letters match
     *  in either case. */
    [[nodiscard]] std::optional<ConfigLine> Find(std::string_view section, std::string_view key) const;

private:
    std::string bytes_;
    std::vector<ConfigLine> lines_;
};

[[nodiscard]] std::string WithoutBlanks(std::string_view text);
[[nodiscard]] std::string LowerCase(std::string_view text);

} // namespace krxpatch
