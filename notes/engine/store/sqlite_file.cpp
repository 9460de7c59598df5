#include "engine/store/sqlite_file.h"

#include <sqlite3.h>

#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

STATUS StatusOf(int code) noexcept {
    switch (code & 0xFF) {
    case SQLITE_NOMEM:
        return ERR_MEMORY;
    case SQLITE_NOTADB:
        return ERR_NOT_NSF;
    case SQLITE_CORRUPT:
    case SQLITE_MISMATCH:
        return EMB_ERR_DAMAGED;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return EMB_ERR_BUSY;
    case SQLITE_READONLY:
        return code == SQLITE_READONLY_ROLLBACK ? EMB_ERR_RECOVERY : EMB_ERR_READ_ONLY;
    case SQLITE_CONSTRAINT:
        return ERR_DUPLICATE_UNID;
    default:
        return EMB_ERR_DISK;
    }
}

} // namespace

void Fail(sqlite3* database, const std::filesystem::path& file) {
    throw StatusError(StatusOf(sqlite3_extended_errcode(database)),
                      PathForCaller(file) + ": " + sqlite3_errmsg(database));
}

sqlite3* OpenFile(const std::filesystem::path& file, int flags) {
    sqlite3* database = nullptr;
    const auto text = file.u8string();
    const int code = sqlite3_open_v2(reinterpret_cast<const char*>(text.c_str()), &database,
                                     flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    if (code == SQLITE_OK) {
        sqlite3_busy_timeout(database, 2000);
        return database;
    }
    const StatusError error(StatusOf(code), PathForCaller(file) + ": " + sqlite3_errstr(code));
    sqlite3_close(database);
    throw error;
}

void PrepareWriting(sqlite3* database, const std::filesystem::path& file) {
    // A rollback journal and not a write-ahead log: nothing may stand beside a closed database. By way of TRUNCATE,
    // because SQLite restores what a dead writer's journal holds but leaves a journal with nothing in it lying about;
    // the change of mode removes it.
    Execute(database, file,
            "PRAGMA journal_mode=TRUNCATE; PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; "
            "PRAGMA temp_store=MEMORY;");
}

void Execute(sqlite3* database, const std::filesystem::path& file, const char* sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        Fail(database, file);
    }
}

int PragmaValue(sqlite3* database, const std::filesystem::path& file, const char* pragma) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, pragma, -1, &statement, nullptr) != SQLITE_OK ||
        sqlite3_step(statement) != SQLITE_ROW) {
        sqlite3_finalize(statement);
        Fail(database, file);
    }
    const int value = sqlite3_column_int(statement, 0);
    sqlite3_finalize(statement);
    return value;
}

} // namespace embedded
