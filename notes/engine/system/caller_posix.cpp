#include "engine/system/caller_system.h"

#include "engine/values/charset.h"

namespace embedded {

std::filesystem::path pathFromCaller(std::string_view path) {
    return std::u8string(path.begin(), path.end());
}

std::string pathForCaller(const std::filesystem::path& path) {
    return path.string();
}

std::string utf8FromNative(std::string_view text) {
    return std::string(text); // UTF-8 is the native set
}

std::string nativeFromUtf8(std::string_view text, size_t size) {
    return std::string(cutUtf8(text, size));
}

} // namespace embedded
