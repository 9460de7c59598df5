// What the store and its format ask of SQLite, with failures as exceptions.
#pragma once

#include <filesystem>

struct sqlite3;

namespace embedded {

/** Throws the connection's last failure. */
[[noreturn]] void Fail(sqlite3* database, const std::filesystem::path& file);

/** Opens a file; `flags` are SQLite's. Throws when that fails, and nothing is open then. */
sqlite3* OpenFile(const std::filesystem::path& file, int flags);
/** Sets what every database has that is written. */
void PrepareWriting(sqlite3* database, const std::filesystem::path& file);

/** Runs statements that give no rows. */
void Execute(sqlite3* database, const std::filesystem::path& file, const char* sql);
int PragmaValue(sqlite3* database, const std::filesystem::path& file, const char* pragma);

} // namespace embedded
