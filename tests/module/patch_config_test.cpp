#include "patch/patch_config.h"

#include "support/server_fixture.h"

namespace updkrx {
namespace {

using Items = std::vector<std::string>;

class PatchConfigTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
    }

    STATUS Read(std::string_view content) {
        test::WriteFile(ProgramFolder() / "krxpatch.ini", content);
        std::filesystem::remove_all(Data() / "krxtemp");
        std::filesystem::create_directory(Data() / "krxtemp");
        context_ = {};
        return ReadPatchConfig(context_);
    }

    PatchRunContext context_;
};

constexpr const char* noDatabases = "[1]Cannot get the value in configuration file. (Config:Databases)";
constexpr const char* noExtension = "[1]Needn't update extesion manager.";
constexpr const char* noSigning = "[1]Database signing will be skiped.";

std::string Build(int32_t number) {
    return "[1]The build number in patch configuration is " + std::to_string(number);
}

TEST_F(PatchConfigTest, ReadsEveryKey) {
    ASSERT_EQ(Read("[config]\r\nfiles=x.dll,y.exe,\r\nBuildNumber=3050beta\r\nDatabases=krconf.ntf,, krency.nsf\r\n"
                   "UpdateExt=-1\r\nSkipDbSign=2\r\n"),
              0);
    EXPECT_EQ(context_.fileList, (Items{"x.dll", "y.exe"}));
    EXPECT_EQ(context_.patchBuild, 3050);
    EXPECT_EQ(context_.databaseList, (Items{"krconf.ntf", "", " krency.nsf"}));
    EXPECT_EQ(context_.updateExtension, 1);
    EXPECT_EQ(context_.skipDbSign, 1);
    EXPECT_EQ(LogMessages(), (Items{noSigning, Build(3050)}));
}

TEST_F(PatchConfigTest, NeedsTwoKeys) {
    const Items noFiles = {"[1]Cannot get the value in configuration file. (Config:Files)"};
    const Items noBuild = {"[1]Cannot get the value in configuration file. (Config:BuildNumber)"};
    const struct {
        const char* content;
        STATUS result;
        Items messages;
    } cases[] = {
        {"", 1, noFiles},
        {"[Other]\nFiles=a\nBuildNumber=1\n", 1, noFiles},
        {"[Config]\nBuildNumber=1\n", 1, noFiles},
        {"[Config]\nFiles =a\nBuildNumber=1\n", 1, noFiles},
        {"[Config]\nFiles=a\nDatabases=b\nSkipDbSign=1\n", 1, noBuild},
        {"[Config]\nFiles=a\nBuildNumber=1\n", 0, {noDatabases, noExtension, Build(1)}},
        {"[Config]\nFiles=a\nBuildNumber=1\nDatabases=b\n", 0, {noExtension, Build(1)}},
    };
    for (const auto& [content, result, messages] : cases) {
        SCOPED_TRACE(content);
        EXPECT_EQ(Read(content), result);
        EXPECT_EQ(LogMessages(), messages);
    }
}

TEST_F(PatchConfigTest, NamesTheFileThatItCannotOpen) {
    EXPECT_EQ(ReadPatchConfig(context_), 1);
    EXPECT_EQ(LogMessages(), (Items{"[1]Cannot open the file. (" + (Server() / "install").string() +
                                    "\\program\\V5.8.0.3050/krxpatch.ini)"}));
}

} // namespace
} // namespace updkrx
