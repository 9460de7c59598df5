// The server's side of a session: databases offline and online, the console, the log.
#include <fstream>

#include "engine/session.h"
#include "engine/status_error.h"
#include "engine/timedate.h"

namespace embedded {
namespace {

// The console's output stands in the server folder as on a server, for the administrator who reads it later.
constexpr const char* consoleFile = "console.log";
constexpr DWORD offlinePollMs = 100;

std::string_view firstWord(std::string_view text) {
    return text.substr(0, text.find(' '));
}

struct ConsoleCommand {
    std::string_view verb;
    /** Carries the command out; gives the reply. */
    std::string (*carryOut)(Session& session, std::string_view arguments);
};

/** A message to a server task. There are no tasks here, so that it is only on record. */
std::string tell(Session&, std::string_view arguments) {
    return arguments.empty() ? "tell: which task?" : "";
}

constexpr ConsoleCommand commands[] = {
    {"tell", tell},
};

} // namespace

bool Session::hasUsers(const std::filesystem::path& file) const {
    const auto found = open_.find(file);
    if (found != open_.end() && !found->second.expired())
        return true;
    return !FileLock::take(file, FileLock::Kind::exclusive);
}

void Session::takeOffline(const std::filesystem::path& file, DWORD waitMs, bool deleteIt) {
    if (readOnly_)
        throw StatusError(EMB_ERR_READ_ONLY);
    std::error_code failed;
    if (!std::filesystem::is_regular_file(file, failed))
        throw StatusError(ERR_NOEXIST);
    if (DWORD& attempts = inUse_[file]; attempts > 0) {
        --attempts;
        clock.wait(waitMs);
        throw StatusError(ERR_DBINUSE);
    }
    for (DWORD waited = 0; hasUsers(file); waited += offlinePollMs) {
        if (waited >= waitMs)
            throw StatusError(ERR_DBINUSE);
        clock.wait(std::min(offlinePollMs, waitMs - waited));
    }
    try {
        // Opening plays back the journal of a process that died, which must not meet another file of this name.
        Store::open(file, StoreAccess::readWrite)->close();
    } catch (const StatusError&) {
        // A damaged file can be taken offline all the same: it is going to be replaced.
    }
    if (!deleteIt)
        return offline_.add(file);
    if (!std::filesystem::remove(file, failed) || failed)
        throw StatusError(EMB_ERR_DISK, file.string() + ": cannot be deleted");
    offline_.remove(file);
}

void Session::bringOnline(const std::filesystem::path& file) {
    if (readOnly_)
        throw StatusError(EMB_ERR_READ_ONLY);
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(file, ignored))
        throw StatusError(ERR_NOEXIST);
    offline_.remove(file);
}

std::string Session::console(std::string_view command) {
    const std::string_view verb = firstWord(command);
    std::string outcome = "unknown command";
    std::string reply = "Unrecognized command: " + std::string(command);
    for (const ConsoleCommand& known : commands) {
        if (verb != known.verb)
            continue;
        const std::string_view arguments = command.substr(std::min(command.size(), verb.size() + 1));
        reply = known.carryOut(*this, arguments);
        outcome = reply.empty() ? "done" : reply;
        break;
    }
    const std::string line = textFromHundredths(clock.now()) + "\t" + outcome + "\t" + std::string(command) + "\n";
    transcript_ += line;
    appendToConsoleFile(line);
    return reply;
}

void Session::log(std::string_view text) {
    const std::string line = textFromHundredths(clock.now()) + "\t" + std::string(text) + "\n";
    serverLog_ += line;
    appendToConsoleFile(line);
}

void Session::appendToConsoleFile(std::string_view line) const {
    if (readOnly_)
        return;
    // A log that cannot be written stops nobody.
    std::ofstream(folder_ / consoleFile, std::ios::app) << line;
}

} // namespace embedded
