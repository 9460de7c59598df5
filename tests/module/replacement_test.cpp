#include "patch/replacement.h"

#include "foundation/notes_text.h"
#include "patch/build_numbers.h"
#include "support/server_fixture.h"
#include "support/system.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* newNotes = "<note class='form'><item name='$TITLE'><text>new</text></item></note>";
constexpr const char* oldNotes = "<note class='form'><item name='$TITLE'><text>old</text></item></note>";

std::string Acl(const std::string& name) {
    return "<acl><aclentry name='-Default-' default='true' level='noaccess'/><aclentry name='" + name +
           "' level='manager'/></acl>";
}

class ReplacementTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
        EmbClockSetVirtual(EmbClockNow());
        SetBuildText(3050);
        context_.programFolder = ProgramFolder().string();
        run_ = BeginReplacement().value();
    }
    void TearDown() override {
        run_ = {};
        ServerFixture::TearDown();
    }

    /** A database that the patch brings. */
    void Bring(const std::string& entry, const std::string& notes) const {
        MakeDatabase("../install/program/V5.8.0.3050/" + entry, notes);
    }
    STATUS Replace(const std::string& entry) { return ReplaceDatabaseEntry(entry, context_, run_); }

    [[nodiscard]] std::string Source(const std::string& entry) const { return ProgramFolder().string() + "/" + entry; }
    [[nodiscard]] std::string Target(const std::string& entry) const { return Data().string() + "/krx/" + entry; }
    /** Whether an installed database holds what MakeDatabase made of the text. */
    [[nodiscard]] bool Holds(const std::string& entry, const std::string& text) const {
        return ExportDatabase("krx/" + entry).find(text) != std::string::npos;
    }

    PatchRunContext context_;
    ReplacementRun run_;
};

TEST_F(ReplacementTest, ReplacesNothingWithoutAFolderToDoSo) {
    const std::string unknown = "[1]Error: The server's data directory is not known, so no database is replaced.";
    const std::string fits(251, 'd');
    const std::string longer = fits + "d"; // with "/krx", one more than a path may have
    const struct {
        const char* directory;
        Texts messages;
    } cases[] = {
        {nullptr, {unknown}},
        {"", {unknown}},
        {fits.c_str(), {}},
        {longer.c_str(),
         {"[1]Error: The path of the database folder is too long, so no database is replaced. (" + longer + ")"}},
    };
    for (const auto& [directory, messages] : cases) {
        SetEnvironment("Directory", directory);
        EXPECT_EQ(BeginReplacement().has_value(), messages.empty());
        EXPECT_EQ(NewLogMessages(), messages);
    }
}

TEST_F(ReplacementTest, OnlyCopiesWhatIsNamedLikeThePolicy) {
    const std::string entry = "oldPredefinedDLPPolicy.dat.ntf";
    test::WriteFile(Target(entry), "old");
    test::WriteFile(Source(entry), "new policy");
    EmbResetCalls();
    EXPECT_EQ(Replace(entry), 0);
    EXPECT_EQ(test::ReadFile(Target(entry)), "new policy");
    EXPECT_EQ(EmbCallCount(nullptr), EmbCallCount("OSGetEnvironmentLong") + EmbCallCount("OSGetDataDirectory"))
        << "only the log has asked the platform";
    test::WriteFile(Target(entry), "new po");
    test::WriteFile(Target(entry + ".updkrx-kept"), "old policy");
    test::WriteFile(Target(entry + ".updkrx-writing"), "");
    test::WriteFile(Target("2" + entry), "new policy");
    test::WriteFile(Target("2" + entry + ".updkrx-kept"), "old policy"); // could not be removed
    FinishPolicyOfDeadRun();
    EXPECT_EQ(test::ReadFile(Target("2" + entry)), "new policy");
    EXPECT_EQ(test::ReadFile(Target(entry)), "old policy") << "a run has died while it wrote in place";
    for (const char* suffix : {".updkrx-kept", ".updkrx-writing"}) {
        EXPECT_FALSE(std::filesystem::exists(Target(entry + suffix)) ||
                     std::filesystem::exists(Target("2" + entry + suffix)));
    }
    EXPECT_EQ(Replace("no PredefinedDLPPolicy.dat"), 0);
    EXPECT_EQ(LogMessages(),
              (Texts{"[1]Enter dlpStr switch.",
                     "[1]Copy the dlp template to KRX database folder! (" + Source(entry) + "):(" + Target(entry) + ")",
                     "[1]A file may be damaged. Its old content is put back. (" + Target(entry) + ")",
                     "[1]Enter dlpStr switch.", "[1]Copy the dlp template error.(fffe)"}));
}

