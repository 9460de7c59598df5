// Files that are read or written as a whole.
#pragma once

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace krxpatch {

/** Makes a file of what `print` writes to a stream, or overwrites it. Throws filesystem_error with the system's own
 *  cause, under the name that the file is going to have. */
template<class Print>
void WriteFile(const std::filesystem::path& file, const Print& print, const std::filesystem::path& finalName) {
    errno = EIO; // unless the system tells another cause
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    print(stream);
    stream.close();
    if (!stream) {
        throw std::filesystem::filesystem_error("write", finalName, {errno, std::generic_category()});
    }
}

/** Hands the content of a file to `take`, part by part. Throws filesystem_error with the system's own cause, also when
 *  reading ends before the file does. */
template<class Take>
void ReadFile(const std::filesystem::path& file, const Take& take) {
    constexpr std::streamsize size = std::streamsize{1} << 20;
    std::string part(size, '\0');
    errno = EIO; // unless the system tells another cause
    std::ifstream stream(file, std::ios::binary);
    while (stream) {
        stream.read(part.data(), size);
        take(std::string_view(part.data(), static_cast<size_t>(stream.gcount())));
    }
    if (!stream.eof()) {
        throw std::filesystem::filesystem_error("read", file, {errno, std::generic_category()});
    }
}

/** The whole of a file; throws as ReadFile does. */
[[nodiscard]] inline std::string ReadText(const std::filesystem::path& file) {
    std::string text;
    ReadFile(file, [&](std::string_view part) { text += part; });
    return text;
}

inline void WriteText(const std::filesystem::path& file, const std::string& text) {
    WriteFile(
        file, [&](std::ostream& out) { out << text; }, file);
}

} // namespace krxpatch
