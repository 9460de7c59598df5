#include <iostream>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "database_report.h"
#include "database_table.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

using Json = nlohmann::ordered_json;

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

void PrintJson(const ServerFolder& server, const PatchFacts& facts, const std::vector<DatabaseReport>& reports) {
    Json databases = Json::array();
    for (const DatabaseReport& report : reports) {
        databases.push_back(ToJson(report));
    }
    const Json status = {
        {"server", server.Path().string()},
        {"installedBuild", JsonBuild(facts.installedBuild)},
        {"patchBuild", JsonBuild(facts.patchBuild)},
        {"upToDate", facts.patchBuild ? Json(CompareWithBuild(reports, *facts.patchBuild).Reached()) : Json()},
        {"databases", databases},
        {"error", facts.problem.empty() ? Json() : Json(facts.problem)},
    };
    // Names that are no UTF-8 are shown with replacement characters rather than not at all.
    std::cout << status.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::string TextOf(const std::optional<int32_t>& build) {
    return build ? BuildText(*build) : "unknown";
}

std::string StateText(const PatchFacts& facts, const std::vector<DatabaseReport>& reports) {
    if (!facts.patchBuild) {
        return "unknown";
    }
    const UpgradeState state = CompareWithBuild(reports, *facts.patchBuild);
    return std::to_string(state.databases - state.behind.size()) + " of " + std::to_string(state.databases) +
           " product databases at the patch's build";
}

void PrintText(const ServerFolder& server, const PatchFacts& facts, const std::vector<DatabaseReport>& reports) {
    std::cout << FormatTable({{"Server", server.Path().string()},
                              {"Installed build", TextOf(facts.installedBuild)},
                              {"Patch build", TextOf(facts.patchBuild)},
                              {"State", StateText(facts, reports)}})
              << '\n'
              << FormatDatabases(reports);
}

} // namespace

ExitCode Status(const StatusOptions& options) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    const PatchFacts facts = ReadPatchFacts(server);
    const std::vector<DatabaseReport> reports = ReadDatabases(server.DatabaseNames());
    (options.json ? PrintJson : PrintText)(server, facts, reports);

    if (!facts.problem.empty()) {
        throw Failure(failed, facts.problem);
    }
    for (const DatabaseReport& report : reports) {
        if (!report.error.empty()) {
            throw Failure(failed, (server.ProductFolder() / report.name).string() + ": " + report.error);
        }
    }
    return succeeded;
}

} // namespace krxpatch
