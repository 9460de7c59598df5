#include "commands.h"

#include <chrono>
#include <memory>
#include <sstream>

#include "database_report.h"
#include "embedded_notes.h"
#include "end_state.h"
#include "folder_view.h"
#include "hold.h"
#include "lost_changes.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"
#include "report_output.h"
#include "server_copy.h"
#include "server_folder.h"

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

void RequireQuiet(const ServerFolder& server) {
    if (const auto holder = HolderOf(server.DataDirectory())) {
        throw Failure(heldByAnother, server.Path().string() + ": is being changed: " + *holder);
    }
    if (const auto run = DeadRunOf(server)) {
        throw Failure(notStarted, server.Path().string() + ": a run died: " + *run +
                                      "; first `krxpatch restore` is to put back what it has changed");
    }
}

/** A plan that writes its page into the folder would not leave it as it was. */
void RequireOutside(const fs::path& html, const ServerFolder& server) {
    if (html.empty()) {
        return;
    }
    if (IsBelow(fs::absolute(html), server.Path())) {
        throw Failure(notStarted, html.string() + ": lies in the server folder, in which a plan writes nothing");
    }
}

std::string FetchIdName() {
    char name[1024];
    (void)EmbIdName(name, sizeof name); // names are shorter
    return name;
}

std::unique_ptr<ServerCopy> CopyOf(const ServerFolder& server, const PatchFacts& facts) {
    try {
        return std::make_unique<ServerCopy>(server, facts);
    } catch (const fs::filesystem_error& error) {
        throw Failure(notStarted, error.path1().string() + ": cannot be copied: " + error.code().message());
    }
}

/** Everything that needs the session of the server itself, which only reads. With nothing to do the findings are of the
 *  server as it is. */
Original Look(const PlanOptions& options, ChangeReport& report) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    RequireOutside(options.output.html, server);
    RequireQuiet(server);
    Original original{ViewOf(server), ReadPatchFacts(server), FetchIdName(), nullptr};
    if (!original.facts.patchBuild) {
        throw Failure(notStarted, original.facts.problem);
    }
    report.before = server.Path().string();
    report.patchBuild = BuildText(*original.facts.patchBuild);
    if (CompareWithBuild(ReadDatabases(server.DatabaseNames()), *original.facts.patchBuild).Reached()) {
        report.findings = ExamineEndState(server, original.facts);
    } else {
        original.copy = CopyOf(server, original.facts);
    }
    return original;
}

std::vector<ConsoleCommand> ConsoleCommands() {
    std::string transcript(EmbConsoleTranscript(nullptr, 0) + 1, '\0'); // with the terminator
    (void)EmbConsoleTranscript(transcript.data(), static_cast<DWORD>(transcript.size()));
    std::vector<ConsoleCommand> commands;
    std::istringstream lines(transcript.c_str());
    for (std::string time, outcome, command;
         std::getline(lines, time, '\t') && std::getline(lines, outcome, '\t') && std::getline(lines, command);) {
        commands.push_back({command, outcome});
    }
    return commands;
}

/** Runs the module on the copy, and returns the copy's databases. */
DatabaseFolder Upgrade(const PlanOptions& options, const ServerCopy& copy, ChangeReport& report) {
    const ServerFolder server(copy.Path(), ServerFolder::Access::readWrite);
    const platform::Library module(options.module);
    auto* const entry = module.Find<STATUS()>("MainEntryPoint");
    EmbClockSkipPauses();
    const auto start = std::chrono::steady_clock::now();
    (void)entry(); // 0 whatever happened; the outcome is read from the databases
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report.console = ConsoleCommands();
    report.findings = ExamineEndState(server, ReadPatchFacts(server));
    for (StateFinding& finding : report.findings) {
        finding.text = copy.AsOriginal(std::move(finding.text));
        finding.remedy = copy.AsOriginal(std::move(finding.remedy));
    }
    for (ConsoleCommand& command : report.console) {
        command.outcome = copy.AsOriginal(std::move(command.outcome));
    }
    return ViewOf(server);
}

/** That all is well with a database goes without saying in a plan. */
void KeepProblems(std::vector<StateFinding>& findings) {
    std::erase_if(findings, [](const StateFinding& finding) { return finding.level == StateFinding::Level::ok; });
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
    AddFailures(report, original.copy ? "would-fail" : "not-as-it-should-be");
    KeepProblems(report.findings);
    if (report.exitCode == succeeded && (!report.databases.empty() || !report.files.empty())) {
        report.exitCode = changesPending;
    }
}

} // namespace

ExitCode Plan(const PlanOptions& options) {
    return OutputReport("plan", options.output, [&](ChangeReport& report) { MakePlan(options, report); });
}

} // namespace krxpatch
