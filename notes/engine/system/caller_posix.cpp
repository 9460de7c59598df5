#include "engine/system/caller_system.h"

#include "engine/values/charset.h"

namespace embedded {

std::filesystem::path PathFromCaller(std::string_view path) {
    return std::u8string(path.begin(), path.end());
}

std::string PathForCaller(const std::filesystem::path& path) {
    return path.string();
}

std::string Utf8FromNative(std::string_view text) {
    return std::string(text); // UTF-8 is the native set
}

std::string NativeFromUtf8(std::string_view text, size_t size) {
    return std::string(CutUtf8(text, size));
}

} // namespace embedded
