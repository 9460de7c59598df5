// Texts of this program are UTF-8, also where the system's paths are of another kind.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace krxpatch {

/** The path that a text names; path.string() is the way back. */
[[nodiscard]] inline std::filesystem::path PathOf(std::string_view text) {
    return std::u8string(text.begin(), text.end());
}

} // namespace krxpatch
