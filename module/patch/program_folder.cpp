#include "patch/program_folder.h"

#include "foundation/debug_log.h"
#include "foundation/install_paths.h"

namespace updkrx {

bool GetProgramFolder(char (&folder)[programFolderSize]) {
    if (GetComponentPath(programComponent, folder, sizeof folder) == nullptr) {
        DebugLog(level::progress, "Cannot get the latest path!");
        return false;
    }
    return true;
}

} // namespace updkrx
