#include "progress.h"

#include <cstdio>
#include <iostream>

#include "foundation/debug_log.h"
#include "log_lines.h"
#include "platform.h"
#include "text_table.h"
#include "times.h"

namespace krxpatch {

Progress::Progress(std::ostream& out, const ServerFolder& server, Totals totals, bool verbose)
    : out_(out), log_(server.LogFolder(), LogFollower::From::now), totals_(std::move(totals)), verbose_(verbose),
      onTerminal_(&out == &std::cout && platform::OutputIsTerminal() && !verbose), step_("begin") {
    std::error_code ignored; // what cannot be looked at is no folder
    if (!updkrx::IsDebugLogEnabled()) {
        out_ << "Steps cannot be shown: the module's log is off (KRX_ENABLE_KRENCY_LOG is not 1 in "
             << server.IniFile().string() << ").\n";
    } else if (!std::filesystem::is_directory(server.LogFolder(), ignored)) {
        out_ << "Steps cannot be shown: there is no folder for the module's log, " << server.LogFolder().string()
             << ".\n";
    } else if (const std::string why = platform::WhyUnwritable(server.LogFolder()); !why.empty()) {
        out_ << "Steps cannot be shown: the module's log cannot be written: " << server.LogFolder().string() << ": "
             << why << ".\n";
    } else {
        out_ << "Steps\n";
    }
    out_.flush();
}

Progress::~Progress() {
    if (onTerminal_) {
        out_ << "\r\x1b[K" << std::flush;
    }
}

void Progress::ShowNews() {
    for (const LoggedLine& line : log_.TakeNewLines()) {
        messages_.push_back(line.message);
        if (verbose_) {
            out_ << "  " << Printable(line.message) << '\n';
        } else {
            ShowStep(line.message);
        }
    }
    if (onTerminal_) {
        ShowLine();
    }
    out_.flush();
}

void Progress::ShowStep(const std::string& message) {
    const LogLine* line = FindLogLine(message);
    if (line == nullptr || line->kind != LineKind::step) {
        return;
    }
    const std::string file = FileIn(message);
    step_ = line->step;
    if (step_.find(file) == std::string::npos) {
        step_ += " " + file;
    }
    const size_t number = ++begun_[line->step];
    if (const auto total = totals_.find(line->step); total != totals_.end() && number <= total->second) {
        step_ += " (" + std::to_string(number) + " of " + std::to_string(total->second) + ")";
    }
    if (!onTerminal_) {
        out_ << "  " << TimeText(Now()) << "  " << step_ << '\n';
    }
}

void Progress::ShowLine() {
    out_ << "\r\x1b[K  " << Elapsed() << "  " << step_;
}

std::string Progress::Elapsed() const {
    using namespace std::chrono;
    const auto seconds = duration_cast<std::chrono::seconds>(steady_clock::now() - start_).count();
    char text[32] = "";
    (void)std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                        static_cast<long long>(seconds % 60));
    return text;
}

} // namespace krxpatch
