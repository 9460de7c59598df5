#include "reference.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <fnmatch.h>
#include <unistd.h>

#include "common/startup.h"
#include "embedded_notes.h"
#include "server.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;

struct Step {
    const char* message; // a pattern
    const char* name;
};

/** What the message that begins a step looks like. */
constexpr Step steps[] = {
    {"===============Begin*", "begin"},
    {"The running KRX database build is*", "expressions"},
    {"*\"yank\"*", "retired documents"}, // the end of a table
    {"Database does not exist*", "copy"},
    {"Bring database offline successfully*", "copy"},
    {"Bring database online*", "hide"},
    {"Info: start to set build number -'*.ntf'*", "convert"},
    {"Run command load convert*", "converted"},
    {"UpgradeDLPDocumentFromNTFtoNSF IN", "documents"},
    {"* by any rule or template, try to delete and recreate", "document replaced"},
    {"SearchFormDocumentCallback OUT", "documents"},
    {"===========ObsoleteUNIDSet start*", "references"},
    {"Run command load design*", "designed"},
    {"Enter nsfStr switch.", "list"},
    {"Enter dlpStr switch.", "policy"},
    {"krency.nsf is old format*", "encyclopedia"},
    {"Info: Begin process databases.", "stamp"},
    {"Info: start to set build number*", "stamp"},
    {"SignDatabase Enter", "sign"},
    {"krx\\*.nsf", "sign"},
    {"SignDatabase Leave", "restart"},
};

/** In the folder that this process stands in. */
void Run(Runner runner, const Listener& listener) {
    StartEvents(runner, listener);
    if (RunUpgrade(runner) != 0) {
        throw std::runtime_error("the undisturbed run fails");
    }
    StopEvents();
}

} // namespace

std::string Reference::Describe(const Disturbance& disturbance) const {
    const std::string operation = OperationOf(disturbance);
    switch (disturbance.effect) {
    case Effect::fails:
        return operation + " fails";
    case Effect::operationFails:
        return operation + " keeps failing";
    case Effect::everythingFails:
        return (disturbance.kind == call         ? "everything fails from "
                : disturbance.kind == allocation ? "memory is used up from "
                                                 : "the disk is full from ") +
               operation + " on";
    case Effect::doesHalf:
        return operation + " does half";
    case Effect::diesBefore:
        return "the run dies before " + operation;
    case Effect::diesAfter:
        return "the run dies after " + operation;
    }
    return operation;
}

std::string Reference::StepOf(const Disturbance& disturbance) const {
    static const std::regex file(R"((kr[a-z]+)\.(nsf|ntf|dat))");
    const size_t logged = events[disturbance.kind][disturbance.n - 1].logged;
    std::string step;
    std::string subject;
    for (size_t i = 0; i < std::min(logged, messages.size()); ++i) {
        const auto found = std::ranges::find_if(
            steps, [&](const Step& row) { return fnmatch(row.message, messages[i].c_str(), FNM_NOESCAPE) == 0; });
        if (found != std::end(steps)) {
            step = found->name;
            std::smatch name;
            subject = std::regex_search(messages[i], name, file) ? std::string(name[1]) : subject;
        }
    }
    return step + " " + subject;
}

namespace {

/** Whether nothing is open before a call, so that the folder is the server's state. */
bool IsBetweenSteps(Kind kind, const char* operation) {
    static constexpr std::string_view calls[] = {"NSFDbOpen", "NSFTakeDatabaseOffline", "NSFRemoteConsole"};
    return kind == call && EmbOpenHandles(EMB_HANDLE_DATABASE) == 0 && EmbOpenHandles(EMB_HANDLE_NOTE) == 0 &&
           (SeenEvents()[call] == 1 || std::ranges::find(calls, operation) != std::end(calls));
}

/** Runs the upgrade in the folder that this process stands in and notes what happens. */
void RecordEvents(Reference& reference, const std::function<void()>& betweenSteps) {
    size_t logged = 0;
    Run(reference.runner, [&](Kind kind, const char* operation) {
        if (IsBetweenSteps(kind, operation)) {
            betweenSteps();
        }
        reference.events[kind].push_back({operation, logged});
        logged += std::string_view(operation) == "fprintf to the log";
    });
    ForgetRun();
    reference.messages = LogMessages(fs::current_path());
}

} // namespace

Reference Record(Runner runner, const fs::path& work) {
    Reference reference;
    reference.runner = runner;
    const std::string name = runner == Runner::module ? "module" : "krxpatch";
    const auto ignore = [](Kind, const char*) {};
    // What the references are repaired with is known at the end of a run only, hence two.
    EnterCopy(PreparedServer(work), work / (name + ".first"));
    Run(Runner::module, ignore);
    reference.replacements = updkrx::gMap;
    ForgetRun();
    const std::string digest = DigestOf(fs::current_path());

    EnterCopy(PreparedServer(work), work / (name + ".second"));
    const auto addState = [&] { reference.states.push_back(ReadState(fs::current_path(), reference.replacements)); };
    RecordEvents(reference, addState);
    addState();
    // krxpatch starts at the present moment, which is in what it stores.
    if (runner == Runner::module && digest != DigestOf(fs::current_path())) {
        throw std::runtime_error("two undisturbed runs end in different states");
    }

    const char* build = "data/krx/krmsg.nsf"; // what tells a run whether there is anything to do
    fs::copy_file(PreparedServer(work) / build, build, fs::copy_options::overwrite_existing);
    Run(runner, ignore);
    ForgetRun();
    reference.endAgain = ReadState(fs::current_path(), reference.replacements);
    return reference;
}

Reference RecordUnder(const Reference& reference, const std::string& behaviours, const fs::path& work) {
    Reference other;
    other.runner = reference.runner;
    other.behaviours = behaviours;
    other.states = reference.states;
    other.endAgain = reference.endAgain;
    other.replacements = reference.replacements;
    const fs::path copy = work / (std::to_string(getpid()) + ".recorded");
    EnterServer(work, behaviours, copy);
    RecordEvents(other, [] {});
    fs::current_path(work);
    fs::remove_all(copy);
    return other;
}

std::vector<std::string> LogMessages(const fs::path& server) {
    std::set<fs::path> files; // two when the day ends during the run
    for (const auto& entry : fs::directory_iterator(server / "data/krxtemp")) {
        files.insert(entry.path());
    }
    std::vector<std::string> messages;
    for (const fs::path& path : files) {
        std::istringstream lines(ReadFile(path));
        for (std::string line; std::getline(lines, line);) {
            const size_t head = line.find("][module=");
            const size_t end = head == std::string::npos ? head : line.find("]:", head + 1);
            if (end != std::string::npos) {
                messages.push_back(line.substr(end + 2));
            } // else the empty line after a message that ends in a line feed
        }
    }
    return messages;
}

} // namespace sweep
