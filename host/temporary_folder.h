// A folder that is there while something is being made in it.
#pragma once

#include <filesystem>

namespace krxpatch {

/** An empty folder of a name that nothing else has, which only its owner may enter. What it holds goes away with this
 *  object, unless it was moved elsewhere. */
class TemporaryFolder {
public:
    /** The folder's name is `start`, which may be cut off, and a suffix. Throws filesystem_error of `start` when it
     *  cannot be made. */
    explicit TemporaryFolder(const std::filesystem::path& start);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace krxpatch
