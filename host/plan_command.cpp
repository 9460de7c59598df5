#include "commands.h"

#include <chrono>
#include <memory>

#include "checks.h"
#include "database_report.h"
#include "embedded_notes.h"
#include "end_state.h"
#include "lost_changes.h"
#include "platform.h"
#include "recovery_copy.h"
#include "report_output.h"
#include "server_copy.h"
#include "server_folder.h"
#include "session_view.h"
#include "upgrade_module.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** What is known of the server itself, once its session has ended. */
struct Original {
    DatabaseFolder databases;
    PatchFacts facts;
    std::string idName;
    std::unique_ptr<ServerCopy> copy; // none: there is nothing to do
};

std::unique_ptr<ServerCopy> CopyOf(const ServerFolder& server, const PatchFacts& facts) {
    try {
        return std::make_unique<ServerCopy>(server, facts);
    } catch (const fs::filesystem_error& error) {
        throw Failure(notStarted, "the server cannot be copied: " + CauseOf(error));
    }
}

/** Everything that needs the session of the server itself, which only reads. With nothing to do the findings are of the
 *  server as it is. */
Original Look(const PlanOptions& options, ChangeReport& report) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    RequireAtRest(server);
    Original original{ViewOf(server), ReadPatchFacts(server), IdInUse(), nullptr};
    report.before = server.Path().string();
    if (!original.facts.patchBuild) {
        RefuseFor(report, FindPatchFaults(server), NameOf(notStarted));
    }
    report.patchBuild = BuildText(*original.facts.patchBuild);
    const CheckSubject subject = Examine(server, false);
    if (CompareWithBuild(subject.databases, *original.facts.patchBuild).Reached()) {
        report.findings = ExamineEndState(server, original.facts);
    } else {
        report.findings = RunChecks(subject, ofMoment);
        original.copy = CopyOf(server, original.facts);
    }
    return original;
}

/** Runs the module on the copy, and returns the copy's databases. */
DatabaseFolder Upgrade(const PlanOptions& options, const ServerCopy& copy, ChangeReport& report) {
    const ServerFolder server(copy.Path(), ServerFolder::Access::readWrite);
    const UpgradeModule module(options.module);
    EmbClockSkipPauses();
    const auto start = std::chrono::steady_clock::now();
    module.Run([&] {
        if (platform::IsInterrupted()) { // what the module has under way cannot be stopped
            copy.Remove();
            EndInterrupted("plan", options.output);
        }
    });
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report.console = ConsoleCommands();
    for (Finding& finding : ExamineEndState(server, ReadPatchFacts(server))) {
        finding.text = copy.AsOriginal(std::move(finding.text));
        finding.remedy = finding.remedy.empty() ? "" : "nothing was changed: mend the cause, then plan again";
        report.findings.push_back(std::move(finding));
    }
    for (ConsoleCommand& command : report.console) {
        command.outcome = copy.AsOriginal(std::move(command.outcome));
    }
    return ViewOf(server);
}

void MakePlan(const PlanOptions& options, ChangeReport& report) {
    const Original original = Look(options, report);
    if (original.copy) {
        const DatabaseFolder upgraded = Upgrade(options, *original.copy, report);
        CompareFolders(original.databases, upgraded, report);
        MarkLostChanges(report, {original.databases.path, original.facts.programFolder, original.idName});
        for (ReportError& error : report.errors) {
            error.message = original.copy->AsOriginal(std::move(error.message));
        }
    }
    if (platform::IsInterrupted()) {
        throw Failure(interrupted, "interrupted; nothing was changed");
    }
    AddFailures(report, report.findings, original.copy ? "would-fail" : "not-as-it-should-be");
    KeepProblems(report.findings);
    if (report.exitCode == succeeded && (!report.databases.empty() || !report.files.empty())) {
        report.exitCode = changesPending;
    }
}

} // namespace

ExitCode Plan(const PlanOptions& options) {
    platform::NoteInterrupts();
    return OutputReport("plan", options.output, [&](ChangeReport& report) { MakePlan(options, report); });
}

} // namespace krxpatch
