#include "migrations/conf_migration.h"

#include "common/bounded_text.h"
#include "common/startup.h"
#include "foundation/console_command.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_text.h"
#include "migrations/conflict_action.h"
#include "migrations/default_rule.h"
#include "migrations/dlp_upgrade.h"
#include "migrations/obsolete_unids.h"

namespace updkrx {
namespace {

constexpr WORD pathSize = 32;
constexpr const char* templatePath = "krx/krconf.ntf";

void RepairReferences(DBHANDLE database) {
    if (ObsoleteUNIDSet.empty()) {
        DebugLog(level::detail, "m_nsf_ObsoleteUNIDSet is NULL, so happy!");
        return;
    }
    LogObsoleteUnids();
    // Either pass is worth its while without the other.
    (void)RemoveObsoleteUNID(database);
    (void)ReplaceObsoleteUNID(database);
}

void UpgradeDocuments(DBHANDLE database) {
    ScopedDatabase templateDatabase;
    if (NSFDbOpen(templatePath, templateDatabase.Out()) != NOERROR) {
        char path[MAXPATH];
        ToNative(templatePath, path, sizeof path);
        DebugLog(level::detail, "cannot open krconf.ntf, path: %s", path);
        return;
    }
    (void)UpgradeDLPDocumentFromNTFtoNSF(templateDatabase.Get(), database); // its forms succeed or fail by themselves
    RepairReferences(database);
}

void MigrateDocuments(const char* path) {
    ScopedDatabase database;
    if (NSFDbOpen(path, database.Out()) != NOERROR) {
        return;
    }
    // No migration waits for the success of another.
    (void)ChangeConflictAction(database.Get());
    (void)ClearDefaultRule(database.Get());
    UpgradeDocuments(database.Get());
}

void RefreshDesign(const char* path) {
    char command[MAXPATH];
    bq_snprintf(command, sizeof command, "load design -f %s", path);
    RunConsoleCommandAndWait(command); // a design that was not refreshed can be later, by hand
}

} // namespace

STATUS MigrateConfDatabase() {
    char path[pathSize];
    ToLmbcs("krx/krconf.nsf", path, sizeof path);
    (void)WithoutExceptions("MigrateConfDatabase", NOERROR, [&] { // the run goes on, beginning with the design
        MigrateDocuments(path);
        return NOERROR;
    });
    RefreshDesign(path);
    return NOERROR;
}

} // namespace updkrx
