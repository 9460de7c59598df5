// The server's side of a session: databases offline and online, the console, the log.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

#include "engine/database/design.h"
#include "engine/server/session.h"
#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"
#include "engine/values/status_text.h"
#include "engine/values/timedate.h"

namespace embedded {
namespace {

// The console's output stands in the server folder as on a server, for the administrator who reads it later.
constexpr const char* consoleFile = "console.log";
constexpr DWORD offlinePollMs = 100;

std::vector<std::string> wordsOf(std::string_view text) {
    std::istringstream in{std::string(text)};
    return {std::istream_iterator<std::string>(in), {}};
}

/** What became of a command: for the transcript, and for who sent it (empty: nothing to say). */
struct Outcome {
    std::string transcript;
    std::string reply;
};

using Arguments = std::vector<std::string>;

struct ConsoleCommand {
    const char* words; // that the command begins with
    const char* usage; // of what follows them
    bool (*fits)(const Arguments& arguments);
    std::string (*carryOut)(Session& session, const Arguments& arguments);
};

std::string textOf(const DesignExchange& exchange) {
    return "done: " + std::to_string(exchange.changed) + " design notes changed, " + std::to_string(exchange.added) +
           " added, " + std::to_string(exchange.deleted) + " deleted, " + std::to_string(exchange.unchanged) +
           " unchanged";
}

/** A message to a server task. There are no tasks here, so that it is only on record. */
std::string tell(Session&, const Arguments&) {
    return "done";
}

/** Gives a database the design of a template, whatever template its design comes from ("*"). */
std::string loadConvert(Session& session, const Arguments& arguments) {
    const auto database = session.openDatabase(session.databasePath(arguments[0]));
    const auto from = session.openDatabase(session.databasePath(arguments[2]));
    if (arguments[1] != "*" && arguments[1] != inheritedTemplate(*database))
        return "done: the database does not inherit from " + arguments[1];
    return textOf(exchangeDesign(*database, *from));
}

/** The template of that name in a folder, NULL when there is none. Templates that cannot be opened are passed over. */
std::shared_ptr<Database> findTemplate(Session& session, const std::filesystem::path& folder, const std::string& name) {
    std::error_code failed; // leaves the folder's rest out
    std::set<std::filesystem::path> files;
    for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed))
        if (entry->path().extension() == ".ntf")
            files.insert(entry->path());
    for (const auto& file : files) {
        try {
            auto candidate = session.openDatabase(file);
            if (templateName(*candidate) == name)
                return candidate;
        } catch (const StatusError&) {
            continue; // damaged or offline
        }
    }
    return nullptr;
}

/** Refreshes a database's design from the template that it inherits from, which is looked for beside it. */
std::string loadDesign(Session& session, const Arguments& arguments) {
    const auto file = session.databasePath(arguments[1]);
    const auto database = session.openDatabase(file);
    const std::string name = inheritedTemplate(*database);
    if (name.empty())
        return "done: the database inherits from no template";
    const auto from = findTemplate(session, file.parent_path(), name);
    if (!from)
        throw StatusError(ERR_NOEXIST, "template " + name);
    return textOf(exchangeDesign(*database, *from));
}

constexpr ConsoleCommand commands[] = {
    {"tell", "TASK COMMAND", [](const Arguments& arguments) { return arguments.size() >= 2; }, tell},
    {"load convert", "DATABASE OLDTEMPLATE TEMPLATE", [](const Arguments& arguments) { return arguments.size() == 3; },
     loadConvert},
    {"load design", "-f DATABASE",
     [](const Arguments& arguments) { return arguments.size() == 2 && arguments[0] == "-f"; }, loadDesign},
};

/** The arguments of `command` in `sent`, nothing when it is another command. */
std::optional<Arguments> argumentsOf(const ConsoleCommand& command, const Arguments& sent) {
    const Arguments words = wordsOf(command.words);
    if (sent.size() < words.size() || !std::equal(words.begin(), words.end(), sent.begin()))
        return std::nullopt;
    return Arguments(sent.begin() + static_cast<std::ptrdiff_t>(words.size()), sent.end());
}

Outcome carryOut(Session& session, std::string_view text) {
    const Arguments sent = wordsOf(text);
    for (const ConsoleCommand& command : commands) {
        const auto arguments = argumentsOf(command, sent);
        if (!arguments)
            continue;
        if (!command.fits(*arguments)) {
            const std::string usage = std::string("usage: ") + command.words + " " + command.usage;
            return {usage, usage};
        }
        try {
            return {command.carryOut(session, *arguments), ""};
        } catch (const StatusError& error) {
            const std::string cause(statusText(error.status()));
            return {"failed: " + cause + (*error.what() ? std::string(" (") + error.what() + ")" : ""), cause};
        }
    }
    return {"unknown command", "Unrecognized command: " + std::string(text)};
}

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
        throw StatusError(EMB_ERR_DISK, pathForCaller(file) + ": cannot be deleted");
    if (behaviours.has(Deviation::deletedPathOffline))
        offline_.add(file);
    else
        offline_.remove(file);
}

void Session::bringOnline(const std::filesystem::path& file) {
    if (readOnly_)
        throw StatusError(EMB_ERR_READ_ONLY);
    std::error_code ignored;
    const bool isOfDeleted = behaviours.has(Deviation::deletedPathOffline) && offline_.contains(file);
    if (!isOfDeleted && !std::filesystem::is_regular_file(file, ignored))
        throw StatusError(ERR_NOEXIST);
    offline_.remove(file);
}

std::string Session::console(std::string_view command) {
    const Outcome outcome = carryOut(*this, command);
    const std::string line =
        textFromHundredths(clock.now()) + "\t" + outcome.transcript + "\t" + std::string(command) + "\n";
    transcript_ += line;
    appendToConsoleFile(line);
    return outcome.reply;
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