TEST_F(ReplacementTest, GoesByTheExtensionAsItIsWritten) {
    const struct {
        const char* entry;
        DWORD listsRead;
        DWORD listsStored;
        const char* command;
    } cases[] = {
        {"a.dat", 0, 0, nullptr}, // the first entries come before any list is read
        {"b.NSF", 0, 0, nullptr},
        {"c.NTF", 0, 0, nullptr},
        {"d.ntf", 0, 0, "load convert krx/d.nsf * krx/d.ntf"},
        {"e.nsf.ntf", 1, 0, "load convert krx/e.nsf.nsf * krx/e.nsf.ntf"},
        {"f.ntf.ntf", 0, 0, "load convert krx/f.nsf * krx/f.ntf.ntf"},
        {"g.nsfx", 1, 1, nullptr},
        {"h.NSF", 0, 1, nullptr},
        {"i.dat", 0, 1, nullptr},
        {"krconf.ntf.ntf", 0, 0, "load convert krx/krconf.nsf * krx/krconf.ntf.ntf"}, // no migration, which refreshes
    };
    MakeDatabase("krx/krency.nsf", Acl("Ours"));
    for (const auto& [entry, listsRead, listsStored, command] : cases) {
        SCOPED_TRACE(entry);
        Bring(entry, Acl("Theirs") + newNotes);
        EmbResetCalls();
        const size_t commands = ConsoleCommands().size();
        EXPECT_EQ(Replace(entry), 0);
        EXPECT_EQ(EmbCallCount("NSFDbReadACL"), listsRead);
        EXPECT_EQ(EmbCallCount("NSFDbStoreACL"), listsStored);
        EXPECT_EQ(Holds(entry, "Ours"), listsStored == 1);
        EXPECT_TRUE(Holds(entry, "$Signature"));
        EXPECT_EQ(ConsoleCommands().size(), commands + (command != nullptr ? 1 : 0));
        if (command != nullptr) {
            EXPECT_EQ(ConsoleCommands().back(), command);
        }
    }
}

TEST_F(ReplacementTest, CarriesOneListToTheNextEntries) {
    MakeDatabase("krx/krency.nsf", Acl("First"));
    for (const char* entry : {"a.nsf", "b.NSF", "c.nsf", "d.nsf", "e.nsf"}) {
        Bring(entry, Acl("Theirs"));
    }
    EXPECT_EQ(Replace("a.nsf"), 0);
    EXPECT_EQ(Replace("b.NSF"), 0);
    std::filesystem::remove(Target("krency.nsf"));
    EXPECT_EQ(Replace("c.nsf"), 0);
    MakeDatabase("krx/krency.nsf", Acl("Second"));
    ASSERT_EQ(EmbFaultArm("NSFDbReadACL", 1, ERR_NOACCESS, 1), NOERROR);
    EXPECT_EQ(Replace("d.nsf"), 0);
    EmbFaultClear();
    EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_MEMORY), 1U);
    EXPECT_EQ(Replace("e.nsf"), 0);
    EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_MEMORY), 1U) << "the first list is freed";

    for (const char* entry : {"a.nsf", "b.NSF", "c.nsf", "d.nsf"}) {
        EXPECT_TRUE(Holds(entry, "First")) << entry;
    }
    EXPECT_TRUE(Holds("e.nsf", "Second"));
    Texts errors;
    for (const std::string& message : LogMessages()) {
        if (message.find("ACL") != std::string::npos) {
            errors.push_back(message);
        }
    }
    EXPECT_EQ(errors,
              (Texts{"[1]Read ACL error. (krx/krency.nsf):(103)", "[1]Read ACL error. (krx/krency.nsf):(246)"}));
}

