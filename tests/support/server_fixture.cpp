#include "support/server_fixture.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <utility>

namespace updkrx::test {
namespace {

struct HelpSearch {
    DBHANDLE database;
    const char* item;
    std::vector<std::string> texts;
};

STATUS LNCALLBACK CollectItem(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    HelpSearch& search = *static_cast<HelpSearch*>(parameter);
    NOTEHANDLE note = NULLHANDLE;
    const STATUS status = NSFNoteOpen(search.database, match->ID.NoteID, 0, &note);
    if (status != NOERROR) {
        return status;
    }
    char text[256];
    const WORD length = NSFItemGetText(note, search.item, text, sizeof text - 1);
    search.texts.emplace_back(text, length);
    return NSFNoteClose(note);
}

} // namespace

ServerFixture::ServerFixture() {
    for (const char* directory : {"data/krx", "data/krxtemp", "install/program/V5.8.0.3050"}) {
        std::filesystem::create_directories(Server() / directory);
    }
    WriteFile(Server() / "notes.ini", "[Notes]\nDirectory=" + Data().string() +
                                          "\nVarnholtInstallPath=" + (Server() / "install").string() + "\n");
}

ServerFixture::~ServerFixture() {
    EmbSessionEnd();
}

void ServerFixture::SetUp() {
    char message[512] = "";
    ASSERT_EQ(EmbSessionBegin((Server() / "notes.ini").string().c_str(), 0, message, sizeof message), NOERROR)
        << message;
}

void ServerFixture::TearDown() {
    for (const DWORD kind : {EMB_HANDLE_DATABASE, EMB_HANDLE_NOTE, EMB_HANDLE_MEMORY, EMB_HANDLE_LOCK}) {
        EXPECT_EQ(EmbOpenHandles(kind), 0U) << "left open, of kind " << kind;
    }
    EXPECT_EQ(EmbMisuseCount(), 0U);
}

void ServerFixture::SetEnvironment(const char* name, const char* value) {
    ASSERT_EQ(EmbEnvironmentSet(name, value), NOERROR) << name;
}

void ServerFixture::SetBehaviours(std::string_view list) {
    for (DWORD i = 0; const char* name = EmbBehaviourName(i); ++i) {
        ASSERT_EQ(EmbBehaviourSet(name, nullptr), NOERROR) << name;
    }
    std::istringstream entries{std::string(list)};
    for (std::string name, value; std::getline(entries, name, '=') && std::getline(entries, value, ',');) {
        ASSERT_EQ(EmbBehaviourSet(name.c_str(), value.c_str()), NOERROR) << name << '=' << value;
    }
}

std::vector<LogLine> ServerFixture::ReadLog() const {
    static const std::regex form(
        R"(\[(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d)\]\[pid=(-?\d+)\]\[tid=(-?\d+)\]\[module=([0-9a-f]+)\]:(.*))");
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(Data() / "krxtemp")) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<LogLine> lines;
    for (const std::filesystem::path& file : files) {
        std::istringstream content(ReadText(file));
        for (std::string text; std::getline(content, text);) {
            std::smatch part;
            if (std::regex_match(text, part, form)) {
                lines.push_back(
                    {file.filename().string(), part[1], std::stoi(part[2]), std::stoi(part[3]), part[4], part[5]});
            } else if (lines.empty()) {
                ADD_FAILURE() << "no log line: " << text;
            } else {
                lines.back().message += "\n" + text;
            }
        }
    }
    return lines;
}

std::vector<std::string> ServerFixture::LogMessages() const {
    std::vector<std::string> messages;
    for (const LogLine& line : ReadLog()) {
        messages.push_back("[" + line.level + "]" + line.message);
    }
    return messages;
}

std::vector<std::string> ServerFixture::NewLogMessages() {
    std::vector<std::string> messages = LogMessages();
    const size_t before = std::exchange(messagesSeen_, messages.size());
    messages.erase(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(before));
    return messages;
}

