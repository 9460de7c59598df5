#include "checks.h"

#include <algorithm>

#include "failure.h"
#include "hold.h"
#include "patch_entries.h"
#include "path_checks.h"

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

namespace {

/** What to do about a server folder without a session, by what the failure says. */
constexpr struct {
    const char* saying;
    const char* remedy;
} remedies[] = {
    {": is UTF-16", "save the file as plain text (ANSI or UTF-8)"},
    {"not NAME=VALUE", "correct that line, or remove it"},
    {": no line Directory=", "add it, with the whole path of the server's data directory"},
    {"EmbeddedBehaviour=", "correct the line EmbeddedBehaviour=, or remove it"},
    {"no folder with the product's", "correct Directory= in notes.ini, or put the product's folder back"},
    {": is no folder", "put the product's folder there"},
    {"Directory=", "write in Directory= the whole path of this server's own data directory, which lies in its folder"},
    {"data directory", "correct Directory= in notes.ini"},
    {"cannot be read", "run krxpatch as a user who may read it"},
};

std::string RemedyOf(const std::string& failure) {
    for (const auto& [saying, remedy] : remedies) {
        if (failure.find(saying) != std::string::npos) {
            return remedy;
        }
    }
    return "mend that first";
}

} // namespace

FolderCheck CheckFolder(const std::filesystem::path& folder) {
    RequireFolder(folder, notStarted);
    RequireFile(folder / "notes.ini");
    std::optional<ServerFolder> server;
    try {
        server.emplace(folder, ServerFolder::Access::readOnly);
    } catch (const Failure& failure) {
        return {{{Level::failure, "server folder", {}, 0, failure.what(), RemedyOf(failure.what())}}, {}, {}};
    }
    const CheckSubject subject = Examine(*server, false);
    return {RunChecks(subject), subject.facts.patchBuild ? BuildText(*subject.facts.patchBuild) : "",
            HolderOf(server->DataDirectory())};
}

} // namespace krxpatch
