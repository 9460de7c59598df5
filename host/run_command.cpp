#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "behaviours.h"
#include "checks.h"
#include "commands.h"
#include "database_report.h"
#include "database_table.h"
#include "embedded_notes.h"
#include "end_state.h"
#include "foundation/debug_log.h"
#include "foundation/product_databases.h"
#include "history.h"
#include "hold.h"
#include "json_report.h"
#include "log_lines.h"
#include "lost_changes.h"
#include "platform.h"
#include "progress.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "session_view.h"
#include "text_table.h"
#include "upgrade_module.h"

namespace krxpatch {
namespace {

/** A run from its beginning to its end. It shows what happens as it happens, unless the report is for a program. */
class Upgrade {
public:
    Upgrade(const RunOptions& options, const UpgradeModule& module, ChangeReport& report)
        : options_(options), module_(module), report_(report), out_(options.output.json ? nowhere_ : std::cout),
          description_(DescribeThis("run")) {}

    void Run();

private:
    /** The three parts of the work, each in a session of its own; the first two only read databases. */
    void PutBackDeadRun();
    [[nodiscard]] bool IsAnythingToDo();
    void UpgradeDatabases();

    void RequireGoodChecks(const CheckSubject& subject, bool afterDeadRun);
    [[nodiscard]] std::vector<std::string> CallModule(const ServerFolder& server);
    [[noreturn]] void EndInterrupted();
    [[noreturn]] void EndFailed(ExitCode exitCode, const std::string& what);
    void Judge(const ServerFolder& server, const std::vector<DatabaseReport>& reports,
               const std::vector<std::string>& messages);
    void TellCauses(const ServerFolder& server);
    void AddChanges(const ServerFolder& server, const std::set<std::string>& wereOffline);

