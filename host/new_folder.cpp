#include "new_folder.h"

#include "failure.h"
#include "path_checks.h"

namespace krxpatch {
namespace {

std::filesystem::path TargetOf(const std::filesystem::path& folder) {
    const std::filesystem::path target = std::filesystem::weakly_canonical(std::filesystem::absolute(folder));
    return target.has_filename() ? target : target.parent_path();
}

std::filesystem::path RequireNewOrEmpty(std::filesystem::path target) {
    RequireFolder(target.parent_path(), notStarted);
    if (!std::filesystem::exists(target)) {
        return target;
    }
    if (!std::filesystem::is_directory(target)) {
        throw Failure(notStarted, target.string() + ": is a file; a new or empty folder is needed");
    }
    if (!std::filesystem::is_empty(target)) {
        throw Failure(notStarted, target.string() + ": is not empty; a new or empty folder is needed");
    }
    return target;
}

} // namespace

NewFolder::NewFolder(const std::filesystem::path& folder)
    : target_(RequireNewOrEmpty(TargetOf(folder))), made_(target_) {
    std::filesystem::create_directory(Content()); // with the permissions that the user's folders have
}

void NewFolder::PutIntoPlace() {
    std::filesystem::remove(target_); // an empty folder; if it is not empty any more, this throws
    std::filesystem::rename(Content(), target_);
}

} // namespace krxpatch
