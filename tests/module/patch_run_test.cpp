#include "patch/patch_run.h"

#include <algorithm>

#include "patch/build_numbers.h"
#include "support/server_fixture.h"
#include "support/system.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* begin = "[1]===============Begin update database========";
constexpr const char* noVersion = "[1]Error, Cannot get the running KRX version";

constexpr const char* oneEntry = "BuildNumber=3060\nDatabases=krhelp.nsf\n";

/** What a run can do to the server that Install makes. */
const Texts allEffects = {"expression", "retired", "entry", "encyclopedia", "stamp", "signature", "restart"};

class PatchRunTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
    }

    void Configure(const std::string& keys) const {
        test::WriteFile(ProgramFolder() / "krxpatch.ini", "[Config]\nFiles=\nUpdateExt=0\n" + keys);
    }

    /** Databases with something to do for every step, in place of those that are there; krmsg.nsf carries the build
     *  text, and there is none if it is null. */
    void Install(const char* buildText) {
        std::filesystem::remove_all(Data() / "krx");
        std::filesystem::create_directory(Data() / "krx");
        std::filesystem::remove(ProgramFolder() / "krhelp.nsf");
        commandsBefore_ = ConsoleCommands().size();
        if (buildText != nullptr) {
            MakeDatabase("krx/krmsg.nsf", HelpNote(buildText));
        }
        MakeDatabase("krx/krconf.nsf",
                     "<document form='Expression'><item name='Expression'><text>this is not a joke</text></item>"
                     "</document><document form='dictionary'><noteinfo unid='026196EE7CA8DA4788257DDB00338EAE'/>"
                     "<item name='Title'><text>retired words</text></item></document>");
        MakeDatabase("krx/krency.nsf", PatternFile("1234"));
        MakeDatabase("krx/krency.ntf", PatternFile("1.234.00") + HelpNote("5.8.0.1"));
        MakeDatabase("krx/krhelp.nsf", Form("old page") + HelpNote("5.8.0.1"));
        MakeDatabase("../install/program/V5.8.0.3050/krhelp.nsf", Form("new page") + HelpNote("5.8.0.1"));
        MakeDatabase("krx/krlists.nsf", Form("list"));
    }

    /** Those of allEffects that the server shows. */
    [[nodiscard]] Texts Effects() const {
        const Texts commands = ConsoleCommands();
        const bool shown[] = {Holds("krconf.nsf", "9CA8289B72BE6CE848256E1600236921"),
                              !Holds("krconf.nsf", "retired words"),
                              Holds("krhelp.nsf", "new page"),
                              Holds("krency.nsf", "1.234.00"),
                              HelpItems("krx/krhelp.nsf", "BuildNumber") != Texts{"5.8.0.1"},
                              Holds("krlists.nsf", "$Signature"),
                              commands.size() == commandsBefore_ + 1 && commands.back() == "tell krxreal restart"};
        EXPECT_TRUE(shown[6] || commands.size() == commandsBefore_) << "another command: " << commands.back();
        Texts effects;
        for (size_t i = 0; i < allEffects.size(); ++i) {
            if (shown[i]) {
                effects.push_back(allEffects[i]);
            }
        }
        return effects;
    }

    [[nodiscard]] bool Holds(const std::string& name, const std::string& text) const {
        return ExportDatabase("krx/" + name).find(text) != std::string::npos;
    }

private:
    static std::string PatternFile(const std::string& version) {
        return "<document form='Patternfile'><item name='InternalPVer'><text>" + version + "</text></item></document>";
    }
    static std::string Form(const std::string& title) {
        return "<note class='form'><item name='$TITLE'><text>" + title + "</text></item></note>";
    }

    size_t commandsBefore_ = 0;
};

TEST_F(PatchRunTest, EndsWithoutAConfigurationOrAnInstalledBuild) {
    RunPatch();
    Texts messages = LogMessages();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages.front(), begin);
    EXPECT_EQ(messages.back(), noVersion);

    Configure("BuildNumber=3050\nDatabases=krconf.ntf\n");
    std::filesystem::rename(ProgramFolder(), Server() / "install/program/V9");
    RunPatch();
    messages = LogMessages();
    EXPECT_EQ(Texts(messages.begin() + 3, messages.end()),
              (Texts{begin, "[1]The build number in patch configuration is 3050",
                     "[1]Info: The new database build number is 5.8.0.3050",
                     "[1]Cannot get the build number from path.", noVersion}));
}

TEST_F(PatchRunTest, DoesEveryStepInItsOrder) {
    Install("5.8.0.3001");
    Configure(oneEntry);
    Texts operations; // those that change something
    EmbCallHookSet(
        [](void* parameter, const char* operation) {
            for (const char* change :
                 {"NSFNoteUpdate", "NSFNoteDelete", "NSFTakeDatabaseOffline", "NSFRemoteConsole"}) {
                if (std::string_view(operation) == change) {
                    static_cast<Texts*>(parameter)->emplace_back(operation);
                }
            }
        },
        &operations);
    RunPatch();
    EmbCallHookSet(nullptr, nullptr);

    EXPECT_EQ(Effects(), allEffects);
    // The log is silent about the removal of retired documents and about the restart.
    ASSERT_GE(operations.size(), 4U);
    EXPECT_EQ(Texts(operations.begin(), operations.begin() + 3),
              (Texts{"NSFNoteUpdate", "NSFNoteDelete", "NSFTakeDatabaseOffline"}));
    EXPECT_EQ(operations.back(), "NSFRemoteConsole");
    EXPECT_EQ(HelpItems("krx/krency.nsf", "BuildNumber"), Texts{"5.8.0.3060"}) << "stamped after it was recreated";
}

