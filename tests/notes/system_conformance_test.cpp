// The rest of the Notes API: environment, texts, memory, server; and the control surface's counts and faults.
#include <ctime>

#include "notes/notes_fixture.h"

namespace embedded::test {
namespace {

class SystemConformance : public NotesFixture {};

std::string Transcript() {
    std::string text(EmbConsoleTranscript(nullptr, 0) + 1, '\0');
    text.resize(EmbConsoleTranscript(text.data(), static_cast<DWORD>(text.size())));
    return text;
}

TEST_F(SystemConformance, EnvironmentNamesHaveNoCase) {
    SetEnvironment("Server", "Entrepôt");
    SetEnvironment("Seven", "7 dwarfs");
    SetEnvironment("Word", "seven");
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_NE(OSGetEnvironmentString("SERVER", buffer, 8), 0);
    EXPECT_EQ(std::string(buffer, 10), std::string("Entrep\x93t\0#", 10)); // in the Notes character set
    EXPECT_NE(OSGetEnvironmentString("Server", buffer, 3), 0);
    EXPECT_STREQ(buffer, "Ent"); // the size leaves room for the terminator
    EXPECT_EQ(OSGetEnvironmentString("Absent", buffer, 8), 0);
    EXPECT_EQ(OSGetEnvironmentLong("seven"), 7);
    EXPECT_EQ(OSGetEnvironmentLong("Word"), 0);
    EXPECT_EQ(OSGetEnvironmentLong("Absent"), 0);
    EXPECT_EQ(OSGetEnvironmentLong(nullptr), 0);
    char directory[MAXPATH];
    EXPECT_EQ(OSGetDataDirectory(directory), Data().string().size());
    EXPECT_EQ(directory, Data().string());
}

TEST_F(SystemConformance, TranslationCutsBetweenCharactersAndTerminatesWhatIsTerminated) {
    char out[32];
    std::memset(out, '#', sizeof out);
    constexpr WORD fromUtf8 = 24, toUtf8 = 22;
    const char text[] = "aé日";
    EXPECT_EQ(OSTranslate(fromUtf8, text, MAXWORD, out, sizeof out), 5);
    EXPECT_EQ(out[5], '\0');
    EXPECT_EQ(out[6], '#');
    char back[32];
    EXPECT_EQ(OSTranslate(toUtf8, out, 5, back, sizeof back), 6);
    EXPECT_EQ(std::string(back, 6), text);
    EXPECT_EQ(OSTranslate(toUtf8, out, 5, back, 5), 3); // not half a character
    EXPECT_EQ(OSTranslate(fromUtf8, text, MAXWORD, out, 4), 2);
    EXPECT_EQ(OSTranslate(fromUtf8, "abc", MAXWORD, out, 3), 2); // the terminator has its place inside the size
    EXPECT_EQ(OSTranslate(fromUtf8, "a\0b#", 3, out, 3), 3);     // and with a length there is none
    EXPECT_EQ(std::string(out, 3), std::string("a\0b", 3));
    EXPECT_EQ(OSTranslate(77, text, MAXWORD, out, sizeof out), 0);
    EXPECT_EQ(OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, nullptr, 3, out, sizeof out), 0);
}

TEST_F(SystemConformance, StatusesHaveTextsOnceMasked) {
    char text[64] = "#";
    EXPECT_EQ(OSLoadString(nullptr, ERR_DBINUSE, text, sizeof text - 1), 22);
    EXPECT_STREQ(text, "The database is in use");
    EXPECT_EQ(OSLoadString(nullptr, ERR_DBINUSE, text, 3), 3);
    EXPECT_STREQ(text, "The");
    EXPECT_EQ(OSLoadString(nullptr, STATUS(ERR_DBINUSE | STS_REMOTE), text, 63), 0);
    EXPECT_STREQ(text, "");
}

TEST_F(SystemConformance, MemoryIsCountedAndWrongUseIsAnswered) {
    DHANDLE block = NULLHANDLE;
    ASSERT_EQ(OSMemAlloc(MEM_SHARE, 1024, &block), NOERROR);
    std::memset(OSLockObject(block), 'x', 1024);
    EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_LOCK), 1U);
    EXPECT_EQ(OSMemFree(block), EMB_ERR_LOCKED); // a server would end the process
    EXPECT_NE(OSUnlockObject(block), 0);
    EXPECT_EQ(OSUnlockObject(block), 0);
    EXPECT_EQ(OSMemFree(block), NOERROR);
    EXPECT_EQ(OSMemFree(block), EMB_ERR_HANDLE);
    EXPECT_EQ(OSLockObject(block), nullptr);
    EXPECT_EQ(EmbMisuseCount(), 4U);
    DHANDLE nothing = 77;
    EXPECT_EQ(OSMemAlloc(0, 0, &nothing), NOERROR);
    EXPECT_EQ(nothing, DHANDLE{NULLHANDLE});
    EmbSessionEnd();
    SetUp();
}

