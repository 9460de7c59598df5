#include "path_checks.h"

#include <algorithm>

namespace krxpatch {

void RequireFolder(const std::filesystem::path& folder, ExitCode otherwise) {
    std::error_code ignored; // what cannot be looked at is not there
    if (!std::filesystem::is_directory(folder, ignored)) {
        const bool exists = std::filesystem::exists(folder, ignored);
        throw Failure(otherwise, folder.string() + (exists ? ": is no folder" : ": no such folder"));
    }
}

void RequireFile(const std::filesystem::path& file) {
    RequirePlaceForFile(file);
    if (std::error_code ignored; !std::filesystem::exists(file, ignored)) {
        throw Failure(notStarted, file.string() + ": no such file");
    }
}

void RequirePlaceForFile(const std::filesystem::path& file, ExitCode otherwise) {
    if (std::error_code ignored; std::filesystem::is_directory(file, ignored)) {
        throw Failure(otherwise, file.string() + ": is a folder");
    }
    if (file.has_parent_path()) {
        RequireFolder(file.parent_path(), otherwise);
    }
}

void RequireOutside(const std::filesystem::path& path, const std::filesystem::path& folder) {
    if (IsBelow(std::filesystem::absolute(path), std::filesystem::absolute(folder))) {
        throw Failure(notStarted, path.string() + ": lies in the folder that is only read, " + folder.string());
    }
}

bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder) {
    std::error_code ignored; // a path that cannot be resolved is below nothing
    const auto inner = std::filesystem::weakly_canonical(path, ignored);
    const auto outer = std::filesystem::weakly_canonical(folder, ignored);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

} // namespace krxpatch
