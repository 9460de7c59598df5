// The commands of krxpatch, one file each. They print to standard output and return the exit code, or throw Failure.
#pragma once

#include <filesystem>

#include "failure.h"
#include "report_output.h"

namespace krxpatch {

struct SandboxOptions {
    std::filesystem::path folder;
    std::filesystem::path from; // what is laid out: a tree in which NAME.dxl stands for the database NAME
    bool sample = true;         // it is the sample server
};

/** Lays out a server in a folder that is new or empty. The folder takes its place whole or not at all. Fails when what is
 *  laid out lacks what an upgrade needs; it stays then, for what is missing to be added. */
[[nodiscard]] ExitCode Sandbox(const SandboxOptions& options);

struct RehearseOptions {
    std::filesystem::path server;
    std::filesystem::path folder; // the copy
};

/** Copies a server folder into one that is new or empty, for an upgrade to be rehearsed there. Links are resolved, and
 *  nothing of the original is written or shared. The copy takes its place whole or not at all. */
[[nodiscard]] ExitCode Rehearse(const RehearseOptions& options);

struct RunOptions {
    std::filesystem::path server;
    std::filesystem::path module;
    bool realTime = false; // keep the pauses
};

/** Upgrades a server: shows the module's steps as they happen, then what became of each database. What an earlier run
 *  that died has changed is put back first. Begins and ends the process's session, and loads and unloads the module. */
[[nodiscard]] ExitCode Run(const RunOptions& options);

struct StatusOptions {
    std::filesystem::path server;
    bool json = false;
};

/** Tells what a server carries, and writes nothing below its folder. Fails when something could not be read. */
[[nodiscard]] ExitCode Status(const StatusOptions& options);

struct PlanOptions {
    std::filesystem::path server;
    std::filesystem::path module;
    ReportOptions output;
};

/** Tells what an upgrade would change: runs the module on a private copy of a server. Writes nothing below its folder.
 *  Begins and ends the process's session, and loads and unloads the module. */
[[nodiscard]] ExitCode Plan(const PlanOptions& options);

struct VerifyOptions {
    std::filesystem::path server;
    ReportOptions output;
};

/** Tells whether a server's upgrade is really done, and writes nothing below its folder. */
[[nodiscard]] ExitCode Verify(const VerifyOptions& options);

struct DiffOptions {
    std::filesystem::path before;
    std::filesystem::path after;
    ReportOptions output;
};

/** Compares two databases, two server folders, or two folders of databases; writes nothing in them. */
[[nodiscard]] ExitCode Diff(const DiffOptions& options);

struct ImportOptions {
    std::filesystem::path database;
    std::filesystem::path dxl;
    bool force = false; // replace an existing database
    bool into = false;  // add the file's one note to an existing database
};

/** Makes a database from DXL, or adds a note to one, and prints what a person should know of it; a bad file or an
 *  interrupt leaves nothing behind. */
[[nodiscard]] ExitCode Import(const ImportOptions& options);

struct ExportOptions {
    std::filesystem::path database;
    std::filesystem::path dxl; // "-" or empty: standard output
    bool stable = false;       // only what two equal upgrades have in common
    bool force = false;        // replace an existing file
};

/** Writes a database as DXL and leaves it as it is. */
[[nodiscard]] ExitCode Export(const ExportOptions& options);

} // namespace krxpatch
