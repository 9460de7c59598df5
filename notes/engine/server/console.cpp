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

std::vector<std::string> WordsOf(std::string_view text) {
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

std::string TextOf(const DesignExchange& exchange) {
    return "done: " + std::to_string(exchange.changed) + " design notes changed, " + std::to_string(exchange.added) +
           " added, " + std::to_string(exchange.deleted) + " deleted, " + std::to_string(exchange.unchanged) +
           " unchanged";
}

/** A message to a server task. There are no tasks here, so that it is only on record. */
std::string Tell(Session&, const Arguments&) {
    return "done";
}

/** Gives a database the design of a template, whatever template its design comes from ("*"). */
std::string LoadConvert(Session& session, const Arguments& arguments) {
    const auto database = session.Open(session.DatabasePath(arguments[0]));
    const auto from = session.Open(session.DatabasePath(arguments[2]));
    if (arguments[1] != "*" && arguments[1] != InheritedTemplate(*database)) {
        return "done: the database does not inherit from " + arguments[1];
    }
    return TextOf(ExchangeDesign(*database, *from));
}

/** The template of that name in a folder, NULL when there is none. Templates that cannot be opened are passed over. */
std::shared_ptr<Database> FindTemplate(Session& session, const std::filesystem::path& folder, const std::string& name) {
    std::error_code failed; // leaves the folder's rest out
    std::set<std::filesystem::path> files;
    for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        if (entry->path().extension() == ".ntf") {
            files.insert(entry->path());
        }
    }
    for (const auto& file : files) {
        try {
            auto candidate = session.Open(file);
            if (TemplateName(*candidate) == name) {
                return candidate;
            }
        } catch (const StatusError&) {
            continue; // damaged or offline
        }
    }
    return nullptr;
}

/** Refreshes a database's design from the template that it inherits from, which is looked for beside it. */
std::string LoadDesign(Session& session, const Arguments& arguments) {
    const auto file = session.DatabasePath(arguments[1]);
    const auto database = session.Open(file);
    const std::string name = InheritedTemplate(*database);
    if (name.empty()) {
        return "done: the database inherits from no template";
    }
    const auto from = FindTemplate(session, file.parent_path(), name);
    if (!from) {
        throw StatusError(ERR_NOEXIST, "template " + name);
    }
    return TextOf(ExchangeDesign(*database, *from));
}

constexpr ConsoleCommand commands[] = {
    {"tell", "TASK COMMAND", [](const Arguments& arguments) { return arguments.size() >= 2; }, Tell},
    {"load convert", "DATABASE OLDTEMPLATE TEMPLATE", [](const Arguments& arguments) { return arguments.size() == 3; },
     LoadConvert},
    {"load design", "-f DATABASE",
     [](const Arguments& arguments) { return arguments.size() == 2 && arguments[0] == "-f"; }, LoadDesign},
};

/** The arguments of `command` in `sent`, nothing when it is another command. */
std::optional<Arguments> ArgumentsOf(const ConsoleCommand& command, const Arguments& sent) {
    const Arguments words = WordsOf(command.words);
    if (sent.size() < words.size() || !std::equal(words.begin(), words.end(), sent.begin())) {
        return std::nullopt;
    }
    return Arguments(sent.begin() + static_cast<std::ptrdiff_t>(words.size()), sent.end());
}

Outcome CarryOut(Session& session, std::string_view text) {
    const Arguments sent = WordsOf(text);
    for (const ConsoleCommand& command : commands) {
        const auto arguments = ArgumentsOf(command, sent);
        if (!arguments) {
            continue;
        }
        if (!command.fits(*arguments)) {
            const std::string usage = std::string("usage: ") + command.words + " " + command.usage;
            return {usage, usage};
        }
        try {
            return {command.carryOut(session, *arguments), ""};
        } catch (const StatusError& error) {
            const std::string cause(StatusText(error.Status()));
            return {"failed: " + cause + (*error.what() ? std::string(" (") + error.what() + ")" : ""), cause};
        }
    }
    return {"unknown command", "Unrecognized command: " + std::string(text)};
}

} // namespace

bool Session::HasUsers(const std::filesystem::path& file) const {
    const auto found = open_.find(file);
    if (found != open_.end() && !found->second.expired()) {
        return true;
    }
    return !FileLock::Take(file, FileLock::Kind::exclusive);
}

void Session::TakeOffline(const std::filesystem::path& file, DWORD waitMs, bool deleteIt) {
    if (readOnly_) {
        throw StatusError(EMB_ERR_READ_ONLY);
    }
    std::error_code failed;
    if (!std::filesystem::is_regular_file(file, failed)) {
        throw StatusError(ERR_NOEXIST);
    }
    if (DWORD& attempts = inUse_[file]; attempts > 0) {
        --attempts;
        clock.Wait(waitMs);
        throw StatusError(ERR_DBINUSE);
    }
    for (DWORD waited = 0; HasUsers(file); waited += offlinePollMs) {
        if (waited >= waitMs) {
            throw StatusError(ERR_DBINUSE);
        }
        clock.Wait(std::min(offlinePollMs, waitMs - waited));
    }
    try {
        // Opening plays back the journal of a process that died, which must not meet another file of this name.
        Store::Open(file, StoreAccess::readWrite)->Close();
    } catch (const StatusError&) {
        // A damaged file can be taken offline all the same: it is going to be replaced.
    }
    if (!deleteIt) {
        return offline_.Add(file);
    }
    if (!std::filesystem::remove(file, failed) || failed) {
        throw StatusError(EMB_ERR_DISK, PathForCaller(file) + ": cannot be deleted");
    }
    if (behaviours.Has(Deviation::deletedPathOffline)) {
        offline_.Add(file);
    } else {
        offline_.Remove(file);
    }
}

void Session::BringOnline(const std::filesystem::path& file) {
    if (readOnly_) {
        throw StatusError(EMB_ERR_READ_ONLY);
    }
    std::error_code ignored;
    const bool isOfDeleted = behaviours.Has(Deviation::deletedPathOffline) && offline_.Contains(file);
    if (!isOfDeleted && !std::filesystem::is_regular_file(file, ignored)) {
        throw StatusError(ERR_NOEXIST);
    }
    offline_.Remove(file);
}

std::string Session::Console(std::string_view command) {
    const Outcome outcome = CarryOut(*this, command);
    const std::string line =
        TextFromHundredths(clock.Now()) + "\t" + outcome.transcript + "\t" + std::string(command) + "\n";
    transcript_ += line;
    appendToConsoleFile(line);
    return outcome.reply;
}

void Session::Log(std::string_view text) {
    const std::string line = TextFromHundredths(clock.Now()) + "\t" + std::string(text) + "\n";
    serverLog_ += line;
    appendToConsoleFile(line);
}

void Session::appendToConsoleFile(std::string_view line) const {
    if (readOnly_) {
        return;
    }
    // A log that cannot be written stops nobody.
    std::ofstream(folder_ / consoleFile, std::ios::app) << line;
}

} // namespace embedded
