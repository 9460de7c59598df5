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
#include "foundation/debug_log.h"
#include "log_follower.h"
#include "platform.h"
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
            const std::string shown = Printable(message);
            std::cout << "  " << shown << '\n';
            endOfLog_ = lastMessage_.empty() ? shown : lastMessage_ + " / " + shown;
            lastMessage_ = shown;
        }
        std::cout.flush();
    }

    /** The module's last two messages, of which the first is often the cause; empty when there are none. */
    [[nodiscard]] const std::string& EndOfLog() const noexcept { return endOfLog_; }

private:
    LogFollower log_;
    std::string lastMessage_;
    std::string endOfLog_;
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

std::string Reason(const UpgradeState& state, int32_t build) {
    constexpr size_t named = 3;
    if (state.databases == 0) {
        return "there is no product database to carry build " + BuildText(build);
    }
    std::vector<std::string> names = state.behind;
    if (names.size() > named) {
        names.resize(named);
        names.emplace_back("...");
    }
    return std::to_string(state.behind.size()) + " of " + std::to_string(state.databases) +
           " product databases do not carry build " + BuildText(build) + ": " + Join(names);
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
    if (!options.realTime) {
        EmbClockSetVirtual(EmbClockNow());
    }

    const std::vector<DatabaseReport> before = ReadDatabases(server.DatabaseNames());
    const bool nothingToDo = CompareWithBuild(before, *facts.patchBuild).Reached();
    std::cout << FormatTable({{"Server", server.Path().string()},
                              {"Patch build", BuildText(*facts.patchBuild)},
                              {"Module's log", server.LogFolder().string()}})
              << '\n';
    const size_t logged = EmbServerLog(nullptr, 0); // what reading the databases added is not the run's
    Progress progress(server);
    CallModule(entry, progress);
    ShowConsoleCommands(Fetch(EmbConsoleTranscript));
    ShowServerLog(std::string_view(Fetch(EmbServerLog)).substr(logged));

    const std::vector<DatabaseReport> after = ReadDatabases(NamesOf(before, server));
    std::cout << '\n' << FormatDatabases(before, after) << '\n';
    const UpgradeState state = CompareWithBuild(after, *facts.patchBuild);
    if (!state.Reached()) {
        throw Failure(failed, server.ProductFolder().string() + ": " + Reason(state, *facts.patchBuild) +
                                  (progress.EndOfLog().empty() ? "" : "; the log ends: " + progress.EndOfLog()));
    }
    std::cout << (nothingToDo ? "Nothing to do: the" : "Done: the") << " product databases carry build "
              << BuildText(*facts.patchBuild) << ".\n";
    return succeeded;
}

} // namespace krxpatch