TEST_F(SystemConformance, TheConsoleKeepsATranscriptAndAnswersUnknownCommands) {
    SetEnvironment("EmbeddedIDName", "CN=Почта/O=Example");
    EmbClockSetVirtual(178'000'000'000);
    char name[MAXUSERNAME + 1];
    ASSERT_EQ(SECKFMGetUserName(name), NOERROR);
    EXPECT_EQ(SECKFMGetUserName(nullptr), EMB_ERR_ARGUMENT);
    DHANDLE reply = 77;
    char restart[] = "tell krxreal restart", nonsense[] = "lod convert", other[] = "CN=Other";
    EXPECT_EQ(NSFRemoteConsole(name, restart, &reply), NOERROR);
    EXPECT_EQ(reply, DHANDLE{NULLHANDLE});
    EXPECT_EQ(NSFRemoteConsole(name, nonsense, &reply), NOERROR);
    ASSERT_NE(reply, DHANDLE{NULLHANDLE});
    EXPECT_STRNE(static_cast<const char*>(OSLockObject(reply)), "");
    EXPECT_NE(OSUnlockObject(reply), 0);
    EXPECT_EQ(OSMemFree(reply), NOERROR);
    EXPECT_EQ(NSFRemoteConsole(other, restart, &reply), EMB_ERR_NO_SERVER);
    EXPECT_EQ(Transcript(), "2026-05-28 20:26:40,00 UTC\tdone\ttell krxreal restart\n"
                            "2026-05-28 20:26:40,00 UTC\tunknown command\tlod convert\n");
}

TEST_F(SystemConformance, TheServersLogTakesFormattedLines) {
    AddInLogMessageText("%s", NOERROR, "100 % plain");
    AddInLogMessageText("%s has %d notes", ERR_NOEXIST, "krx/a.nsf", 5);
    AddInLogMessageText("%n", NOERROR, nullptr);
    AddInLogMessageText("%s%s%s%s%s%s%s", NOERROR, "1", "2", "3", "4", "5", "6", "7");
    AddInLogMessageText(nullptr, NOERROR);
    EXPECT_EQ(ServerLogCount("100 % plain"), 1);
    EXPECT_EQ(ServerLogCount("krx/a.nsf has 5 notes: File does not exist"), 1);
    EXPECT_EQ(ServerLogCount("AddInLogMessageText: a format that cannot be carried out"), 3);
}

TEST_F(SystemConformance, CallsAreCountedAndMadeToFail) {
    DBHANDLE database = Make("<document form='A'/>");
    EmbResetCalls();
    EXPECT_EQ(EmbFaultArm("NSFDbOpen", 2, 0x4103, 0), NOERROR);
    DBHANDLE handle[4] = {};
    EXPECT_EQ(NSFDbOpen(path, &handle[0]), NOERROR);
    EXPECT_EQ(NSFDbOpen(path, &handle[1]), 0x4103);
    EXPECT_EQ(NSFDbOpen(path, &handle[2]), NOERROR);
    EXPECT_EQ(EmbCallCount("NSFDbOpen"), 3U);
    EXPECT_EQ(EmbFaultsFired(), 1U);
    // What closes does close.
    EXPECT_EQ(EmbFaultArm(nullptr, 1, EMB_ERR_DISK, 1), NOERROR);
    EXPECT_EQ(NSFDbClose(handle[0]), EMB_ERR_DISK);
    EXPECT_EQ(NSFDbClose(handle[2]), EMB_ERR_DISK);
    EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_DATABASE), 1U);
    // What has no status fails in its own way.
    char text[8];
    EXPECT_EQ(OSGetEnvironmentString("Directory", text, 7), 0);
    EXPECT_EQ(OSGetEnvironmentLong("Directory"), 0);
    EXPECT_EQ(OSLockObject(1), nullptr);
    EmbFaultClear();
    // A call that cannot fail uses up its turn.
    EXPECT_EQ(EmbFaultArm(nullptr, 1, EMB_ERR_DISK, 0), NOERROR);
    EXPECT_EQ(AddInIdleDelay(0), 0);
    EXPECT_EQ(EmbFaultsFired(), 0U);
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    EXPECT_EQ(EmbFaultArm("NSFDbExplode", 1, EMB_ERR_DISK, 0), EMB_ERR_ARGUMENT);
    EXPECT_EQ(EmbFaultArm(nullptr, 0, EMB_ERR_DISK, 0), EMB_ERR_ARGUMENT);
    EXPECT_EQ(EmbCallCount(nullptr), 10U);
}

