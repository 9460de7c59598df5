#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "behaviours.h"
#include "checks.h"
#include "commands.h"
#include "database_report.h"
#include "database_table.h"
#include "embedded_notes.h"
#include "findings_json.h"
#include "foundation/debug_log.h"
#include "foundation/product_databases.h"
#include "history.h"
#include "hold.h"
#include "log_lines.h"
#include "platform.h"
#include "progress.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

using MainEntryPoint = STATUS();

/** A run from its beginning to its end. */
class Upgrade {
public:
    Upgrade(const RunOptions& options, MainEntryPoint* entry, Report& report)
        : options_(options), entry_(entry), report_(report), description_(DescribeThis("run")) {}

    ExitCode Run();

private:
    /** The three parts of the work, each in a session of its own; the first two only read databases. */
    void PutBackDeadRun();
    [[nodiscard]] bool IsAnythingToDo();
    void UpgradeDatabases();

    void RequireGoodChecks(const CheckSubject& subject, bool afterDeadRun);
    void CallModule(Progress& progress);
    [[noreturn]] void EndInterrupted();
    void Judge(const ServerFolder& server, const std::vector<DatabaseReport>& reports,
               const std::vector<std::string>& messages);

    const RunOptions& options_;
    MainEntryPoint* entry_;
    Report& report_;
    std::string description_;
    std::optional<platform::HeldFile> hold_;
    std::optional<Chronicle> chronicle_; // once something may be touched
    std::optional<RecoveryCopy> copy_;
    std::string newestCopy_; // its ID when the checks were made
    PatchFacts facts_;
};

/** A text of the platform, which nothing adds to meanwhile. */
std::string Fetch(DWORD(LNPUBLIC* fetch)(char* buffer, DWORD size)) {
    const DWORD length = fetch(nullptr, 0);
    std::string text(length + 1, '\0'); // with the terminator
    (void)fetch(text.data(), length + 1);
    text.resize(length);
    return text;
}

/** Names of before and after: a database that the run lost is no less a result. */
std::vector<std::string> NamesOf(const std::vector<DatabaseReport>& before, const ServerFolder& server) {
    std::set<std::string> names;
    for (const DatabaseReport& report : before) {
        names.insert(report.name);
    }
    for (std::string& name : server.DatabaseNames()) {
        names.insert(std::move(name));
    }
    return {names.begin(), names.end()};
}

/** Lines of tab-separated fields: time, outcome, command. */
void ShowConsoleCommands(const std::string& transcript) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(transcript);
    for (std::string time, outcome, command;
         std::getline(lines, time, '\t') && std::getline(lines, outcome, '\t') && std::getline(lines, command);) {
        rows.push_back({"  " + command, outcome});
    }
    if (!rows.empty()) {
        std::cout << "\nConsole commands\n" << FormatTable(rows);
    }
}

/** Lines of two tab-separated fields: time, text. */
void ShowServerLog(std::string_view log) {
    std::istringstream lines{std::string(log)};
    const char* heading = "\nServer log\n";
    for (std::string time, text; std::getline(lines, time, '\t') && std::getline(lines, text);) {
        std::cout << std::exchange(heading, "") << "  " << Printable(text) << '\n';
    }
}

/** Why databases are behind, in words, with the line of the log that tells it; to be put in front of what is lacking.
 *  */
std::string CauseInLog(const UpgradeState& state, const std::vector<std::string>& messages) {
    std::vector<std::string> names;
    for (const DatabaseReport& report : state.behind) {
        names.push_back(report.name);
    }
    if (const std::string cause = FindCause(messages, names); !cause.empty()) {
        const std::string meaning = Explain(cause);
        return meaning + (meaning.empty() ? "" : " ") + "The log says: " + Printable(cause) + ". ";
    }
    return updkrx::IsDebugLogEnabled() ? "" : "The module's log, which would say why, is off. ";
}

void ShowHead(const ServerFolder& server, const PatchFacts& facts, const RecoveryCopy& copy) {
    std::vector<std::vector<std::string>> rows = {
        {"Server", server.Path().string()}, {"Patch build", BuildText(*facts.patchBuild)}, {"Safety copy", copy.id}};
    if (updkrx::IsDebugLogEnabled()) {
        rows.push_back({"Module's log", server.LogFolder().string()});
    }
    if (std::string behaviours = DescribeBehaviours(); !behaviours.empty()) {
        rows.push_back({"Behaviours", std::move(behaviours)});
    }
    std::cout << FormatTable(rows) << '\n';
}

