// What a path on the command line has to be. Each check throws Failure that names the path and what is wrong with it.
#pragma once

#include <filesystem>

#include "failure.h"

namespace krxpatch {

void RequireFolder(const std::filesystem::path& folder, ExitCode otherwise);
void RequireFile(const std::filesystem::path& file);
/** The file need not exist, but the folder that it stands in must. */
void RequirePlaceForFile(const std::filesystem::path& file, ExitCode otherwise = notStarted);

/** What is written must not come to stand in a folder that is only read. */
void RequireOutside(const std::filesystem::path& path, const std::filesystem::path& folder);

/** Whether a path leads to a folder or to something in it, wherever links lead. */
[[nodiscard]] bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder);

} // namespace krxpatch
