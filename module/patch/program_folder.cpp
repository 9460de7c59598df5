#include "patch/program_folder.h"

#include "foundation/debug_log.h"
#include "foundation/install_paths.h"

namespace updkrx {
namespace {

constexpr size_t folderSize = 256;

} // namespace

bool FindProgramFolder(PatchRunContext& context) {
    if (!context.programFolder.empty()) {
        return true;
    }
    char folder[folderSize];
    if (GetComponentPath(programComponent, folder, sizeof folder) == nullptr) {
        DebugLog(level::progress, "Cannot get the latest path!");
        return false;
    }
    context.programFolder = folder;
    return true;
}

} // namespace updkrx
