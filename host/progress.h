// What is shown of a run while it goes on: on a terminal one line that changes, otherwise one dated line a step; with
// `verbose` the module's own log instead.
#pragma once

#include <chrono>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "log_follower.h"
#include "server_folder.h"

namespace krxpatch {

class Progress {
public:
    /** How many there will be of a step, by its name. */
    using Totals = std::map<std::string, size_t>;

    Progress(std::ostream& out, const ServerFolder& server, Totals totals, bool verbose);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /** Takes the changing line away. */
    ~Progress();

    void ShowNews();
    /** The messages of the log so far. */
    [[nodiscard]] const std::vector<std::string>& Messages() const noexcept { return messages_; }

private:
    void ShowStep(const std::string& message);
    void ShowLine();
    [[nodiscard]] std::string Elapsed() const;

    std::ostream& out_;
    LogFollower log_;
    Totals totals_;
    std::map<std::string, size_t> begun_;
    bool verbose_;
    bool onTerminal_;
    std::string step_;
    std::vector<std::string> messages_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace krxpatch
