#include "patch/patch_run.h"

#include <optional>

#include "foundation/console_command.h"
#include "foundation/debug_log.h"
#include "foundation/notes_text.h"
#include "maintenance/encyclopedia.h"
#include "maintenance/expressions.h"
#include "maintenance/signing.h"
#include "migrations/conf_migration.h"
#include "migrations/retired_documents.h"
#include "patch/build_numbers.h"
#include "patch/patch_config.h"
#include "patch/program_folder.h"
#include "patch/replacement.h"

namespace updkrx {
namespace {

/** The first build whose encyclopedia database has the present format. */
constexpr int32_t encyclopediaFormatBuild = 3050;

STATUS ReplaceDatabases(const PatchRunContext& context) {
    std::optional<ReplacementRun> run = BeginReplacement();
    if (!run) {
        return 1;
    }
    for (const std::string& entry : context.databaseList) {
        if (const STATUS status = ReplaceDatabaseEntry(entry, context, *run); status != NOERROR) {
            return status;
        }
    }
    return NOERROR;
}

void SignProductDatabases() {
    char folder[MAXPATH];
    ToLmbcs("krx", folder, sizeof folder);
    SignDatabase(folder);
}

/** Takes up what an earlier run, or this one, had to leave half done. */
void FinishWhatIsKept() {
    FinishPolicyOfDeadRun();
    FinishKrencyOfDeadRun();
    FinishConfDatabaseOfDeadRun();
}

} // namespace

STATUS ProcessDatabases(PatchRunContext& context) {
    FinishWhatIsKept();
    if (context.databaseBuild >= context.patchBuild) {
        DebugLog(level::progress, "The database build is large than build number of the patch, so return. %d",
                 context.runningBuild);
        return NOERROR;
    }
    // No result below stops the run but that of an unknown folder or a database which cannot be taken offline: each
    // step logs what it could not do, and the next one is worth doing all the same.
    (void)MigrateContentFilterExpressions();
    (void)MigrateCFDLPDeleteAttachmentAction();
    if (context.databaseList.empty()) {
        return NOERROR;
    }
    if (!FindProgramFolder(context)) {
        return 1;
    }
    if (const STATUS status = ReplaceDatabases(context); status != NOERROR) {
        return status;
    }
    if (context.databaseBuild < encyclopediaFormatBuild) {
        (void)UpdateKrency();
    }
    FinishWhatIsKept(); // of this run: the build number keeps later ones from the rest
    (void)SetBuildNumberOfAllDatabases();
    SignProductDatabases();
    (void)RunConsoleCommand("tell krxreal restart");
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
