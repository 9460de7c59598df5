// The folder of the newest program build: it holds the patch's files, and its name tells the installed build.
#pragma once

#include <cstddef>

namespace updkrx {

inline constexpr size_t programFolderSize = 256;

/** Puts the folder's path into `folder`; false when it is unknown, which is logged. */
[[nodiscard]] bool GetProgramFolder(char (&folder)[programFolderSize]);

} // namespace updkrx