void ServerFixture::MakeDatabase(const std::string& path, std::string_view notes) const {
    std::string dxl =
        R"(<?xml version="1.0" encoding="UTF-8"?><database xmlns="http://www.lotus.com/dxl" version="1.0">)";
    dxl.append(notes).append("</database>");
    const std::string file = WriteFile(Server() / "fixture.dxl", dxl);
    char message[512] = "";
    ASSERT_EQ(EmbDxlImport((Data() / path).string().c_str(), file.c_str(), 0, message, sizeof message), NOERROR)
        << message;
}

std::string ServerFixture::HelpNote(std::string_view buildText) {
    return "<note class='helpusingdocument'><item name='BuildNumber'><text>" + std::string(buildText) +
           "</text></item></note>";
}

std::string ServerFixture::ExportDatabase(const std::string& path) const {
    const std::filesystem::path file = Server() / "export.dxl";
    char message[512] = "";
    EXPECT_EQ(
        EmbDxlExport((Data() / path).string().c_str(), file.string().c_str(), EMB_DXL_STABLE, message, sizeof message),
        NOERROR)
        << message;
    return ReadFile(file);
}

std::vector<std::string> ServerFixture::HelpItems(const char* path, const char* item) {
    HelpSearch search = {NULLHANDLE, item, {}};
    EXPECT_EQ(NSFDbOpen(path, &search.database), NOERROR) << path;
    EXPECT_EQ(
        NSFSearch(search.database, NULLHANDLE, nullptr, 0, NOTE_CLASS_HELP, nullptr, CollectItem, &search, nullptr),
        NOERROR);
    EXPECT_EQ(NSFDbClose(search.database), NOERROR);
    return search.texts;
}

int ServerFixture::ServerLogCount(std::string_view text) {
    std::string log(EmbServerLog(nullptr, 0) + 1, '\0');
    log.resize(EmbServerLog(log.data(), static_cast<DWORD>(log.size())));
    const std::string line = "\t" + std::string(text); // behind the time
    std::istringstream lines(log);
    int count = 0;
    for (std::string found; std::getline(lines, found);) {
        count += found.ends_with(line);
    }
    return count;
}

std::vector<std::string> ServerFixture::ConsoleCommands() {
    std::string transcript(EmbConsoleTranscript(nullptr, 0) + 1, '\0');
    transcript.resize(EmbConsoleTranscript(transcript.data(), static_cast<DWORD>(transcript.size())));
    std::istringstream lines(transcript);
    std::vector<std::string> commands;
    for (std::string line; std::getline(lines, line);) {
        commands.push_back(line.substr(line.rfind('\t') + 1)); // behind the time and the outcome
    }
    return commands;
}

SomebodySavesFirst::SomebodySavesFirst(std::vector<const char*> databases) : databases_(std::move(databases)) {
    EmbCallHookSet(
        [](void* self, const char* operation) {
            if (std::string_view(operation) == "NSFNoteUpdate") {
                static_cast<SomebodySavesFirst*>(self)->SaveAll();
            }
        },
        this);
}

SomebodySavesFirst::~SomebodySavesFirst() {
    EmbCallHookSet(nullptr, nullptr);
}

void SomebodySavesFirst::SaveAll() {
    if (std::exchange(saving_, true)) {
        return;
    }
    for (const char* path : databases_) {
        DBHANDLE database = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(path, &database), NOERROR) << path;
        const auto save = [](void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) -> STATUS {
            NOTEHANDLE note = NULLHANDLE;
            EXPECT_EQ(NSFNoteOpen(*static_cast<DBHANDLE*>(parameter), match->ID.NoteID, 0, &note), NOERROR);
            EXPECT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
            return NSFNoteClose(note);
        };
        EXPECT_EQ(NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, save, &database, nullptr),
                  NOERROR);
        EXPECT_EQ(NSFDbClose(database), NOERROR);
    }
    saving_ = false;
}

} // namespace updkrx::test
