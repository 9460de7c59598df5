#include "checks.h"

#include <algorithm>

#include "failure.h"
#include "patch_entries.h"

namespace krxpatch {

CheckSubject Examine(const ServerFolder& server, bool isHeld) {
    PatchFacts facts = ReadPatchFacts(server);
    std::filesystem::path patchFile = facts.programFolder.empty() ? "" : facts.programFolder / "krxpatch.ini";
    std::vector<DatabaseReport> delivered;
    for (const std::string& entry : facts.entries) {
        const std::filesystem::path file = facts.programFolder / entry;
        std::error_code ignored; // what is missing has a check of its own
        if (IsDatabaseName(entry) && std::filesystem::is_regular_file(file, ignored)) {
            delivered.push_back(ReadDatabaseFile(entry, file));
        }
    }
    CheckSubject subject{server,
                         isHeld,
                         ConfigFile(server.IniFile()),
                         ConfigFile(patchFile),
                         patchFile,
                         std::move(facts),
                         ReadDatabases(server.DatabaseNames()),
                         std::move(delivered),
                         {},
                         {}};
    try {
        subject.copies = CopiesOf(server.ProductFolder());
    } catch (const Failure& failure) {
        subject.copiesProblem = failure.what();
    }
    return subject;
}

bool CheckSubject::IsUpToDate() const {
    return facts.patchBuild && CompareWithBuild(databases, *facts.patchBuild).Reached();
}

namespace {

constexpr auto allRows = {SettingsChecks, FolderChecks, PatchChecks, DatabaseChecks};

void RunCheck(const CheckRow& row, const CheckSubject& subject, std::vector<Finding>& all) {
    Findings findings;
    row.check(subject, findings);
    if (findings.All().empty()) {
        findings.Ok("");
    }
    for (Finding finding : findings.All()) {
        finding.subject = row.name;
        all.push_back(std::move(finding));
    }
}

} // namespace

std::vector<Finding> RunChecks(const CheckSubject& subject, unsigned without) {
    std::vector<Finding> all;
    for (const auto rows : allRows) {
        for (const CheckRow& row : rows()) {
            if ((row.traits & without) == 0) {
                RunCheck(row, subject, all);
            }
        }
    }
    return all;
}

std::vector<Finding> FindPatchFaults(const ServerFolder& server) {
    const CheckSubject subject = Examine(server, false);
    std::vector<Finding> all;
    for (const CheckRow& row : PatchChecks()) {
        RunCheck(row, subject, all);
    }
    std::erase_if(all, [](const Finding& finding) { return finding.level != Level::failure; });
    if (all.empty()) {
        all.push_back(
            {Level::failure, "krxpatch.ini", {}, 0, subject.facts.problem, "use the one that came with the patch"});
    }
    return all;
}

bool AnyIsFinal(const std::vector<Finding>& findings) {
    return std::ranges::any_of(findings, [](const Finding& finding) {
        return finding.level == Level::failure && std::ranges::any_of(allRows, [&](const auto rows) {
                   return std::ranges::any_of(rows(), [&](const CheckRow& row) {
                       return (row.traits & final) != 0 && finding.subject == row.name;
                   });
               });
    });
}

std::vector<Finding> CheckFolder(const std::filesystem::path& folder) {
    std::optional<ServerFolder> server;
    try {
        server.emplace(folder, ServerFolder::Access::readOnly);
    } catch (const Failure& failure) {
        return {{Level::failure,
                 "server folder",
                 {},
                 0,
                 failure.what(),
                 "name the folder of the server, in which notes.ini stands, as a user who may read all of it"}};
    }
    return RunChecks(Examine(*server, false));
}

} // namespace krxpatch
