// The format of a database file, and the chain of upgrades to it.
#pragma once

#include <filesystem>

struct sqlite3;

namespace embedded {

constexpr int currentFormat = 2;
constexpr int objectsFormat = 2; // since which there are objects

/** Makes the tables of the current format in an empty file, inside a transaction of the caller's. */
void MakeTables(sqlite3* database, const std::filesystem::path& file);

/** Throws ERR_NOT_NSF for a file of another program's or of a format that was given up, EMB_ERR_NEWER. */
int FormatOf(sqlite3* database, const std::filesystem::path& file);

/** Brings the tables to the current format, inside a transaction of the caller's. */
void UpgradeTables(sqlite3* database, const std::filesystem::path& file);

} // namespace embedded
