// Files that are read or written as a whole.
#pragma once

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
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

inline void WriteText(const std::filesystem::path& file, const std::string& text) {
    WriteFile(
        file, [&](std::ostream& out) { out << text; }, file);
}

} // namespace krxpatch
