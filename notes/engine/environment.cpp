#include "engine/environment.h"

#include <algorithm>
#include <fstream>

#include "engine/caller_system.h"
#include "engine/status_error.h"

namespace embedded {
namespace {

std::string lowerName(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return lower;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

Environment Environment::load(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::error_code ignored;
    if (!in || !std::filesystem::is_regular_file(file, ignored))
        throw StatusError(ERR_NOEXIST, pathForCaller(file) + ": cannot be read");
    Environment environment;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        std::string_view text = line;
        if (number == 1 && text.starts_with("\xEF\xBB\xBF"))
            text.remove_prefix(3);
        text = trimmed(text);
        if (text.empty() || text.front() == '[' || text.front() == ';')
            continue;
        const size_t equals = text.find('=');
        if (equals == std::string_view::npos || equals == 0)
            throw StatusError(EMB_ERR_ARGUMENT,
                              pathForCaller(file) + ":" + std::to_string(number) + ": a line is not NAME=VALUE");
        environment.values_.try_emplace(lowerName(trimmed(text.substr(0, equals))), trimmed(text.substr(equals + 1)));
    }
    return environment;
}

std::optional<std::string> Environment::find(std::string_view name) const {
    const auto found = values_.find(lowerName(name));
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void Environment::set(std::string_view name, std::optional<std::string> value) {
    if (value)
        values_.insert_or_assign(lowerName(name), std::move(*value));
    else
        values_.erase(lowerName(name));
}

} // namespace embedded
