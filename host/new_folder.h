// A folder that a command makes: it takes its place whole or not at all.
#pragma once

#include <filesystem>

#include "temporary_folder.h"

namespace krxpatch {

class NewFolder {
public:
    /** `folder` must be new or empty; links, "." and an ending separator do not count. Throws Failure, as failed. */
    explicit NewFolder(const std::filesystem::path& folder);

    /** Where the folder is going to stand. */
    [[nodiscard]] const std::filesystem::path& Target() const noexcept { return target_; }
    /** Where its content is made. */
    [[nodiscard]] std::filesystem::path Content() const { return made_.Path() / target_.filename(); }
    /** Puts it into its place. Throws filesystem_error when something has come to stand there meanwhile. */
    void PutIntoPlace();

private:
    std::filesystem::path target_;
    TemporaryFolder made_;
};

} // namespace krxpatch
