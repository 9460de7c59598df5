// What depends on the system that the calling process belongs to: how it writes paths and which character set is its
// native one. The files themselves are the host system's either way. caller_posix.cpp and caller_winelib.cpp implement
// it, and the build picks one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace embedded {

/** The host's path for one that a caller gave, in UTF-8. */
std::filesystem::path PathFromCaller(std::string_view path);
/** A path of the host as callers write it, in UTF-8. */
std::string PathForCaller(const std::filesystem::path& path);

/** Text in the native character set; what is not of that set becomes U+FFFD. */
std::string Utf8FromNative(std::string_view text);
/** As much of a text as fits into `size` bytes of the native character set without cutting a character. What the set
 *  lacks becomes its replacement character. */
std::string NativeFromUtf8(std::string_view text, size_t size);

} // namespace embedded
