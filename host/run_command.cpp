#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "commands.h"
#include "database_report.h"
#include "database_table.h"
#include "embedded_notes.h"
#include "failure_cause.h"
#include "foundation/debug_log.h"
#include "hold.h"
#include "log_follower.h"
#include "platform.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

using MainEntryPoint = STATUS();

/** A text of the platform, which nothing adds to meanwhile. */
std::string Fetch(DWORD(LNPUBLIC* fetch)(char* buffer, DWORD size)) {
    const DWORD length = fetch(nullptr, 0);
    std::string text(length + 1, '\0'); // with the terminator
    (void)fetch(text.data(), length + 1);
    text.resize(length);
    return text;
}

/** What is shown of the run while it goes on. */
class Progress {
public:
    explicit Progress(const ServerFolder& server) : log_(server.LogFolder()) {
        std::error_code ignored;
        if (!updkrx::IsDebugLogEnabled()) {
            std::cout << "Steps cannot be shown: the module's log is off (KRX_ENABLE_KRENCY_LOG is not 1 in "
                      << server.IniFile().string() << ").\n";
        } else if (!std::filesystem::is_directory(server.LogFolder(), ignored)) {
            std::cout << "Steps cannot be shown: there is no folder for the module's log, "
                      << server.LogFolder().string() << ".\n";
        } else {
            std::cout << "Steps\n";
        }
    }

    void ShowNews() {
        for (const std::string& message : log_.TakeNewMessages()) {
            std::cout << "  " << Printable(message) << '\n';
            messages_.push_back(message);
        }
        std::cout.flush();
    }

    /** What was shown. */
    [[nodiscard]] const std::vector<std::string>& Messages() const noexcept { return messages_; }

private:
    LogFollower log_;
    std::vector<std::string> messages_;
};

void CallModule(MainEntryPoint* entry, Progress& progress) {
    constexpr auto interval = std::chrono::milliseconds(50);
    // Its result is 0 whatever happened; the outcome is read from the databases.
    std::future<STATUS> call = std::async(std::launch::async, entry);
    while (call.wait_for(interval) != std::future_status::ready) {
        progress.ShowNews();
    }
    progress.ShowNews();
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

void RequireAbsoluteDataDirectory(const ServerFolder& server) {
    if (!server.DataDirectory().is_absolute()) { // the module would take it from wherever this program was started
        throw Failure(notStarted, server.IniFile().string() + ": Directory=" + server.DataDirectory().string() +
                                      " is not an absolute path");
    }
}

/** What the log says to databases that are behind. */
std::string CauseInLog(const UpgradeState& state, const std::vector<std::string>& messages) {
    std::vector<std::string> names;
    for (const DatabaseReport& report : state.behind) {
        names.push_back(report.name);
    }
    if (const std::string cause = FindCause(messages, names); !cause.empty()) {
        return "; the log says: " + Printable(cause);
    }
    if (!messages.empty()) {
        return "; the log ends: " + Printable(messages.back());
    }
    return updkrx::IsDebugLogEnabled() ? "" : "; the module's log, which would say why, is off";
}

/** Throws Failure with all that is lacking. */
void RequireUpgraded(const ServerFolder& server, const PatchFacts& facts, const std::vector<DatabaseReport>& reports,
                     const std::vector<std::string>& messages) {
    const UpgradeState state = CompareWithBuild(reports, *facts.patchBuild);
    std::string reason = DescribeError(server.ProductFolder(), reports); // a template, when the databases are right
    if (!state.Reached()) {
        reason = server.ProductFolder().string() + ": " + DescribeBehind(state, *facts.patchBuild) +
                 CauseInLog(state, messages);
    }
    if (!facts.undelivered.empty()) {
        reason += (reason.empty() ? "" : "; ") + DescribeUndelivered(facts);
    }
    if (!reason.empty()) {
        throw Failure(failed, reason);
    }
}

/** The platform's behaviours that are not the default, as notes.ini names them. */
std::string DescribeBehaviours() {
    std::string text;
    for (DWORD i = 0; const char* name = EmbBehaviourName(i); ++i) {
        if (const std::string value = EmbBehaviourInForce(name); value != EmbBehaviourValue(name, 0)) {
            text += (text.empty() ? "" : ",") + std::string(name) + "=" + value;
        }
    }
    return text;
}

void ShowHead(const ServerFolder& server, const PatchFacts& facts) {
    std::vector<std::vector<std::string>> rows = {{"Server", server.Path().string()},
                                                  {"Patch build", BuildText(*facts.patchBuild)}};
    if (updkrx::IsDebugLogEnabled()) {
        rows.push_back({"Module's log", server.LogFolder().string()});
    }
    if (std::string behaviours = DescribeBehaviours(); !behaviours.empty()) {
        rows.push_back({"Behaviours", std::move(behaviours)});
    }
    std::cout << FormatTable(rows) << '\n';
}

/** What a dead run has changed must neither stay nor count as the state before this one. */
void TellOfDeadRun(const ServerFolder& server) {
    if (const auto run = RunWithCopyOf(server.ProductFolder())) {
        std::cout << "An earlier run died: " << *run << ". What it changed is put back first.\n\n" << std::flush;
    }
}

} // namespace

ExitCode Run(const RunOptions& options) {
    const ServerFolder server(options.server, ServerFolder::Access::readWrite);
    RequireAbsoluteDataDirectory(server);
    const PatchFacts facts = ReadPatchFacts(server);
    if (!facts.patchBuild) {
        throw Failure(notStarted, facts.problem);
    }
    const platform::Library module(options.module);
    auto* const entry = module.Find<MainEntryPoint>("MainEntryPoint");

    const std::string run = DescribeThis("run");
    const platform::HeldFile hold = HoldServer(server.Path(), run);
    TellOfDeadRun(server);
    RecoveryCopy copy(server, run);

    if (!options.realTime) {
        EmbClockSetVirtual(EmbClockNow());
    }
    const std::vector<DatabaseReport> before = ReadDatabases(server.DatabaseNames());
    const bool nothingToDo = CompareWithBuild(before, *facts.patchBuild).Reached();
    ShowHead(server, facts);
    const size_t logged = EmbServerLog(nullptr, 0); // what reading the databases added is not the run's
    Progress progress(server);
    CallModule(entry, progress);
    copy.Discard(); // from here on what the run left is what counts
    ShowConsoleCommands(Fetch(EmbConsoleTranscript));
    ShowServerLog(std::string_view(Fetch(EmbServerLog)).substr(logged));

    const std::vector<DatabaseReport> after = ReadDatabases(NamesOf(before, server));
    std::cout << '\n' << FormatDatabases(before, after) << '\n';
    RequireUpgraded(server, facts, after, progress.Messages());
    const std::string outcome = "the product databases carry build " + BuildText(*facts.patchBuild);
    std::cout << (nothingToDo ? "Nothing to do: " : "Done: ") << outcome << ".\n";
    if (!std::cout.flush()) { // nobody may take a finished upgrade for one that failed
        throw Failure(succeeded, "standard output: cannot be written; " + outcome);
    }
    return succeeded;
}

} // namespace krxpatch
