#include "session_view.h"

#include <sstream>

#include "embedded_notes.h"

namespace krxpatch {

DatabaseFolder ViewOf(const ServerFolder& server) {
    DatabaseFolder view{server.ProductFolder(), {}};
    for (const std::string& name : server.DatabaseNames()) {
        if (EmbIsOffline(("krx/" + name).c_str())) {
            view.offline.insert(name);
        }
    }
    return view;
}

DatabaseFolder ViewServer(const std::filesystem::path& folder) {
    return ViewOf(ServerFolder(folder, ServerFolder::Access::readOnly));
}

std::string IdInUse() {
    char name[1024];
    (void)EmbIdName(name, sizeof name); // names are shorter
    return name;
}

std::vector<ConsoleCommand> ConsoleCommands() {
    std::string transcript(EmbConsoleTranscript(nullptr, 0) + 1, '\0'); // with the terminator
    (void)EmbConsoleTranscript(transcript.data(), static_cast<DWORD>(transcript.size()));
    std::vector<ConsoleCommand> commands;
    std::istringstream lines(transcript.c_str());
    for (std::string time, outcome, command;
         std::getline(lines, time, '\t') && std::getline(lines, outcome, '\t') && std::getline(lines, command);) {
        commands.push_back({command, outcome});
    }
    return commands;
}

} // namespace krxpatch
