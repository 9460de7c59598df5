// What can be seen to go wrong before an upgrade is begun: a table of checks, all of which are run, and all of whose
// findings are told at once. Nothing is written.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "config_file.h"
#include "database_report.h"
#include "finding.h"
#include "recovery_copy.h"
#include "server_folder.h"

namespace krxpatch {

/** What the checks look at. */
struct CheckSubject {
    const ServerFolder& server;
    bool isHeld = false; // by this process itself
    ConfigFile settings; // notes.ini
    ConfigFile patch;    // krxpatch.ini, without lines when there is none
    std::filesystem::path patchFile;
    PatchFacts facts;
    std::vector<DatabaseReport> databases;
    std::vector<DatabaseReport> delivered; // of the databases and templates that the patch brings
    std::vector<RecoveryCopy> copies;      // safety copies
    std::string copiesProblem;             // why they cannot be looked at; empty when they can

    [[nodiscard]] bool IsUpToDate() const;
};

/** Needs the session. */
[[nodiscard]] CheckSubject Examine(const ServerFolder& server, bool isHeld);

/** What one check finds. */
class Findings {
public:
    void Ok(const std::string& message) { Add({Level::ok, {}, {}, 0, message, {}}); }
    void Warn(const std::filesystem::path& file, size_t line, const std::string& message, const std::string& remedy) {
        Add({Level::warning, {}, file, line, message, remedy});
    }
    void Fail(const std::filesystem::path& file, size_t line, const std::string& message, const std::string& remedy) {
        Add({Level::failure, {}, file, line, message, remedy});
    }

    [[nodiscard]] const std::vector<Finding>& All() const noexcept { return all_; }

    void Add(Finding finding) { all_.push_back(std::move(finding)); }

private:
    std::vector<Finding> all_;
};

using Check = void (*)(const CheckSubject& subject, Findings& findings);

/** What sets a check apart from others; they can be combined. */
enum CheckTrait : unsigned {
    ofFolder =
        1, // it judges what stands in the product folder: after a run that died an upgrade begins with other things
    ofMoment = 2, // it judges what may be otherwise when the upgrade comes: who is at work, and with which rights
    final = 4,    // --force does not overrule it: somebody else's data is at stake, or it has no power over it
};

struct CheckRow {
    const char* name;
    Check check;
    unsigned traits = 0;
};

// The rows, in groups of a file each.
[[nodiscard]] std::span<const CheckRow> FolderChecks();   // links, rights, room, other commands
[[nodiscard]] std::span<const CheckRow> SettingsChecks(); // notes.ini
[[nodiscard]] std::span<const CheckRow> PatchChecks();    // krxpatch.ini and what the patch brings
[[nodiscard]] std::span<const CheckRow> DatabaseChecks(); // the databases that are there

/** The paths of a server through which an upgrade would change what lies elsewhere: links that lead out of the folder,
 *  and files with more than one name. */
void FindLinks(const ServerFolder& server, Findings& findings);

/** The findings of every check that has none of these traits. Its name is their subject, and one that finds nothing
 *  wrong has one that is ok. */
[[nodiscard]] std::vector<Finding> RunChecks(const CheckSubject& subject, unsigned without = 0);

/** Why the patch's build is not known, as the checks tell it: with the line and what to do. Needs the session. */
[[nodiscard]] std::vector<Finding> FindPatchFaults(const ServerFolder& server);

/** Whether one of the failures stands whatever the administrator wants. */
[[nodiscard]] bool AnyIsFinal(const std::vector<Finding>& findings);

struct FolderCheck {
    std::vector<Finding> findings;
    std::string patchBuild;            // empty when it is not known
    std::optional<std::string> holder; // who is changing the server now
};

/** The checks of a folder, also of one that no session can be begun on: that is a finding like others. Begins and ends
 *  the process's session. Throws Failure, as not started, when there is no notes.ini. */
[[nodiscard]] FolderCheck CheckFolder(const std::filesystem::path& folder);

} // namespace krxpatch