/** A module that has died on a server keeps what it had out in files of such names, and puts it back when it is called.
 *  */
bool HasKeptFiles(const ServerFolder& server) {
    return std::ranges::any_of(std::filesystem::directory_iterator(server.ProductFolder()), [](const auto& entry) {
        return entry.path().filename().string().find(".updkrx-") != std::string::npos;
    });
}

/** Its ID; empty when there is none. */
std::string NewestCopyOf(const ServerFolder& server) {
    const std::vector<RecoveryCopy> copies = CopiesOf(server.ProductFolder());
    return copies.empty() ? "" : copies.front().id;
}

/** A step that comes for each file of the patch, or for each product database. */
Progress::Totals TotalsOf(const PatchFacts& facts) {
    const auto databases = static_cast<size_t>(std::ranges::count_if(
        facts.entries, [](const std::string& entry) { return entry.ends_with(".nsf") || entry.ends_with(".ntf"); }));
    return {{"replace", databases}, {"sign", updkrx::ProductDatabases.size()}};
}

void Upgrade::RequireGoodChecks(const CheckSubject& subject, bool afterDeadRun) {
    const std::vector<Finding> findings = RunChecks(subject, afterDeadRun);
    if (afterDeadRun && !AnyFails(findings)) {
        return; // all of them are made again in a moment
    }
    std::cout << FormatFindings(findings, true, options_.colour);
    if (AnyFails(findings) && !options_.force) {
        AddFindings(report_, findings);
        throw Failure(notStarted,
                      DescribeFailures(findings) + "; `krxpatch check` tells what to do" +
                          (afterDeadRun ? ", and `krxpatch restore` puts back what the run that died changed"
                                        : ", and --force goes on all the same"));
    }
    AddFindings(report_, findings);
    report_["errors"] = Report::array(); // they were overruled
}

void Upgrade::PutBackDeadRun() {
    const ServerFolder server(options_.server, ServerFolder::Access::readOnly);
    RequireNotHeld(server.DataDirectory());
    const auto copy = UnendedCopyOf(server.ProductFolder());
    if (!copy) {
        return;
    }
    RequireGoodChecks(Examine(server, false), true);
    hold_.emplace(Hold(server.DataDirectory(), description_));
    std::cout << "An earlier run died: " << copy->run << ". What it changed is put back first.\n\n" << std::flush;
    AddToHistory(server.Path(), {"run", copy->run, Now(), 0, "", "", "died", "what it changed is put back"});
    chronicle_.emplace(server.Path(), "run");
    PutBack(server, *copy);
    copy_ = *copy;
}

bool Upgrade::IsAnythingToDo() {
    const ServerFolder server(options_.server, ServerFolder::Access::readOnly);
    newestCopy_ = NewestCopyOf(server);
    const CheckSubject subject = Examine(server, hold_.has_value());
    RequireGoodChecks(subject, false);
    facts_ = subject.facts;
    if (!facts_.patchBuild) {
        throw Failure(notStarted, facts_.problem);
    }
    if (!chronicle_) {
        chronicle_.emplace(server.Path(), "run");
    }
    const std::string builds = DescribeBuilds(subject.databases);
    chronicle_->Note(builds, builds);
    if (!CompareWithBuild(subject.databases, *facts_.patchBuild).Reached() || HasKeptFiles(server)) {
        return true;
    }
    if (!hold_ && HasHoldFile(server.DataDirectory())) { // a run that died at its very end has left traces
        hold_.emplace(Hold(server.DataDirectory(), description_));
        RemoveHalfMarks(server.ProductFolder());
    }
    std::cout << FormatDatabases(subject.databases) << '\n';
    report_["builds"] = builds;
    Judge(server, subject.databases, {});
    std::cout << "Nothing to do: the product databases carry build " << builds << ".\n";
    return false;
}

/** What the module has under way cannot be stopped, so that the process ends as it is: the databases stand a sudden
 *  end, and the copy holds what they were. */
void Upgrade::EndInterrupted() {
    const std::string text =
        "interrupted while the module was at work: the databases are half upgraded. The safety copy " + copy_->id +
        " has them as they were: `krxpatch restore --server " + options_.server.string() +
        "` puts them back, and so does the next run";
    chronicle_->End(NameOf(interrupted), text);
    std::cout << std::flush;
    std::cerr << "\nkrxpatch: " << text << std::endl;
    std::_Exit(interrupted);
}

