// A folder of a test's own that goes away with it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace updkrx::test {

class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

/** Makes the file with exactly these bytes, and the folders above it; returns its path. */
std::string WriteFile(const std::filesystem::path& file, std::string_view content);
std::string ReadFile(const std::filesystem::path& file);
/** The content of a text file, its lines ending in a line feed whatever the system ends them in. */
std::string ReadText(const std::filesystem::path& file);

} // namespace updkrx::test
