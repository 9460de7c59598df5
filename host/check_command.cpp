#include <iostream>
#include <optional>

#include <nlohmann/json.hpp>

#include "checks.h"
#include "commands.h"
#include "findings_json.h"

namespace krxpatch {
namespace {

/** Also of a folder that no session can be begun on: that is a finding like others. */
std::vector<Finding> FindAll(const std::filesystem::path& folder) {
    std::optional<ServerFolder> server;
    try {
        server.emplace(folder, ServerFolder::Access::readOnly);
    } catch (const Failure& failure) {
        return {{"server folder", Level::failure, {}, 0, failure.what(), "correct that, then check again"}};
    }
    return RunChecks(Examine(*server, false));
}

} // namespace

ExitCode CheckServer(const CheckOptions& options, Report& report) {
    const std::vector<Finding> findings = FindAll(options.server);
    AddFindings(report, findings);
    std::cout << FormatFindings(findings, false, options.colour);
    const bool fails = AnyFails(findings);
    std::cout << (fails ? "\nAn upgrade would fail.\n" : "\nNothing stands in the way of an upgrade.\n");
    return fails ? failed : succeeded;
}

} // namespace krxpatch
