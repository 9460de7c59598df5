#include <optional>

#include "checks.h"
#include "commands.h"

namespace krxpatch {
namespace {

/** Also of a folder that no session can be begun on: that is a finding like others. */
std::vector<Finding> FindAll(const std::filesystem::path& folder) {
    std::optional<ServerFolder> server;
    try {
        server.emplace(folder, ServerFolder::Access::readOnly);
    } catch (const Failure& failure) {
        return {{Level::failure, "server folder", {}, 0, failure.what(), "correct that, then check again"}};
    }
    return RunChecks(Examine(*server, false));
}

} // namespace

ExitCode CheckServer(const CheckOptions& options) {
    return OutputReport("check", options.output, [&](ChangeReport& report) {
        report.before = options.server.string();
        report.findings = FindAll(options.server);
        AddFailures(report, report.findings, "would-fail");
    });
}

} // namespace krxpatch