TEST_F(PatchRunTest, OverridesWhoSavedMeanwhile) {
    Install("5.8.0.3001");
    Configure(oneEntry);
    {
        const test::SomebodySavesFirst somebody(
            {"krx/krmsg.nsf", "krx/krconf.nsf", "krx/krhelp.nsf", "krx/krlists.nsf"});
        RunPatch();
    }
    EXPECT_EQ(Effects(), allEffects);
    EXPECT_EQ(HelpItems("krx/krmsg.nsf", "BuildNumber"), Texts{"5.8.0.3060"});
}

TEST_F(PatchRunTest, DoesWhatTheBuildAndTheListAskFor) {
    const Texts none;
    const Texts documents = {"expression", "retired"};
    const Texts keepsEncyclopedia = {"expression", "retired", "entry", "stamp", "signature", "restart"};
    const struct {
        const char* what;
        const char* before; // in krmsg.nsf; null: there is none
        const char* keys;
        const Texts& effects;
    } cases[] = {
        {"older than the encyclopedia's format", "5.8.0.3049", oneEntry, allEffects},
        {"of that format", "5.8.0.3050", oneEntry, keepsEncyclopedia},
        {"just older", "5.8.0.3059", oneEntry, keepsEncyclopedia},
        {"equal", "5.8.0.3060", oneEntry, none},
        {"newer", "5.8.0.3061", oneEntry, none},
        {"unknown", nullptr, oneEntry, allEffects},
        {"negative", "5.8.0.-6", "BuildNumber=-5\nDatabases=krhelp.nsf\n", allEffects},
        {"an empty list", "5.8.0.3001", "BuildNumber=3060\nDatabases=\n", documents},
        {"no list", "5.8.0.3001", "BuildNumber=3060\n", documents},
    };
    for (const auto& [what, before, keys, effects] : cases) {
        SCOPED_TRACE(what);
        Install(before);
        Configure(keys);
        const std::string configuration = ExportDatabase("krx/krconf.nsf");
        RunPatch();
        EXPECT_EQ(Effects(), effects);
        EXPECT_EQ(ExportDatabase("krx/krconf.nsf") == configuration, effects.empty());
    }
}

TEST_F(PatchRunTest, SignsNoEntryWhenToldSo) {
    Install("5.8.0.3001");
    Configure(std::string(oneEntry) + "SkipDbSign=1\n");
    RunPatch();
    EXPECT_EQ(Effects(), allEffects) << "the last step signs all the same";
    EXPECT_EQ(std::ranges::count(LogMessages(), "[1]Info: Start to sign - krhelp.nsf\n"), 0);
    EXPECT_TRUE(Holds("krhelp.nsf", "krx:replicationflags='0020'"));
}

TEST_F(PatchRunTest, EntryPointAnswersZeroHoweverTheRunEnds) {
    const test::Library module(UPDKRX_MODULE);
    ASSERT_EQ(module.Error(), "");
    auto* const entryPoint = module.Find<STATUS()>("MainEntryPoint");
    ASSERT_NE(entryPoint, nullptr);

    EXPECT_EQ(entryPoint(), 0);
    EXPECT_EQ(LogMessages().back(), noVersion);

    Install("5.8.0.3060");
    Configure(oneEntry);
    EXPECT_EQ(entryPoint(), 0);
    EXPECT_EQ(LogMessages().back(), "[1]The database build is large than build number of the patch, so return. 3050");

    Install("5.8.0.3059");
    EmbClockSetVirtual(0);
    ASSERT_EQ(EmbSetInUse("krx/krhelp.nsf", 60), NOERROR);
    EXPECT_EQ(entryPoint(), 0);
    EXPECT_EQ(LogMessages().back(), "[1]Bring database offline. (" + Data().string() + "/krx/krhelp.nsf" + "):(13ea)");
    EXPECT_EQ(Effects(), (Texts{"expression", "retired"}));
}

TEST_F(PatchRunTest, NeedsTheProgramFolderForAReplacement) {
    SetEnvironment("VarnholtInstallPath", nullptr);
    PatchRunContext context;
    context.patchBuild = 3050;
    EXPECT_EQ(ProcessDatabases(context), 0) << "nothing to replace, nothing to look for";
    context.databaseList = {"krconf.ntf"};
    EXPECT_EQ(ProcessDatabases(context), 1);
    EXPECT_EQ(LogMessages().back(), "[1]Cannot get the latest path!") << "and the run ends there";
}

} // namespace
} // namespace updkrx
