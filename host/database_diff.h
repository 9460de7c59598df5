// Two databases, or two folders of them, compared: by UNID, then item by item.
//
// Both files are gone through side by side in the order of their UNIDs, so that what is in memory grows with the
// differences and not with the documents. Not compared, as two equal upgrades do not have them in common: note IDs,
// sequence numbers, times of notes and $Revisions; nor deletion stubs.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "change_report.h"

namespace krxpatch {

/** A file that is missing or cannot be read is told in the result. */
[[nodiscard]] DatabaseChange CompareDatabases(const std::string& name, const std::filesystem::path& before,
                                              const std::filesystem::path& after);

/** Adds a comparison to the report, if there is a difference. A database that cannot be read becomes one of its
 *  errors. */
void AddDatabase(DatabaseChange database, ChangeReport& report);

/** Both must exist. */
[[nodiscard]] bool HaveSameBytes(const std::filesystem::path& first, const std::filesystem::path& second);

/** A folder of databases, with those that are offline, by name. */
struct DatabaseFolder {
    std::filesystem::path path;
    std::set<std::string> offline;
};

/** Adds to the report which databases and other files of two folders, and the folders in them, differ. */
void CompareFolders(const DatabaseFolder& before, const DatabaseFolder& after, ChangeReport& report);

} // namespace krxpatch
