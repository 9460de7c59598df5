#include "commands.h"

#include <algorithm>

#include "database_diff.h"
#include "patch_entries.h"
#include "path_checks.h"
#include "report_output.h"
#include "session_view.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** A server folder's databases, or a folder that holds databases itself. */
DatabaseFolder FolderOf(const fs::path& path) {
    return fs::exists(path / "notes.ini") ? ViewServer(path) : DatabaseFolder{path, {}};
}

void RequireThere(const fs::path& path) {
    if (!fs::exists(path)) {
        throw Failure(notStarted, path.string() + ": no such file or folder");
    }
}

bool HasDatabases(const fs::path& folder) {
    return std::ranges::any_of(fs::directory_iterator(folder), [](const fs::directory_entry& entry) {
        return IsDatabaseName(entry.path().filename().string());
    });
}

void Compare(const fs::path& before, const fs::path& after, ChangeReport& report) {
    report.before = before.string();
    report.after = after.string();
    RequireThere(before);
    RequireThere(after);
    if (fs::is_directory(before) != fs::is_directory(after)) {
        throw Failure(notStarted, (fs::is_directory(before) ? before : after).string() +
                                      ": is a folder; a database is compared with a database, a folder with a folder");
    }
    if (fs::is_directory(before)) {
        const DatabaseFolder first = FolderOf(before);
        const DatabaseFolder second = FolderOf(after);
        if (!HasDatabases(first.path) && !HasDatabases(second.path)) { // a wrong path passes for a good comparison
            throw Failure(notStarted, first.path.string() + " and " + second.path.string() + ": have no database");
        }
        CompareFolders(first, second, report);
    } else {
        AddDatabase(CompareDatabases(after.filename().string(), before, after), report);
    }
    report.exitCode = report.errors.empty() && report.databases.empty() && report.files.empty() ? succeeded : failed;
}

} // namespace

ExitCode Diff(const DiffOptions& options) {
    return OutputReading("diff", options.output,
                         [&](ChangeReport& report) { Compare(options.before, options.after, report); });
}

} // namespace krxpatch
