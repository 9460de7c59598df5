// The settings in a notes.ini that say where a server stands.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace krxpatch {

/** The value of a setting in the text of a notes.ini, empty without one. Of equal names the first counts, and the case
 *  of letters does not. */
[[nodiscard]] std::string SettingIn(std::string_view ini, std::string_view name);

/** The text with another path in the place of each that names a folder or leads into it. */
[[nodiscard]] std::string WithPath(std::string text, const std::filesystem::path& folder,
                                   const std::filesystem::path& other);

/** The text with the folders of a server that stands in `server`: its data directory and its installed program. Every
 *  other byte stays. */
[[nodiscard]] std::string WithFolders(std::string ini, const std::filesystem::path& server);

} // namespace krxpatch
