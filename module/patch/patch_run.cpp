#include "patch/patch_run.h"

#include "foundation/debug_log.h"
#include "patch/build_numbers.h"
#include "patch/patch_config.h"
#include "patch/program_folder.h"

namespace updkrx {

STATUS ProcessDatabases(PatchRunContext& context) {
    if (context.databaseBuild >= context.patchBuild) {
        DebugLog(level::progress, "The database build is large than build number of the patch, so return. %d",
                 context.runningBuild);
        return NOERROR;
    }
    if (context.databaseList.empty()) {
        return NOERROR;
    }
    char programFolder[programFolderSize];
    if (!GetProgramFolder(programFolder)) {
        return 1;
    }
    (void)SetBuildNumberOfAllDatabases(); // always 0
    return NOERROR;
}

void RunPatch() {
    DebugLog(level::progress, "===============Begin update database========");

    PatchRunContext context;
    if (ReadPatchConfig(context) != NOERROR) {
        DebugLog(level::progress, "Error, Cannot get the running KRX version");
        return;
    }
    SetBuildText(context.patchBuild);
    DebugLog(level::progress, "Info: The new database build number is %s", gBuildNumber);

    if (GetRunningBuild(context) != NOERROR) {
        DebugLog(level::progress, "Error, Cannot get the running KRX version");
        return;
    }
    (void)ProcessDatabases(context); // the log has told what ended it
}

} // namespace updkrx
