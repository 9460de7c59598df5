// The commands of krxpatch, one file each. They print to standard output, put what programs are to know into a report,
// and return the exit code, or throw Failure.
#pragma once

#include <filesystem>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "failure.h"
#include "report_output.h"

namespace krxpatch {

using Report = nlohmann::ordered_json; // an object, which the command adds its members to

struct SandboxOptions {
    std::filesystem::path folder;
    std::filesystem::path from; // what is laid out: a tree in which NAME.dxl stands for the database NAME
    bool sample = true;         // it is the sample server
    bool colour = false;
};

/** Lays out a server in a folder that is new or empty. The folder takes its place whole or not at all. Fails when what
 *  is laid out lacks what an upgrade needs; it stays then, for what is missing to be added. */
[[nodiscard]] ExitCode Sandbox(const SandboxOptions& options);

struct RehearseOptions {
    std::filesystem::path server;
    std::filesystem::path folder; // the copy
};

/** Copies a server folder into one that is new or empty, for an upgrade to be rehearsed there. Links are resolved, and
 *  nothing of the original is written or shared. The copy takes its place whole or not at all. */
[[nodiscard]] ExitCode Rehearse(const RehearseOptions& options);

struct CheckOptions {
    std::filesystem::path server;
    ReportOptions output;
};

/** Tells all that can be seen to go wrong in an upgrade, and what to do about it. Writes nothing. */
[[nodiscard]] ExitCode CheckServer(const CheckOptions& options);

struct RunOptions {
    std::filesystem::path server;
    std::filesystem::path module;
    bool realTime = false; // keep the pauses
    bool force = false;    // whatever the checks say
    bool verbose = false;  // show the module's own log
    ReportOptions output;
};

/** Upgrades a server: checks it, keeps a copy of the product folder, shows the module's steps as they happen, then what
 *  became of each database, and verifies that. What an earlier run that died has changed is put back first. Begins and
 *  ends the process's session, and loads and unloads the module. When it is interrupted while the module is at work, it
 *  ends the process. */
[[nodiscard]] ExitCode Run(const RunOptions& options);

struct RestoreOptions {
    std::filesystem::path server;
    std::string id; // of the copy; empty: the newest
    bool list = false;
    bool discard = false;
    bool force = false; // discard the copy of a run that died
};

/** Lists the safety copies of a server, puts one back, or discards them. Needs no patch. */
[[nodiscard]] ExitCode Restore(const RestoreOptions& options, Report& report);

struct StatusOptions {
    std::filesystem::path server;
};

/** Tells what a server carries, and writes nothing below its folder. Fails when something could not be read. */
[[nodiscard]] ExitCode Status(const StatusOptions& options, Report& report);

struct HistoryOptions {
    std::filesystem::path server;
};

/** Tells who did what to a server. Writes nothing. */
[[nodiscard]] ExitCode History(const HistoryOptions& options, Report& report);

struct LogOptions {
    std::filesystem::path server;
    bool errorsOnly = false;
    bool follow = false; // until the command is interrupted
    bool colour = false;
};

/** Shows the module's log without what only support needs, each line explained. Writes nothing. */
[[nodiscard]] ExitCode ShowLog(const LogOptions& options, Report& report);

struct ExplainOptions {
    std::string text; // a status or a line of the log; empty: the whole table
};

/** Explains a status of the platform or a line of the module's log. */
[[nodiscard]] ExitCode ExplainText(const ExplainOptions& options, Report& report);

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
[[nodiscard]] ExitCode Import(const ImportOptions& options, Report& report);

struct ExportOptions {
    std::filesystem::path database;
    std::filesystem::path dxl; // "-" or empty: standard output
    bool stable = false;       // only what two equal upgrades have in common
    bool force = false;        // replace an existing file
    bool json = false;         // for an interrupt, which ends the process
};

/** Writes a database as DXL and leaves it as it is. A damaged database or an interrupt leaves no file. */
[[nodiscard]] ExitCode Export(const ExportOptions& options);

} // namespace krxpatch
