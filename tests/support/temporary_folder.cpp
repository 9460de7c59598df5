#include "support/temporary_folder.h"

#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

namespace updkrx::test {

TemporaryFolder::TemporaryFolder() {
    std::random_device random;
    do {
        path_ = std::filesystem::temp_directory_path() / ("updkrx-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_)); // the name is taken
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored; // a folder that stays behind fails no test
    std::filesystem::remove_all(path_, ignored);
}

std::string WriteFile(const std::filesystem::path& file, std::string_view content) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << content << std::flush;
    return file.string();
}

namespace {

std::string Read(const std::filesystem::path& file, std::ios::openmode mode) {
    std::ifstream stream(file, mode);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

} // namespace

std::string ReadFile(const std::filesystem::path& file) {
    return Read(file, std::ios::binary);
}

std::string ReadText(const std::filesystem::path& file) {
    return Read(file, {});
}

} // namespace updkrx::test
