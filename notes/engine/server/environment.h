// notes.ini: the platform's settings.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace embedded {

/** Names are equal without regard to the case of ASCII letters; values are UTF-8. */
class Environment {
public:
    /** Reads NAME=VALUE lines; the first of two equal names counts. Throws ERR_NOEXIST or EMB_ERR_ARGUMENT with
     *  the file's name and the cause. */
    static Environment Load(const std::filesystem::path& file);

    [[nodiscard]] std::optional<std::string> Find(std::string_view name) const;
    void Set(std::string_view name, std::optional<std::string> value);

private:
    std::map<std::string, std::string, std::less<>> values_; // by lower-case name
};

} // namespace embedded