void Upgrade::CallModule(Progress& progress) {
    constexpr auto interval = std::chrono::milliseconds(50);
    // Its result is 0 whatever happened; the outcome is read from the databases.
    std::future<STATUS> call = std::async(std::launch::async, entry_);
    while (call.wait_for(interval) != std::future_status::ready) {
        progress.ShowNews();
        if (platform::IsInterrupted()) {
            EndInterrupted();
        }
    }
    progress.ShowNews();
}

/** Throws Failure with all that is lacking. What a run has really reached is judged here and nowhere else. */
void Upgrade::Judge(const ServerFolder& server, const std::vector<DatabaseReport>& reports,
                    const std::vector<std::string>& messages) {
    const UpgradeState state = CompareWithBuild(reports, *facts_.patchBuild);
    std::string reason = DescribeError(server.ProductFolder(), reports); // a template, when the databases are right
    if (!state.Reached()) {
        reason = CauseInLog(state, messages) + server.ProductFolder().string() + ": " +
                 DescribeBehind(state, *facts_.patchBuild);
    }
    if (!facts_.undelivered.empty()) {
        reason += (reason.empty() ? "" : "; ") + DescribeUndelivered(facts_);
    }
    if (!reason.empty()) {
        throw Failure(failed, reason + (copy_ ? ". `krxpatch restore` puts back what was there before" : ""));
    }
}

void Upgrade::UpgradeDatabases() {
    const ServerFolder server(options_.server, ServerFolder::Access::readWrite);
    if (!hold_) { // a run that is refused leaves no trace, not even in the time of a folder
        hold_.emplace(Hold(server.DataDirectory(), description_));
        if (NewestCopyOf(server) != newestCopy_) {
            throw Failure(heldByAnother, server.Path().string() + ": another run came in between: run again");
        }
    }
    copy_ = copy_ ? Reuse(*copy_, description_) : MakeCopy(server, description_);
    report_["copy"] = copy_->id;
    if (platform::IsInterrupted()) {
        MarkEnded(*copy_, outcome::putBack);
        throw Failure(interrupted, "interrupted before anything was changed");
    }
    if (!options_.realTime) {
        EmbClockSkipPauses();
    }
    const std::vector<DatabaseReport> before = ReadDatabases(server.DatabaseNames());
    ShowHead(server, facts_, *copy_);
    const size_t logged = EmbServerLog(nullptr, 0); // what reading the databases added is not the run's
    std::vector<std::string> messages;
    {
        Progress progress(server, TotalsOf(facts_), options_.verbose);
        CallModule(progress);
        messages = progress.Messages();
    }
    MarkEnded(*copy_, outcome::bad); // until it is judged; from here on what the run left is what counts
    ShowConsoleCommands(Fetch(EmbConsoleTranscript));
    ShowServerLog(std::string_view(Fetch(EmbServerLog)).substr(logged));

    const std::vector<DatabaseReport> after = ReadDatabases(NamesOf(before, server));
    std::cout << '\n' << FormatDatabases(before, after) << '\n';
    const std::string builds = DescribeBuilds(after);
    report_["builds"] = builds;
    chronicle_->Note(DescribeBuilds(before), builds);
    Judge(server, after, messages);
    MarkEnded(*copy_, outcome::good);
    DiscardOthers(*copy_);
    std::cout << "Done: the product databases carry build " << builds << ".\nThe safety copy " << copy_->id
              << " stays until the next run; `krxpatch restore --discard` removes it.\n";
}

ExitCode Upgrade::Run() {
    try {
        PutBackDeadRun();
        if (IsAnythingToDo()) {
            UpgradeDatabases();
        }
    } catch (const Failure& failure) {
        if (chronicle_ && failure.Code() != notStarted) {
            chronicle_->End(NameOf(failure.Code()), failure.what());
        }
        throw;
    }
    chronicle_->End(NameOf(succeeded));
    if (!std::cout.flush()) { // nobody may take a finished upgrade for one that failed
        throw Failure(succeeded, "standard output: cannot be written; the product databases carry build " +
                                     report_["builds"].get<std::string>());
    }
    return succeeded;
}

} // namespace

ExitCode Run(const RunOptions& options, Report& report) {
    const platform::Library module(options.module);
    return Upgrade(options, module.Find<MainEntryPoint>("MainEntryPoint"), report).Run();
}

} // namespace krxpatch
