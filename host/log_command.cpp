#include <chrono>
#include <iostream>
#include <thread>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "foundation/debug_log.h"
#include "log_follower.h"
#include "log_lines.h"
#include "platform.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

bool IsShown(LineKind kind, bool errorsOnly) {
    const bool isError = kind == LineKind::failure || kind == LineKind::ending;
    return errorsOnly ? isError : kind != LineKind::detail;
}

void Show(const std::vector<LoggedLine>& lines, const LogOptions& options, Report& shown) {
    for (const LoggedLine& line : lines) {
        const LineKind kind = KindOf(line.message);
        if (!IsShown(kind, options.errorsOnly)) {
            continue;
        }
        const std::string meaning = Explain(line.message);
        const bool isError = IsShown(kind, true);
        const bool red = isError && options.colour;
        std::cout << line.time << "  " << (red ? "\x1b[31m" : "") << Printable(line.message) << (red ? "\x1b[0m" : "")
                  << '\n';
        if (!meaning.empty()) {
            std::cout << std::string(line.time.size() + 4, ' ') << meaning << '\n';
        }
        shown.push_back({{"time", line.time}, {"message", line.message}, {"isError", isError}, {"meaning", meaning}});
    }
    std::cout.flush();
}

/** Nobody may take a log that was never written for one without errors. */
std::string WhyEmpty(const ServerFolder& server, bool hasLines) {
    const std::string folder = server.LogFolder().string();
    std::error_code ignored; // what cannot be looked at is no folder
    if (hasLines) {
        return folder + ": no line of the module's log tells of a failure";
    }
    if (!std::filesystem::is_directory(server.LogFolder(), ignored)) {
        return folder + ": no such folder, without which the module writes no log";
    }
    if (const std::string why = platform::WhyUnreadable(server.LogFolder()); !why.empty()) {
        return folder + ": cannot be read: " + why;
    }
    if (!updkrx::IsDebugLogEnabled()) {
        return server.IniFile().string() + ": the module's log is off; KRX_ENABLE_KRENCY_LOG=1 turns it on";
    }
    return folder + ": the module has written no log yet";
}

} // namespace

ExitCode ShowLog(const LogOptions& options, Report& report) {
    constexpr auto interval = std::chrono::milliseconds(250);
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    Report& shown = report["lines"] = Report::array();
    LogFollower log(server.LogFolder(), LogFollower::From::beginning);
    const std::vector<LoggedLine> lines = log.TakeNewLines();
    Show(lines, options, shown);
    if (shown.empty()) {
        std::cerr << "krxpatch: " << WhyEmpty(server, !lines.empty()) << std::endl;
    }
    while (options.follow && std::cout && !platform::IsInterrupted()) {
        std::this_thread::sleep_for(interval);
        Show(log.TakeNewLines(), options, shown);
    }
    return succeeded;
}

} // namespace krxpatch
