// The server that every run starts from, and runs on copies of it.
//
// Paths in a copy begin with /proc/self/cwd, so that what a run stores and logs does not tell the copies apart.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "events.h"

namespace sweep {

/** Lays out the sample server below `work`, and makes of it what the runs start from: a template is installed, the
 *  patch brings a file that is no database, and two databases are in use for a while, so that the ways of the run that
 *  these lead to are gone too. */
void PrepareServer(const std::filesystem::path& work);
[[nodiscard]] std::filesystem::path PreparedServer(const std::filesystem::path& work);

/** Makes a copy of the prepared server in which these behaviours are in force, in the form of notes.ini. This process
 *  then stands in it. */
void EnterServer(const std::filesystem::path& work, const std::string& behaviours, const std::filesystem::path& copy);

/** Makes a copy of a server folder, in which this process then stands. */
void EnterCopy(const std::filesystem::path& server, const std::filesystem::path& copy);

/** Runs the upgrade on the server folder that the process stands in, without pauses and from the same moment on. What
 *  krxpatch prints is lost. Returns what MainEntryPoint or krxpatch does; the module's session stays. */
int RunUpgrade(Runner runner);

/** Ends a session and makes the module's collections as they are at load. */
void ForgetRun();

/** Runs this program with other arguments, in a process of its own; returns the status that it ended with. */
int RunThisProgram(const std::vector<std::string>& arguments);

} // namespace sweep
