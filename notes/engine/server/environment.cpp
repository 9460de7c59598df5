#include "engine/server/environment.h"

#include <fstream>

#include "engine/system/caller_system.h"
#include "engine/values/ascii.h"
#include "engine/values/status_error.h"

namespace embedded {

Environment Environment::Load(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::error_code ignored;
    if (!in || !std::filesystem::is_regular_file(file, ignored)) {
        throw StatusError(ERR_NOEXIST, PathForCaller(file) + ": cannot be read");
    }
    Environment environment;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        std::string_view text = line;
        if (number == 1 && text.starts_with("\xEF\xBB\xBF")) {
            text.remove_prefix(3);
        }
        text = Trimmed(text);
        if (text.empty() || text.front() == '[' || text.front() == ';') {
            continue;
        }
        const size_t equals = text.find('=');
        if (equals == std::string_view::npos || equals == 0) {
            throw StatusError(EMB_ERR_ARGUMENT,
                              PathForCaller(file) + ":" + std::to_string(number) + ": a line is not NAME=VALUE");
        }
        environment.values_.try_emplace(LowerAscii(Trimmed(text.substr(0, equals))), Trimmed(text.substr(equals + 1)));
    }
    return environment;
}

std::optional<std::string> Environment::Find(std::string_view name) const {
    const auto found = values_.find(LowerAscii(name));
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void Environment::Set(std::string_view name, std::optional<std::string> value) {
    if (value) {
        values_.insert_or_assign(LowerAscii(name), std::move(*value));
    } else {
        values_.erase(LowerAscii(name));
    }
}

} // namespace embedded