/** Adds to a list what a hook sees, and how many calls have been counted by then. */
void See(void* list, const std::string& when, const std::string& operation) {
    const std::string counted = std::to_string(EmbCallCount(nullptr));
    static_cast<std::vector<std::string>*>(list)->push_back(when + " " + operation + " " + counted);
}

TEST_F(SystemConformance, HooksSeeEveryCallBeforeAndAfterItHappens) {
    std::vector<std::string> seen;
    EmbCallHookSet([](void* to, const char* operation) { See(to, "before", operation); }, &seen);
    EmbReturnHookSet([](void* to, const char* operation) { See(to, "after", operation); }, &seen);
    EmbResetCalls();
    (void)OSGetEnvironmentLong("Directory");
    EmbCallHookSet(nullptr, nullptr);
    (void)OSMemFree(1);
    EmbReturnHookSet(nullptr, nullptr);
    (void)OSGetEnvironmentLong("Directory");
    EXPECT_EQ(seen, (std::vector<std::string>{"before OSGetEnvironmentLong 0", "after OSGetEnvironmentLong 1",
                                              "after OSMemFree 2"}));
    EmbSessionEnd();
    SetUp();
}

TEST_F(SystemConformance, WithoutASessionEveryOperationIsAnswered) {
    EmbSessionEnd();
    DBHANDLE database = NULLHANDLE;
    char text[MAXPATH];
    EXPECT_EQ(NSFDbOpen(path, &database), EMB_ERR_NO_SESSION);
    EXPECT_EQ(NSFNoteClose(1), EMB_ERR_NO_SESSION);
    EXPECT_EQ(OSGetDataDirectory(text), 0);
    AddInLogMessageText("%s", NOERROR, "nobody hears it");
    EXPECT_EQ(EmbClockNow() + EmbClockWaited() + EmbFaultsFired() + EmbOpenHandles(EMB_HANDLE_NOTE), 0);
    SetUp();
    EXPECT_NEAR(static_cast<double>(EmbClockNow() / 100), static_cast<double>(std::time(nullptr)), 5);
}

TEST(SessionBegin, NamesTheFileAndTheCause) {
    const updkrx::test::TemporaryFolder folder;
    const auto ini = folder.Path() / "notes.ini";
    std::filesystem::create_directory(folder.Path() / "data");
    struct {
        std::string content;
        STATUS status;
        const char* cause;
    } const cases[] = {
        {"[Notes]\nDirectory=data\n", NOERROR, ""},
        {"[Notes]\nKitType=1\n", EMB_ERR_ARGUMENT, "Directory="},
        {"[Notes]\nDirectory=nowhere\n", ERR_NOEXIST, "nowhere"},
        {"[Notes]\nDirectory=data\nnonsense\n", EMB_ERR_ARGUMENT, ":3:"},
        {"Directory=" + std::string(300, 'x'), EMB_ERR_TOO_LONG, "255"},
    };
    for (const auto& c : cases) {
        updkrx::test::WriteFile(ini, c.content);
        char message[1024] = "";
        EXPECT_EQ(EmbSessionBegin(ini.string().c_str(), 0, message, sizeof message), c.status) << c.content;
        EXPECT_EQ(std::string(message).find(ini.string()) != std::string::npos, c.status != NOERROR) << message;
        EXPECT_NE(std::string(message).find(c.cause), std::string::npos) << message;
        if (c.status == NOERROR) {
            EXPECT_EQ(EmbSessionBegin(ini.string().c_str(), 0, message, sizeof message), ERR_EXISTS);
        }
        EmbSessionEnd();
    }
    char message[1024] = "";
    EXPECT_EQ(EmbSessionBegin((folder.Path() / "none.ini").string().c_str(), 0, message, sizeof message), ERR_NOEXIST);
    EXPECT_NE(std::string(message).find("none.ini"), std::string::npos);
}

} // namespace
} // namespace embedded::test
