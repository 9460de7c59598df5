#include "config_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common/ascii_text.h"

namespace krxpatch {

std::string WithoutBlanks(std::string_view text) {
    constexpr const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string()
                                           : std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), updkrx::AsciiLower);
    return lower;
}

ConfigFile::ConfigFile(const std::filesystem::path& file) {
    if (std::error_code ignored; std::filesystem::is_regular_file(file, ignored)) { // what is none has no lines
        std::ifstream stream(file, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(stream), {});
    }
    std::istringstream lines(bytes_);
    std::string section;
    for (ConfigLine line; std::getline(lines, line.text); lines_.push_back(line)) {
        ++line.number;
        while (line.text.ends_with('\r')) {
            line.text.pop_back();
        }
        if (line.text.starts_with('[')) {
            section = LowerCase(line.text.substr(1, line.text.rfind(']') - 1));
        }
        line.section = section;
        const size_t equals = line.text.find('=');
        line.key = equals == std::string::npos ? "" : line.text.substr(0, equals);
        line.value = equals == std::string::npos ? "" : line.text.substr(equals + 1);
    }
}

std::optional<ConfigLine> ConfigFile::Find(std::string_view section, std::string_view key) const {
    const auto found = std::ranges::find_if(lines_, [&](const ConfigLine& line) {
        return (section.empty() || line.section == LowerCase(section)) &&
               LowerCase(WithoutBlanks(line.key)) == LowerCase(key);
    });
    if (found == lines_.end()) {
        return std::nullopt;
    }
    ConfigLine line = *found;
    line.key = WithoutBlanks(line.key);
    line.value = WithoutBlanks(line.value);
    return line;
}

} // namespace krxpatch
