#include "commands.h"

#include <algorithm>
#include <iterator>

#include "end_state.h"
#include "hold.h"
#include "recovery_copy.h"
#include "report_output.h"
#include "server_folder.h"

namespace krxpatch {
namespace {

void VerifyServer(const VerifyOptions& options, ChangeReport& report) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    report.before = server.Path().string();
    RequireNotHeld(server.DataDirectory()); // half an upgrade is not to be judged
    const PatchFacts facts = ReadPatchFacts(server);
    if (!facts.patchBuild) {
        throw Failure(notStarted, facts.problem);
    }
    report.patchBuild = BuildText(*facts.patchBuild);
    if (const auto run = DeadRunOf(server)) { // the cause of all that follows
        report.findings.push_back(
            {Level::failure, "server", {}, 0, DescribeDeath(*run), "`krxpatch restore` puts back what it has changed"});
    }
    std::ranges::move(ExamineEndState(server, facts), std::back_inserter(report.findings));
    AddFailures(report, report.findings, "not-as-it-should-be");
}

} // namespace

ExitCode Verify(const VerifyOptions& options) {
    return OutputReport("verify", options.output, [&](ChangeReport& report) { VerifyServer(options, report); });
}

} // namespace krxpatch
