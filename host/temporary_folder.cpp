#include "temporary_folder.h"

#include <random>
#include <string>
#include <system_error>

namespace krxpatch {

TemporaryFolder::TemporaryFolder(const std::filesystem::path& start) {
    constexpr size_t longest = 200; // of the name, to which the suffix comes
    std::random_device random;
    std::error_code error;
    do {
        path_ = start.parent_path() / start.filename().native().substr(0, longest);
        path_ += ".tmp-" + std::to_string(random());
    } while (!std::filesystem::create_directory(path_, error) && !error); // false: the name is taken
    if (error) {                                                          // nobody has asked for that name
        throw std::filesystem::filesystem_error("create", start, error);
    }
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored; // what was made in it has been used, or an error is on its way
    std::filesystem::remove_all(path_, ignored);
}

} // namespace krxpatch
