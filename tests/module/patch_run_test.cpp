#include "patch/patch_run.h"

#include <algorithm>

#include "patch/build_numbers.h"
#include "support/server_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* begin = "[1]===============Begin update database========";
constexpr const char* noVersion = "[1]Error, Cannot get the running KRX version";

class PatchRunTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
    }

    void Configure(const std::string& keys) const {
        test::WriteFile(ProgramFolder() / "krxpatch.ini", "[Config]\nFiles=\nUpdateExt=0\n" + keys);
    }
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

TEST_F(PatchRunTest, StampsOnlyWhatIsOlderThanThePatch) {
    const struct {
        const char* what;
        const char* keys;
        const char* before;
        const char* after;
    } cases[] = {
        {"older", "BuildNumber=3060\nDatabases=a,b\n", "5.8.0.3059", "5.8.0.3060"},
        {"equal", "BuildNumber=3060\nDatabases=a,b\n", "5.8.0.3060", "5.8.0.3060"},
        {"newer", "BuildNumber=3060\nDatabases=a,b\n", "5.8.0.3061", "5.8.0.3061"},
        {"nothing to replace", "BuildNumber=3060\nDatabases=\n", "5.8.0.3059", "5.8.0.3059"},
        {"no list", "BuildNumber=3060\n", "5.8.0.3059", "5.8.0.3059"},
        {"a negative build", "BuildNumber=-5\nDatabases=a\n", "5.8.0.-6", "5.8.0.-5"},
    };
    for (const auto& [what, keys, before, after] : cases) {
        SCOPED_TRACE(what);
        Configure(keys);
        MakeDatabase("krx/krmsg.nsf", HelpNote(before));
        RunPatch();
        EXPECT_EQ(HelpItems("krx/krmsg.nsf", "BuildNumber"), Texts{after});
        std::filesystem::remove(Data() / "krx/krmsg.nsf");
    }
}

TEST_F(PatchRunTest, NamesTheInstalledBuildWhenThereIsNothingToDo) {
    PatchRunContext context;
    context.patchBuild = context.databaseBuild = 3060;
    context.runningBuild = 3050;
    EXPECT_EQ(ProcessDatabases(context), 0);
    EXPECT_EQ(LogMessages(), Texts{"[1]The database build is large than build number of the patch, so return. 3050"});
}

TEST_F(PatchRunTest, NeedsTheProgramFolderForAReplacement) {
    SetEnvironment("VarnholtInstallPath", nullptr);
    PatchRunContext context;
    context.patchBuild = 3050;
    const auto complaints = [this] {
        const Texts messages = LogMessages();
        return std::count(messages.begin(), messages.end(), "[1]Cannot get the latest path!");
    };
    EXPECT_EQ(ProcessDatabases(context), 0);
    EXPECT_EQ(complaints(), 0) << "nothing to replace, nothing to look for";
    context.databaseList = {"krconf.ntf"};
    EXPECT_EQ(ProcessDatabases(context), 1);
    EXPECT_EQ(complaints(), 1);
    EXPECT_EQ(LogMessages().back(), "[1]Cannot get the latest path!") << "and the run ends there";
}

} // namespace
} // namespace updkrx
