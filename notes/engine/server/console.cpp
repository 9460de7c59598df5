#include "engine/server/console.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

#include "engine/database/design.h"
#include "engine/server/server.h"
#include "engine/values/status_error.h"
#include "engine/values/status_text.h"

namespace embedded {
namespace {

std::vector<std::string> WordsOf(std::string_view text) {
    std::istringstream in{std::string(text)};
    return {std::istream_iterator<std::string>(in), {}};
}

using Arguments = std::vector<std::string>;

struct ConsoleCommand {
    const char* words; // that the command begins with
    const char* usage; // of what follows them
    bool (*fits)(const Arguments& arguments);
    std::string (*carryOut)(Server& server, const Arguments& arguments);
};

std::string TextOf(const DesignExchange& exchange) {
    return "done: " + std::to_string(exchange.changed) + " design notes changed, " + std::to_string(exchange.added) +
           " added, " + std::to_string(exchange.deleted) + " deleted, " + std::to_string(exchange.unchanged) +
           " unchanged";
}

/** A message to a server task. There are no tasks here, so that it is only on record. */
std::string Tell(Server&, const Arguments&) {
    return "done";
}

/** Gives a database the design of a template, whatever template its design comes from ("*"). */
std::string LoadConvert(Server& server, const Arguments& arguments) {
    const auto database = server.Open(server.DatabasePath(arguments[0]));
    const auto from = server.Open(server.DatabasePath(arguments[2]));
    if (arguments[1] != "*" && arguments[1] != InheritedTemplate(*database)) {
        return "done: the database does not inherit from " + arguments[1];
    }
    return TextOf(ExchangeDesign(*database, *from));
}

/** The template of that name in a folder, NULL when there is none. Templates that cannot be opened are passed over. */
std::shared_ptr<Database> FindTemplate(Server& server, const std::filesystem::path& folder, const std::string& name) {
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
            auto candidate = server.Open(file);
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
std::string LoadDesign(Server& server, const Arguments& arguments) {
    const auto file = server.DatabasePath(arguments[1]);
    const auto database = server.Open(file);
    const std::string name = InheritedTemplate(*database);
    if (name.empty()) {
        return "done: the database inherits from no template";
    }
    const auto from = FindTemplate(server, file.parent_path(), name);
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

} // namespace

Outcome CarryOut(Server& server, std::string_view command) {
    const Arguments sent = WordsOf(command);
    for (const ConsoleCommand& known : commands) {
        const auto arguments = ArgumentsOf(known, sent);
        if (!arguments) {
            continue;
        }
        if (!known.fits(*arguments)) {
            const std::string usage = std::string("usage: ") + known.words + " " + known.usage;
            return {usage, usage};
        }
        try {
            return {known.carryOut(server, *arguments), ""};
        } catch (const StatusError& error) {
            const std::string cause(StatusText(error.Status()));
            return {"failed: " + cause + (*error.what() ? std::string(" (") + error.what() + ")" : ""), cause};
        }
    }
    return {"unknown command", "Unrecognized command: " + std::string(command)};
}

} // namespace embedded