TEST_F(ReplacementTest, EndsTheRunWhenADatabaseCannotBeTakenOffline) {
    MakeDatabase("krx/a.nsf", oldNotes);
    Bring("a.nsf", newNotes);
    const std::string before = test::ReadFile(Target("a.nsf"));
    ASSERT_EQ(EmbSetInUse("krx/a.nsf", 2), NOERROR);
    ASSERT_EQ(EmbFaultArm("NSFTakeDatabaseOffline", 3, ERR_NOACCESS, 0), NOERROR);
    EXPECT_EQ(Replace("a.nsf"), ERR_NOACCESS);
    EXPECT_EQ(LogMessages(), (Texts{"[1]Enter nsfStr switch.", "[1]Read ACL error. (krx/krency.nsf):(103)",
                                    "[0]DB in use, waiting. Retry: 0.", "[0]DB in use, waiting. Retry: 1.",
                                    "[1]Bring database offline. (" + Target("a.nsf") + "):(246)"}));
    EXPECT_EQ(test::ReadFile(Target("a.nsf")), before);
}

TEST_F(ReplacementTest, GoesOnWithADatabaseThatStaysOffline) {
    MakeDatabase("krx/a.dat", oldNotes);
    Bring("a.dat", newNotes);
    ASSERT_EQ(EmbFaultArm("NSFBringDatabaseOnline", 1, ERR_NOACCESS, 1), NOERROR);
    EXPECT_EQ(Replace("a.dat"), 0);
    const std::string source = Source("a.dat"), target = Target("a.dat");
    char offline[256];
    GetStatusText(ERR_DBOFFLINE, offline, sizeof offline);
    EXPECT_EQ(LogMessages(), (Texts{"[1]Bring database offline successfully. (" + target + ")",
                                    "[1]Copy the database to KRX database folder! (" + source + "):(" + target + ")",
                                    "[1]Bring database online. (" + target + "):(246)",
                                    std::string("[1]Failed to open a.dat - ") + offline + "\n",
                                    "[1]Write ACL error. (" + source + "):(13f9)"}));
}

TEST_F(ReplacementTest, PassesOverANameThatIsTooLongForAPath) {
    // With "krx/" the last of these just fits into what the platform takes, the others do not.
    const std::string folder(120, 'f');
    const struct {
        std::string entry;
        bool fits;
    } cases[] = {
        {folder + "/" + std::string(400, 'n') + ".ntf", false},
        {folder + "/" + std::string(127, 'n') + ".ntf", false},
        {folder + "/" + std::string(126, 'n') + ".ntf", true},
    };
    for (const auto& [entry, fits] : cases) {
        SCOPED_TRACE(entry.size());
        const bool canBeMade = entry.size() < 256;
        if (canBeMade) {
            std::filesystem::create_directories(std::filesystem::path(Target(entry)).parent_path());
            std::filesystem::create_directories(std::filesystem::path(Source(entry)).parent_path());
            Bring(entry, newNotes);
            MakeDatabase("krx/" + entry, oldNotes);
        }
        EmbResetCalls();
        EXPECT_EQ(Replace(entry), NOERROR);
        if (fits) {
            EXPECT_TRUE(Holds(entry, ">new<"));
            const std::string database = entry.substr(0, entry.size() - 4) + ".nsf";
            EXPECT_EQ(ConsoleCommands().back(), "load convert krx/" + database + " * krx/" + entry);
            continue;
        }
        EXPECT_EQ(
            NewLogMessages(),
            Texts{"[1]Error: The name of a database is too long for a path, so it is not replaced. (" + entry + ")"});
        EXPECT_EQ(EmbCallCount("NSFTakeDatabaseOffline") + EmbCallCount("NSFBringDatabaseOnline"), 0U);
        if (canBeMade) {
            EXPECT_TRUE(Holds(entry, ">old<"));
        }
    }
}

} // namespace
} // namespace updkrx
