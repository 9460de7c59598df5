#include "patch/build_numbers.h"

#include <algorithm>
#include <string>

#include "support/server_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

class BuildNumbersTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
    }

    PatchRunContext context_;
};

Texts Builds(int32_t running, int32_t database) {
    return {"[1]The running KRX build is " + std::to_string(running),
            "[1]The running KRX database build is " + std::to_string(database)};
}

TEST_F(BuildNumbersTest, ReadsTheBuildOfTheDatabases) {
    const struct {
        const char* what;
        std::string notes;
        int32_t build;
    } cases[] = {
        {"a build", HelpNote("5.8.0.3001"), 3001},
        {"no dot", HelpNote("3001"), 0},
        {"no number behind the dot", HelpNote("5.8.0.x"), 0},
        {"a dot at the end", HelpNote("5.8.0."), 0},
        {"15 characters", HelpNote("5.8.0.123456789"), 123456789},
        {"16 characters", HelpNote("5.8.0.1234567890"), 123456789},
        {"no help note", "<document form='A'><item name='BuildNumber'><text>5.8.0.1</text></item></document>", 0},
        {"no item", "<note class='helpusingdocument'/>", 0},
        {"an empty item beside it", HelpNote("5.8.0.3001") + HelpNote(""), 3001},
        {"an empty item before it", HelpNote("") + HelpNote("5.8.0.3001"), 3001},
    };
    for (const auto& [what, notes, build] : cases) {
        SCOPED_TRACE(what);
        MakeDatabase("krx/krmsg.nsf", notes);
        context_ = {};
        EXPECT_EQ(GetRunningBuild(context_), 0);
        EXPECT_EQ(context_.runningBuild, 3050);
        EXPECT_EQ(context_.databaseBuild, build);
        std::filesystem::remove(Data() / "krx/krmsg.nsf");
    }
}

TEST_F(BuildNumbersTest, CountsAMissingDatabaseAsZero) {
    context_.databaseBuild = 7;
    EXPECT_EQ(GetRunningBuild(context_), 0);
    EXPECT_EQ(context_.databaseBuild, 0);
    EXPECT_EQ(LogMessages(), Builds(3050, 0));
}

TEST_F(BuildNumbersTest, ReadsTheInstalledBuildFromTheFolder) {
    const struct {
        const char* folder;
        STATUS result;
        int32_t build;
    } cases[] = {
        {"V6.0.0.4001", 0, 4001},
        {"V7.0.0.12b", 0, 12},
        {"V8.x", 0, 0},
    };
    for (const auto& [folder, result, build] : cases) {
        SCOPED_TRACE(folder);
        std::filesystem::create_directory(Server() / "install/program" / folder);
        context_ = {};
        EXPECT_EQ(GetRunningBuild(context_), result);
        EXPECT_EQ(context_.runningBuild, build);
    }
}

TEST_F(BuildNumbersTest, NeedsAFolderWithADot) {
    std::filesystem::create_directory(Server() / "install/program/V9");
    EXPECT_EQ(GetRunningBuild(context_), 1);
    EXPECT_EQ(LogMessages(), Texts{"[1]Cannot get the build number from path."});
}

TEST_F(BuildNumbersTest, StampsTheHelpNotesOfProductDatabasesAndNothingElse) {
    const std::string neighbours =
        "<note class='helpaboutdocument'><item name='BuildNumber'><text>about</text></item></note>"
        "<document form='A'><item name='BuildNumber'><text>document</text></item></document>";
    MakeDatabase("krx/krconf.nsf", HelpNote("5.8.0.3001") + HelpNote("a second") + neighbours);
    MakeDatabase("krx/krlists.nsf", "<note class='helpusingdocument'/>");
    MakeDatabase("krx/other.nsf", HelpNote("5.8.0.3001"));
    std::string conf = ExportDatabase("krx/krconf.nsf");
    const std::string other = ExportDatabase("krx/other.nsf");

    SetBuildText(3050);
    EXPECT_EQ(SetBuildNumberOfAllDatabases(), 0);

    EXPECT_EQ(HelpItems("krx/krlists.nsf", "BuildNumber"), Texts{"5.8.0.3050"});
    for (const std::string old : {"5.8.0.3001", "a second"}) {
        conf.replace(conf.find(old), old.size(), "5.8.0.3050");
    }
    EXPECT_EQ(ExportDatabase("krx/krconf.nsf"), conf);
    EXPECT_EQ(ExportDatabase("krx/other.nsf"), other);
}

} // namespace
} // namespace updkrx