    const RunOptions& options_;
    const UpgradeModule& module_;
    ChangeReport& report_;
    std::ostream nowhere_{nullptr};
    std::ostream& out_;
    std::string description_;
    std::optional<platform::HeldFile> hold_;
    std::optional<Chronicle> chronicle_; // once something may be touched
    bool isTouched_ = false;
    std::string overruled_; // what --force went on in spite of, as a sentence; may be empty
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

/** Lines of two tab-separated fields: time, text. */
void ShowServerLog(std::ostream& out, std::string_view log) {
    std::istringstream lines{std::string(log)};
    const char* heading = "\nServer log\n";
    for (std::string time, text; std::getline(lines, time, '\t') && std::getline(lines, text);) {
        out << std::exchange(heading, "") << "  " << Printable(text) << '\n';
    }
}

/** Why databases are behind, in words, with the line of the log that tells it; to be put in front of what is
 *  lacking. */
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

void ShowHead(std::ostream& out, const ServerFolder& server, const PatchFacts& facts, const RecoveryCopy& copy) {
    std::vector<std::vector<std::string>> rows = {
        {"Server", server.Path().string()}, {"Patch build", BuildText(*facts.patchBuild)}, {"Safety copy", copy.id}};
    if (updkrx::IsDebugLogEnabled()) {
        rows.push_back({"Module's log", server.LogFolder().string()});
    }
    if (std::string behaviours = DescribeBehaviours(); !behaviours.empty()) {
        rows.push_back({"Behaviours", std::move(behaviours)});
    }
    out << FormatTable(rows) << '\n';
}

/** A module that has died on a server keeps what it had out in files of such names, and puts it back when it is
 *  called. */
bool HasKeptFiles(const ServerFolder& server) {
    return std::ranges::any_of(std::filesystem::directory_iterator(server.ProductFolder()), [](const auto& entry) {
        const std::string name = entry.path().filename().string();
        return name.find(".updkrx-") != std::string::npos && !name.ends_with("old"); // which no run picks up
    });
}

/** A server that was started again after the run died has taken mail since, which putting back would lose. The run left
 *  its last sign in its log, or when it began. */
void RequireNothingSince(const ServerFolder& server, const RecoveryCopy& copy) {
    namespace fs = std::filesystem;
    constexpr auto quiet = std::chrono::minutes(10); // that the module may work without a line
    std::error_code ignored;                         // what is not there has no time
    fs::file_time_type last = fs::last_write_time(copy.Folder() / "ended.next", ignored);
    for (const fs::directory_entry& entry : fs::directory_iterator(server.LogFolder(), ignored)) {
        last = std::max(last, entry.last_write_time(ignored));
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(server.ProductFolder(), ignored)) {
        if (entry.is_regular_file(ignored) && entry.last_write_time(ignored) > last + quiet) {
            throw Failure(notStarted, entry.path().string() +
                                          ": was written after the run that died. Putting back what that run changed "
                                          "would lose it: " +
                                          CommandOn(server.Path(), "restore") + " does so, and so does --force");
        }
    }
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
    std::vector<Finding> findings = RunChecks(subject, afterDeadRun ? unsigned{ofFolder} : 0U);
    if (afterDeadRun && !AnyFails(findings)) {
        return; // all of them are made again in a moment
    }
    KeepProblems(findings);
    const bool mayForce = !AnyIsFinal(findings);
    if (AnyFails(findings) && !(options_.force && mayForce)) {
        if (!subject.isHeld) {
            RequireNotHeld(subject.server.DataDirectory()); // whoever came in between is the cause of all
        }
        RefuseFor(report_, std::move(findings), "would-fail",
                  "; " + CommandOn(subject.server.Path(), "check") + " tells all" +
                      (afterDeadRun ? ", and " + CommandOn(subject.server.Path(), "restore") +
                                          " puts back what the run that died changed"
                       : mayForce && subject.facts.patchBuild ? ", and --force goes on all the same"
                                                              : ""));
    }
    const auto worst = std::ranges::find(findings, Level::failure, &Finding::level);
    overruled_ = worst == findings.end() ? "" : "--force went on though " + Describe(*worst) + ". ";
    out_ << FormatFindings(findings, options_.output.colour);
}

void Upgrade::PutBackDeadRun() {
    const ServerFolder server(options_.server, ServerFolder::Access::readOnly);
    RequireNotHeld(server.DataDirectory());
    const auto copy = UnendedCopyOf(server.ProductFolder());
    if (!copy) {
        return;
    }
    RequireGoodChecks(Examine(server, false), true);
    if (!options_.force) {
        RequireNothingSince(server, *copy);
    }
    hold_.emplace(Hold(server.DataDirectory(), description_));
    out_ << "Before this run " << DescribeDeath(copy->Dead()) << ". What it changed is put back first.\n\n"
         << std::flush;
    chronicle_.emplace(server.Path(), "run");
    isTouched_ = true;
    (void)PutBack(server, *copy, description_); // what is removed is of the run that died: nobody has written since
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
    report_.patchBuild = BuildText(*facts_.patchBuild);
    if (!chronicle_) {
        chronicle_.emplace(server.Path(), "run");
    }
    report_.builds = DescribeBuilds(subject.databases);
    chronicle_->Note(report_.builds, report_.builds);
    if (!CompareWithBuild(subject.databases, *facts_.patchBuild).Reached() || HasKeptFiles(server)) {
        return true;
    }
    if (!hold_ &&
        std::filesystem::exists(HoldFile(server.DataDirectory()))) { // a run that died at its very end has left traces
        hold_.emplace(Hold(server.DataDirectory(), description_));
        RemoveHalfMarks(server.ProductFolder());
    }
    out_ << FormatDatabases(subject.databases) << '\n';
    Judge(server, subject.databases, {});
    return false;
}

/** What the module has under way cannot be stopped, so that the process ends as it is: the databases stand a sudden
 *  end, and the copy holds what they were. */
void Upgrade::EndInterrupted() {
    const std::string text =
        "interrupted while the module was at work: the databases are half upgraded. The safety copy " + copy_->id +
        " has them as they were: " + CommandOn(options_.server, "restore") +
        " puts them back, and so does the next run";
    chronicle_->End(NameOf(interrupted), text);
    report_.exitCode = interrupted;
    report_.errors = {{NameOf(interrupted), text}};
    if (options_.output.json) {
        PrintJson(std::cout, report_);
    }
    std::cout << std::flush;
    std::cerr << "\nkrxpatch: " << text << std::endl;
    std::_Exit(interrupted);
}

/** Returns what the module has logged. */
std::vector<std::string> Upgrade::CallModule(const ServerFolder& server) {
    Progress progress(out_, server, TotalsOf(facts_), options_.verbose);
    const auto start = std::chrono::steady_clock::now();
    module_.Run([&] {
        progress.ShowNews();
        if (platform::IsInterrupted()) {
            EndInterrupted();
        }
    });
    report_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report_.withPauses = options_.realTime;
    return progress.Messages();
}

/** Adds to the report what is not as it should be. What a run has really reached is judged here and nowhere else. */
void Upgrade::Judge(const ServerFolder& server, const std::vector<DatabaseReport>& reports,
                    const std::vector<std::string>& messages) {
    std::vector<Finding> findings = ExamineEndState(server, facts_);
    KeepProblems(findings);
    AddFailures(report_, findings, "not-as-it-should-be");
    report_.findings = std::move(findings);
    if (const UpgradeState state = CompareWithBuild(reports, *facts_.patchBuild); !state.Reached()) {
        // The findings tell what follows from that.
        report_.exitCode = failed;
        report_.errors = {{NameOf(failed), CauseInLog(state, messages) + server.ProductFolder().string() + ": " +
                                               DescribeBehind(state, *facts_.patchBuild) + ". " +
                                               CommandOn(server.Path(), "restore") +
                                               " puts back what was there before"}};
    }
}

/** What was known before counts more than what follows from it; a full disk nobody else may have had the room to
 *  tell. */
void Upgrade::TellCauses(const ServerFolder& server) {
    if (report_.errors.empty()) {
        return;
    }
    std::string& message = report_.errors.front().message;
    message.insert(0, overruled_);
    constexpr uintmax_t little = 1 << 20;
    if (const uintmax_t left = std::filesystem::space(server.ProductFolder()).available; left < little) {
        message.insert(0, "The disk is full: " + std::to_string(left) + " bytes are left. ");
    }
}

/** What the run has changed, item by item: for a report that somebody keeps. */
void Upgrade::AddChanges(const ServerFolder& server, const std::set<std::string>& wereOffline) {
    const DatabaseFolder before{copy_->Folder() / server.ProductFolder().filename(), wereOffline};
    ChangeReport changes;
    CompareFolders(before, ViewOf(server), changes);
    MarkLostChanges(changes, {before.path, facts_.programFolder, IdInUse()});
    report_.databases = std::move(changes.databases);
    report_.files = std::move(changes.files);
    report_.equalDatabases = changes.equalDatabases;
}

void Upgrade::UpgradeDatabases() {
    const ServerFolder server(options_.server, ServerFolder::Access::readWrite);
    if (!hold_) { // a run that is refused leaves no trace, not even in the time of a folder
        hold_.emplace(Hold(server.DataDirectory(), description_));
        if (NewestCopyOf(server) != newestCopy_) {
            throw Failure(heldByAnother, server.Path().string() + ": another run came in between: run again");
        }
    }
    if (!copy_) {
        out_ << "Making the safety copy (" << Megabytes(SizeOf(server.ProductFolder())) << ")\n" << std::flush;
    }
    copy_ = copy_ ? Reuse(*copy_, description_) : MakeCopy(server, description_);
    report_.safetyCopy = copy_->id;
    if (platform::IsInterrupted()) {
        throw Failure(interrupted, "interrupted before anything was changed");
    }
    if (!options_.realTime) {
        EmbClockSkipPauses();
    }
    const std::vector<DatabaseReport> before = ReadDatabases(server.DatabaseNames());
    const std::set<std::string> wereOffline = ViewOf(server).offline;
    ShowHead(out_, server, facts_, *copy_);
    const size_t logged = EmbServerLog(nullptr, 0); // what reading the databases added is not the run's
    isTouched_ = true;
    chronicle_->KeepRoom();
    MarkBegun(*copy_);
    const std::vector<std::string> messages = CallModule(server);
    MarkEnded(*copy_, outcome::bad); // until it is judged; from here on what the run left is what counts
    report_.console = ConsoleCommands();
    ShowServerLog(out_, std::string_view(Fetch(EmbServerLog)).substr(logged));

    const std::vector<DatabaseReport> after = ReadDatabases(NamesOf(before, server));
    out_ << '\n' << FormatDatabases(before, after) << '\n';
    report_.builds = DescribeBuilds(after);
    chronicle_->Note(DescribeBuilds(before), report_.builds);
    Judge(server, after, messages);
    TellCauses(server);
    if (options_.output.json || !options_.output.html.empty()) {
        AddChanges(server, wereOffline);
    }
    if (report_.errors.empty()) {
        MarkEnded(*copy_, outcome::good);
        DiscardOthers(*copy_);
    }
}

/** However a run ends, the history tells it, and the exit code whether anything was touched. */
void Upgrade::EndFailed(ExitCode exitCode, const std::string& what) {
    if (isTouched_ && exitCode == notStarted) {
        exitCode = failed;
    } else if (!isTouched_ && exitCode == failed) {
        exitCode = notStarted;
    }
    if (chronicle_ && exitCode != notStarted) {
        chronicle_->End(NameOf(exitCode), what);
    }
    throw Failure(exitCode, what);
}

void Upgrade::Run() {
    try {
        PutBackDeadRun();
        if (IsAnythingToDo()) {
            UpgradeDatabases();
        }
    } catch (const Failure& failure) {
        EndFailed(failure.Code(), failure.what());
    } catch (const std::filesystem::filesystem_error& error) {
        EndFailed(failed, CauseOf(error));
    }
    chronicle_->End(NameOf(report_.exitCode), report_.errors.empty() ? "" : Summary(report_));
}

} // namespace

ExitCode Run(const RunOptions& options) {
    platform::NoteInterrupts();
    std::string builds;
    const ExitCode exitCode = OutputReport("run", options.output, [&](ChangeReport& report) {
        report.before = std::filesystem::absolute(options.server).lexically_normal().string();
        const UpgradeModule module(options.module);
        Upgrade(options, module, report).Run();
        builds = report.builds;
    });
    if (exitCode == succeeded && !std::cout.flush()) { // nobody may take a finished upgrade for one that failed
        throw Failure(succeeded, "standard output: cannot be written; the product databases carry build " + builds);
    }
    return exitCode;
}

} // namespace krxpatch
