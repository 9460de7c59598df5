#include "support/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

namespace updkrx::test {

TemporaryFolder::TemporaryFolder() {
    std::string name = std::filesystem::temp_directory_path() / "updkrx-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    path_ = name;
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
    return file;
}

std::string ReadFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

} // namespace updkrx::test
