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
#include "migrations/kept_documents.h"
#include "migrations/obsolete_unids.h"
#include "migrations/unrepaired_references.h"

namespace updkrx {
namespace {

constexpr WORD pathSize = 32;
constexpr const char* databasePath = "krx/krconf.nsf";
constexpr const char* templatePath = "krx/krconf.ntf";

/** False when references may dangle and no later run would know it. */
bool RepairReferences(DBHANDLE database) {
    bool whole = RecordUnrepairedReferences(database);
    if (ObsoleteUNIDSet.empty()) {
        DebugLog(level::detail, "m_nsf_ObsoleteUNIDSet is NULL, so happy!");
    } else {
        LogObsoleteUnids();
        bool removed = false;
        bool replaced = false;
        // Either pass is worth its while without the other; what fails is logged.
        (void)RemoveObsoleteUNID(database, removed);
        (void)ReplaceObsoleteUNID(database, replaced);
        whole = whole && removed && replaced;
    }
    if (whole) {
        ForgetUnrepairedReferences();
        return true;
    }
    DebugLog(level::progress, "Error: References to replaced documents may dangle.");
    return KeepUnrepairedReferences();
}

/** Returns what RepairReferences does. */
bool UpgradeFromTemplate(DBHANDLE database) {
    ScopedDatabase templateDatabase;
    if (OpenDatabase(templateDatabase, templatePath) != NOERROR) {
        char path[MAXPATH];
        ToNative(templatePath, path, sizeof path);
        DebugLog(level::detail, "cannot open krconf.ntf, path: %s", path);
        // Copies may have been removed as documents were put back.
        return ObsoleteUNIDSet.empty() || RepairReferences(database);
    }
    (void)UpgradeDLPDocumentFromNTFtoNSF(templateDatabase.Get(), database); // its forms succeed or fail by themselves
    return RepairReferences(database);
}

/** Closes the database: what is kept of its documents goes when the disk has what stands in their place. */
void UpgradeDocuments(ScopedDatabase& database) {
    // Without all that an earlier run had taken out, another document would be taken for one that is missing.
    if (HasKeptDocuments() && !PutBackKeptDocuments(database.Get())) {
        if (!ObsoleteUNIDSet.empty()) { // of copies that were removed all the same
            (void)RepairReferences(database.Get());
        }
        return;
    }
    const bool repaired = UpgradeFromTemplate(database.Get());
    if (!HasKeptDocuments()) {
        return;
    }
    const bool complete = AllKeptDocumentsStand(database.Get()) && repaired;
    if (database.Close() == NOERROR && complete) {
        RemoveKeptDocuments();
    }
}

void MigrateDocuments(const char* path) {
    ScopedDatabase database;
    if (OpenDatabase(database, path) != NOERROR) {
        return;
    }
    // No migration waits for the success of another.
    (void)ChangeConflictAction(database.Get());
    (void)ClearDefaultRule(database.Get());
    UpgradeDocuments(database);
}

void RefreshDesign(const char* path) {
    char command[MAXPATH];
    bq_snprintf(command, sizeof command, "load design -f %s", path);
    RunConsoleCommandAndWait(command); // a design that was not refreshed can be later, by hand
}

} // namespace

void FinishConfDatabaseOfDeadRun() noexcept {
    (void)WithoutExceptions("FinishConfDatabaseOfDeadRun", NOERROR, [] {
        ScopedDatabase database;
        if (HasKeptDocuments() && KeepsNone()) { // and could not be removed; an upgrade would undo what came since
            RemoveKeptDocuments();
        } else if (HasKeptDocuments() && OpenDatabase(database, databasePath) == NOERROR) {
            UpgradeDocuments(database);
        }
        if (HasUnrepairedReferences() && OpenDatabase(database, databasePath) == NOERROR) {
            (void)RepairReferences(database.Get());
        }
        return NOERROR;
    });
}

STATUS MigrateConfDatabase() {
    char path[pathSize];
    ToLmbcs(databasePath, path, sizeof path);
    (void)WithoutExceptions("MigrateConfDatabase", NOERROR, [&] { // the run goes on, beginning with the design
        MigrateDocuments(path);
        return NOERROR;
    });
    RefreshDesign(path);
    return NOERROR;
}

} // namespace updkrx
