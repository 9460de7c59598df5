#include "patch/replacement.h"

#include <string_view>
#include <utility>

#include "common/bounded_text.h"
#include "foundation/console_command.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/file_copy.h"
#include "foundation/notes_scoped.h"
#include "foundation/product_folder.h"
#include "foundation/second_try.h"
#include "foundation/take_offline.h"
#include "maintenance/encyclopedia.h"
#include "maintenance/signing.h"
#include "migrations/conf_migration.h"
#include "os/os.h"
#include "patch/build_numbers.h"

namespace updkrx {
namespace {

constexpr size_t commandSize = 1024;
/** The database whose access control list the replaced ones get. */
constexpr const char* aclDatabase = "krx/krency.nsf";
constexpr const char* policyName = "PredefinedDLPPolicy.dat";

/** The places of an entry. */
struct EntryPaths {
    std::string target;  // native
    std::string source;  // native
    char notes[MAXPATH]; // as the Notes API takes it
};

bool Contains(std::string_view entry, std::string_view part) {
    return entry.find(part) != std::string_view::npos;
}

void CopyPolicy(const EntryPaths& paths) {
    DebugLog(level::progress, "Enter dlpStr switch.");
    CopyResult result = CopyUnderReaders(paths.source, paths.target); // it is in use as ever
    if (result != copied) {
        result = CopyUnderReaders(paths.source, paths.target);
    }
    if (result != copied) {
        DebugLog(level::progress, "Copy the dlp template error.(%x)", static_cast<uint16_t>(result));
        return;
    }
    DebugLog(level::progress, "Copy the dlp template to KRX database folder! (%s):(%s)", paths.source.c_str(),
             paths.target.c_str());
}

/** Takes a fresh list; the held one stays when there is none to be had. */
void ReadAccessControlList(ScopedMemory& held) {
    DebugLog(level::progress, "Enter nsfStr switch.");
    ScopedDatabase database;
    ScopedMemory fresh;
    STATUS status = OpenDatabase(database, aclDatabase);
    if (status == NOERROR) {
        status = WithSecondTry([&] { return fresh.Open(NSFDbReadACL, database.Get()); });
    }
    if (status != NOERROR) {
        DebugLog(level::progress, "Read ACL error. (%s):(%x)", aclDatabase, status);
        return;
    }
    held = std::move(fresh);
}

void WriteAccessControlList(const EntryPaths& paths, const ScopedMemory& held) {
    ScopedDatabase database;
    if (const STATUS status = OpenDatabase(database, paths.notes); status != NOERROR) {
        DebugLog(level::progress, "Write ACL error. (%s):(%x)", paths.source.c_str(), status);
        return;
    }
    const STATUS status = held.Get() == NULLHANDLE
                              ? NOERROR
                              : WithSecondTry([&] { return NSFDbStoreACL(database.Get(), held.Get(), 0, 0); });
    if (status != NOERROR) {
        DebugLog(level::progress, "Error: The database keeps the access control list that it came with. (%s):(%x)",
                 paths.target.c_str(), status);
    }
}

STATUS TakeOffline(const EntryPaths& paths) {
    const char* target = paths.target.c_str();
    if (!os::IsFile(paths.target)) {
        DebugLog(level::progress, "Database does not exist, do not bring it offline. (%s)", target);
        return NOERROR;
    }
    const STATUS status = TakeOfflineWhenUnused(paths.notes, OFFLINE_NODELETE, [](int earlier) {
        DebugLog(level::unusual, "DB in use, waiting. Retry: %d.", earlier);
    });
    if (status != NOERROR) {
        DebugLog(level::progress, "Bring database offline. (%s):(%x)", target, status);
        return status;
    }
    DebugLog(level::progress, "Bring database offline successfully. (%s)", target);
    return NOERROR;
}

/** Nothing in here may leave by an exception: the database is offline until its end. */
void CopyAndBringOnline(const EntryPaths& paths) noexcept {
    if (CopyPath(paths.source, paths.target, true) == copied || CopyPath(paths.source, paths.target, true) == copied) {
        DebugLog(level::progress, "Copy the database to KRX database folder! (%s):(%s)", paths.source.c_str(),
                 paths.target.c_str());
        if (paths.target.ends_with("/krency.nsf")) {
            KeepNoKrencyOfDeadRun();
        }
    }
    const STATUS status = WithSecondTry([&] { return BringOnline(paths.notes); });
    DebugLog(level::progress, "Bring database online. (%s):(%x)", paths.target.c_str(), status);
}

/** Has the server renew the design of the database that is made from a template. */
void ConvertDatabase(const std::string& entry, const EntryPaths& paths) {
    char database[MAXPATH];
    (void)GetProductPath((entry.substr(0, entry.find(".ntf")) + ".nsf").c_str(), database); // fits where the entry does
    char command[commandSize];                                                              // two paths fit
    bq_snprintf(command, sizeof command, "load convert %s * %s", database, paths.notes);
    RunConsoleCommandAndWait(command); // a database that was not converted can be later, by hand
}

void RefreshFromTemplate(const std::string& entry, const EntryPaths& paths) {
    DebugLog(level::progress, "Enter ntfStr switch.");
    StampBuildNumber(paths.notes);
    ConvertDatabase(entry, paths);
}

} // namespace

void FinishPolicyOfDeadRun() noexcept {
    (void)WithoutExceptions("FinishPolicyOfDeadRun", NOERROR, [] {
        if (const auto folder = GetProductFolder(Report::silent)) { // without one, nothing was kept
            FinishCopiesOfDeadRun(*folder, policyName);
        }
        return NOERROR;
    });
}

std::optional<ReplacementRun> BeginReplacement() {
    std::optional<std::string> databaseFolder = GetProductFolder();
    if (!databaseFolder) {
        return std::nullopt;
    }
    return ReplacementRun{std::move(*databaseFolder), {}};
}

STATUS ReplaceDatabaseEntry(const std::string& entry, const PatchRunContext& context, ReplacementRun& run) {
    EntryPaths paths = {run.databaseFolder + "/" + entry, context.programFolder + "/" + entry, {}};
    const bool fits = GetProductPath(entry.c_str(), paths.notes);
    if (Contains(entry, policyName)) {
        CopyPolicy(paths);
        return NOERROR;
    }
    if (!fits) {
        DebugLog(level::progress, "Error: The name of a database is too long for a path, so it is not replaced. (%s)",
                 entry.c_str());
        return NOERROR;
    }
    if (Contains(entry, ".nsf")) {
        ReadAccessControlList(run.accessControlList);
    }
    if (const STATUS status = TakeOffline(paths); status != NOERROR) {
        return status;
    }
    CopyAndBringOnline(paths);
    (void)SignAndHideDatabase(entry, context); // its failures are logged and stop nothing
    if (Contains(entry, ".ntf")) {
        RefreshFromTemplate(entry, paths);
    } else {
        WriteAccessControlList(paths, run.accessControlList);
    }
    if (entry == "krconf.ntf") {
        (void)MigrateConfDatabase(); // always 0
    }
    return NOERROR;
}

} // namespace updkrx
