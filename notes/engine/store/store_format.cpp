#include "engine/store/store_format.h"

#include <iterator>
#include <string>

#include "engine/store/sqlite_file.h"
#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr int applicationId = 0x4E534644; // "NSFD" in the file's head tells a database of ours

// The file says in user_version which format it has. A change of the tables is a new format: raise currentFormat and
// add the step to it. Give up a format by raising oldestFormat and joining its step into MakeOldestFormat().
constexpr int oldestFormat = 1;

void MakeOldestFormat(sqlite3* database, const std::filesystem::path& file) {
    Execute(database, file,
            "CREATE TABLE note ("
            " id INTEGER PRIMARY KEY, unid BLOB NOT NULL UNIQUE, class INTEGER NOT NULL,"
            " sequence INTEGER NOT NULL, sequencetime BLOB NOT NULL, modified BLOB NOT NULL,"
            " deleted INTEGER NOT NULL, items BLOB NOT NULL);"
            "CREATE TABLE property (name TEXT PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;");
}

void AddObjects(sqlite3* database, const std::filesystem::path& file) {
    Execute(database, file,
            "CREATE TABLE object ("
            " id INTEGER NOT NULL, part INTEGER NOT NULL, note INTEGER NOT NULL, bytes BLOB NOT NULL,"
            " PRIMARY KEY (id, part));"
            "CREATE INDEX objectnote ON object (note, id);");
}

/** The first makes format oldestFormat + 1 of oldestFormat, and so on. */
constexpr void (*upgrades[])(sqlite3* database, const std::filesystem::path& file) = {AddObjects};
static_assert(oldestFormat + std::size(upgrades) == currentFormat);

/** Takes all steps from `format` on, inside a transaction of the caller's. */
void Upgrade(sqlite3* database, const std::filesystem::path& file, int format) {
    for (; format < currentFormat; ++format) {
        upgrades[format - oldestFormat](database, file);
    }
    Execute(database, file, ("PRAGMA user_version=" + std::to_string(currentFormat)).c_str());
}

} // namespace

void MakeTables(sqlite3* database, const std::filesystem::path& file) {
    Execute(database, file, ("PRAGMA application_id=" + std::to_string(applicationId)).c_str());
    MakeOldestFormat(database, file);
    Upgrade(database, file, oldestFormat);
}

int FormatOf(sqlite3* database, const std::filesystem::path& file) {
    if (PragmaValue(database, file, "PRAGMA application_id") != applicationId) {
        throw StatusError(ERR_NOT_NSF, PathForCaller(file) + ": not a database");
    }
    const int format = PragmaValue(database, file, "PRAGMA user_version");
    if (format < oldestFormat || format > currentFormat) {
        throw StatusError(format < oldestFormat ? ERR_NOT_NSF : EMB_ERR_NEWER,
                          PathForCaller(file) + ": has database format " + std::to_string(format) +
                              ", this version reads formats " + std::to_string(oldestFormat) + " to " +
                              std::to_string(currentFormat));
    }
    return format;
}

void UpgradeTables(sqlite3* database, const std::filesystem::path& file) {
    Upgrade(database, file, FormatOf(database, file)); // asked again: another process may have upgraded it meanwhile
}

} // namespace embedded
