#include "commands.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "checks.h"
#include "end_state.h"
#include "hold.h"
#include "recovery_copy.h"
#include "report_output.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

void VerifyServer(const VerifyOptions& options, ChangeReport& report) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    report.before = server.Path().string();
    RequireNotHeld(server.DataDirectory()); // half an upgrade is not to be judged
    const PatchFacts facts = ReadPatchFacts(server);
    if (const auto run = DeadRunOf(server)) { // the cause of all that follows
        report.findings.push_back({Level::failure,
                                   "server",
                                   {},
                                   0,
                                   DescribeDeath(*run),
                                   CommandOn(server.Path(), "restore") + " puts back what it has changed"});
    }
    if (!facts.patchBuild) {
        std::ranges::move(FindPatchFaults(server), std::back_inserter(report.findings));
        RefuseFor(report, std::exchange(report.findings, {}), NameOf(notStarted));
    }
    report.patchBuild = BuildText(*facts.patchBuild);
    std::ranges::move(ExamineEndState(server, facts), std::back_inserter(report.findings));
    AddFailures(report, report.findings, "not-as-it-should-be");
}

} // namespace

ExitCode Verify(const VerifyOptions& options) {
    return OutputReading("verify", options.output, [&](ChangeReport& report) { VerifyServer(options, report); });
}

} // namespace krxpatch
