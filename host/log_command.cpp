#include <chrono>
#include <iostream>
#include <thread>

#include <nlohmann/json.hpp>

#include "commands.h"
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

} // namespace

ExitCode ShowLog(const LogOptions& options, Report& report) {
    constexpr auto interval = std::chrono::milliseconds(250);
    const ServerFolder server(options.server, ServerFolder::Access::readOnly);
    Report& shown = report["lines"] = Report::array();
    LogFollower log(server.LogFolder(), LogFollower::From::beginning);
    Show(log.TakeNewLines(), options, shown);
    while (options.follow && std::cout && !platform::IsInterrupted()) {
        std::this_thread::sleep_for(interval);
        Show(log.TakeNewLines(), options, shown);
    }
    return succeeded;
}

} // namespace krxpatch
