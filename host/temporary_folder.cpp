#include "temporary_folder.h"

#include <random>
#include <string>

namespace krxpatch {

TemporaryFolder::TemporaryFolder(const std::filesystem::path& start) {
    std::random_device random;
    do {
        path_ = start;
        path_ += ".tmp-" + std::to_string(random());
    } while (!std::filesystem::create_directory(path_)); // false: the name is taken
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored; // what was made in it has been used, or an error is on its way
    std::filesystem::remove_all(path_, ignored);
}

} // namespace krxpatch
