// Where the product is installed, and which of its side-by-side builds is the newest.
//
// All paths are native text. Those made here separate with "\".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace updkrx {

/** The kind of GetComponentPath for the folder of the newest program build. */
inline constexpr int programComponent = 1;

/**
 * Puts the directory of a component of the installation, without a trailing separator and cut to `capacity` bytes,
 * into `buffer` and returns it. Null when the environment variable VarnholtInstallPath is not set, when `kind` is not
 * 1 to 7, or when the component has no version directory.
 */
[[nodiscard]] const char* GetComponentPath(int kind, char* buffer, size_t capacity);

/**
 * Finds, among the directories below `base` plus `subPath` whose names begin with "V", the one with the highest
 * version; of equals the one that the system lists first. Puts its path, cut to `capacity` bytes, into `buffer` and
 * returns it. Null when `base` is empty or longer than 1020 characters, or when no version has a major number above
 * 0; what the buffer then holds means nothing.
 */
[[nodiscard]] const char* FindLatestVersionDir(const char* base, const char* subPath, char* buffer, size_t capacity);

/** Major number first. */
using VersionNumbers = std::array<int32_t, 4>;

/** Reads the version from the last component of a path, such as V5.8.0.3050. Numbers that are missing count as 0,
 *  except that of three numbers the last one is the fourth: V5.8.3050 is version 5.8.0.3050. */
[[nodiscard]] VersionNumbers ParseVersionDirName(std::string_view path) noexcept;

} // namespace updkrx
