// Going through a folder that is to be copied.
#pragma once

#include <filesystem>
#include <functional>

namespace krxpatch {

/** Is told of a file or folder, and where it stands below the folder that is gone through. False: what is in this one
 *  is not gone through. */
using Visit = std::function<bool(const std::filesystem::directory_entry& entry, const std::filesystem::path& place)>;

/** Visits everything in a folder, folders before what is in them. Links are gone through as what they lead to. Throws
 *  Failure: as failed for a link to nothing or to a folder that it lies in, and for what is neither a file nor a
 *  folder; as interrupted when somebody asks this process to end. */
void WalkFolder(const std::filesystem::path& folder, const Visit& visit);

} // namespace krxpatch
