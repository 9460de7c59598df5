#include <iostream>

#include <nlohmann/json.hpp>

#include "checks.h"
#include "commands.h"
#include "database_report.h"
#include "database_table.h"
#include "hold.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

using Json = Report;

Json JsonBuild(const std::optional<int32_t>& build) {
    return build ? Json(*build) : Json();
}

Json ToJson(const DatabaseReport& report) {
    const bool readable = report.error.empty();
    const auto whenReadable = [&](const Json& value) { return readable ? value : Json(); };
    return {
        {"name", report.name},
        {"build", whenReadable(report.builds.empty() ? Json() : Json(BuildsOf(report)))},
        {"title", whenReadable(report.title)},
        {"offline", report.offline},
        {"designHidden", whenReadable(report.designHidden)},
        {"designNotes", whenReadable(report.designNotes)},
        {"signedNotes", whenReadable(report.signedNotes)},
        {"changedNotes", whenReadable(report.changedNotes)},
        {"signers", whenReadable(report.signers)},
        {"replication", whenReadable(report.replication)},
        {"error", readable ? Json() : Json(report.error)},
    };
}

/** What is told about a server. */
struct ServerFacts {
    PatchFacts facts;
    std::vector<DatabaseReport> reports;
    std::optional<std::string> holder; // the command that is changing the server now
    std::optional<std::string> deadRun;
};

ServerFacts LookAt(const ServerFolder& server) {
    return {ReadPatchFacts(server), ReadDatabases(server.DatabaseNames()), HolderOf(server.DataDirectory()),
            DeadRunOf(server)};
}

/** What stands in the way of calling the server sound, the gravest first; empty when nothing does. That it is behind
 *  the patch does not. */
std::string ProblemOf(const ServerFolder& server, const ServerFacts& findings) {
    if (findings.deadRun) {
        return server.Path().string() + ": " + DescribeDeath(*findings.deadRun) + "; the next run, or " +
               CommandOn(server.Path(), "restore") + ", puts back " + server.ProductFolder().string() +
               " as it was before";
    }
    if (!findings.facts.problem.empty()) {
        const Finding fault = FindPatchFaults(server).front();
        return DescribeWithRemedy(fault);
    }
    if (!findings.facts.undelivered.empty()) {
        return DescribeUndelivered(findings.facts);
    }
    return DescribeError(server.ProductFolder(), findings.reports);
}

Json JsonText(const std::optional<std::string>& text) {
    return text && !text->empty() ? Json(*text) : Json();
}

Json UpToDate(const ServerFacts& findings) {
    if (!findings.facts.patchBuild) {
        return {};
    }
    return CompareWithBuild(findings.reports, *findings.facts.patchBuild).Reached() &&
           findings.facts.undelivered.empty() && !findings.deadRun;
}

void AddTo(Report& report, const ServerFacts& findings) {
    Json databases = Json::array();
    for (const DatabaseReport& each : findings.reports) {
        databases.push_back(ToJson(each));
    }
    report["installedVersion"] = JsonText(findings.facts.installedVersion);
    report["installedBuild"] = JsonBuild(findings.facts.installedBuild);
    report["patchBuild"] = JsonBuild(findings.facts.patchBuild);
    report["upToDate"] = UpToDate(findings);
    report["goingOn"] = JsonText(findings.holder);
    report["deadRun"] = JsonText(findings.deadRun);
    report["databases"] = std::move(databases);
}

std::string TextOf(const std::optional<int32_t>& build) {
    return build ? BuildText(*build) : "unknown";
}

std::string StateText(const ServerFacts& findings) {
    if (!findings.facts.patchBuild) {
        return "unknown";
    }
    const UpgradeState state = CompareWithBuild(findings.reports, *findings.facts.patchBuild);
    return std::to_string(state.databases - state.behind.size()) + " of " + std::to_string(state.databases) +
           " product databases at the patch's build";
}

void PrintText(const ServerFolder& server, const ServerFacts& findings) {
    std::vector<std::vector<std::string>> rows = {
        {"Server", server.Path().string()},
        {"Program build", findings.facts.installedVersion.empty() ? "unknown" : findings.facts.installedVersion},
        {"Patch build", TextOf(findings.facts.patchBuild)},
        {"State", StateText(findings)}};
    if (findings.holder) {
        rows.push_back({"Going on", *findings.holder});
    }
    if (findings.deadRun) {
        rows.push_back({"Died", *findings.deadRun + "; the next run undoes it and starts anew"});
    }
    std::cout << FormatTable(rows) << '\n' << FormatDatabases(findings.reports);
}

} // namespace

ExitCode Status(const StatusOptions& options, Report& report) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    const ServerFacts findings = LookAt(server);
    report["server"] = server.Path().string();
    AddTo(report, findings);
    PrintText(server, findings);
    if (findings.holder) {
        throw Failure(heldByAnother, server.Path().string() + ": is being changed: " + *findings.holder);
    }
    if (const std::string problem = ProblemOf(server, findings); !problem.empty()) {
        throw Failure(failed, problem);
    }
    return UpToDate(findings) == true ? succeeded : changesPending;
}

} // namespace krxpatch
