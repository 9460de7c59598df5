#include "foundation/install_paths.h"

#include <optional>
#include <string>

#include "support/server_fixture.h"
#include "support/system.h"

namespace updkrx {
namespace {

TEST(VersionDirName, IsReadFromTheLastComponent) {
    const struct {
        const char* path;
        VersionNumbers version;
    } cases[] = {
        {"V5", {5, 0, 0, 0}},
        {"V5.8.1234", {5, 8, 0, 1234}},
        {"V5.8.0.1234", {5, 8, 0, 1234}},
        {"V5.8.0.1234.9", {5, 8, 0, 1234}},
        {"v5.8..3", {5, 8, 0, 0}},
        {"V 5. 8", {5, 8, 0, 0}},
        {"V-1.+2", {-1, 2, 0, 0}},
        {"V99999999999", {2147483647, 0, 0, 0}},
        {"VTest", {0, 0, 0, 0}},
        {"", {0, 0, 0, 0}},
        {"D:\\App\\V5.8.0.1\\", {5, 8, 0, 1}},
        {"D:/App/V5.8.0.1/", {5, 8, 0, 1}},
        {"D:/App\\V5.8.0.1", {0, 0, 0, 0}}, // the last "/" counts, not the "\" behind it
        {"D:\\App\\V5.8.0.1\\\\", {0, 0, 0, 0}},
    };
    for (const auto& [path, version] : cases) {
        EXPECT_EQ(ParseVersionDirName(path), version) << path;
    }
    EXPECT_EQ(ParseVersionDirName(std::string(1020, 'a') + "\\V56"), (VersionNumbers{5, 0, 0, 0}))
        << "1023 characters are looked at";
}

class InstallPathsTest : public test::ServerFixture {
protected:
    void MakeFolders(const char* below, const std::vector<std::string>& names) const {
        for (const std::string& name : names) {
            std::filesystem::create_directories(Install() / below / name);
        }
    }

    [[nodiscard]] std::filesystem::path Install() const { return Server() / "install"; }

    /** The path below the install directory. */
    [[nodiscard]] std::optional<std::string> Find(int kind) const {
        char buffer[256];
        const char* path = GetComponentPath(kind, buffer, sizeof buffer);
        if (path == nullptr) {
            return std::nullopt;
        }
        EXPECT_EQ(path, buffer);
        EXPECT_TRUE(std::string(path).starts_with(Install().string())) << path;
        return path + Install().string().size();
    }
};

TEST_F(InstallPathsTest, TakesTheHighestVersion) {
    const struct {
        const char* what;
        std::vector<std::string> folders;
        std::optional<std::string> found;
    } cases[] = {
        {"lower case", {"V5.8.0.1200", "v5.8.0.1300"}, "v5.8.0.1300"},
        {"major first", {"V6", "V5.9.9.9"}, "V6"},
        {"as numbers", {"V5.10", "V5.9"}, "V5.10"},
        {"third number before the fourth", {"V5.8.1.0", "V5.8.0.9"}, "V5.8.1.0"},
        {"three numbers", {"V5.8.1300", "V5.8.0.1234"}, "V5.8.1300"},
        {"no numbers", {"VTest", "V"}, std::nullopt},
        {"major 0", {"V0.9.0.0"}, std::nullopt},
        {"other names", {"5.8.0.1", "xV5.8.0.1", "W5.8.0.1"}, std::nullopt},
        {"none", {}, std::nullopt},
    };
    std::filesystem::remove_all(Install() / "program");
    for (const auto& [what, folders, found] : cases) {
        SCOPED_TRACE(what);
        MakeFolders("program", folders);
        EXPECT_EQ(Find(programComponent), found ? std::optional("\\program\\" + *found) : std::nullopt);
        std::filesystem::remove_all(Install() / "program");
    }
}

TEST_F(InstallPathsTest, OfEqualVersionsTakesTheFirstListed) {
    std::filesystem::remove_all(Install() / "program");
    MakeFolders("program", {"V5.8.1234", "V5.8.0.1234", "v5.8.00.1234"});
    const std::string first = std::filesystem::directory_iterator(Install() / "program")->path().filename().string();
    EXPECT_EQ(Find(programComponent), "\\program\\" + first);
}

TEST_F(InstallPathsTest, TakesFoldersOnly) {
    test::WriteFile(Install() / "program" / "V9.0.0.0", "a file");
    EXPECT_EQ(Find(programComponent), "\\program\\V5.8.0.3050");
}

TEST_F(InstallPathsTest, KnowsSevenKinds) {
    for (const char* below : {"engine/vrola", "engine/pelor", "engine/durin", "pattern/pelor", "engine/kinet"}) {
        MakeFolders(below, {"V1.2.3.4"});
    }
    const struct {
        int kind;
        std::optional<std::string> found;
    } cases[] = {
        {0, std::nullopt},
        {1, "\\program\\V5.8.0.3050"},
        {2, "\\engine\\vrola\\V1.2.3.4"},
        {3, "\\engine\\pelor\\V1.2.3.4"},
        {4, "\\engine\\durin\\V1.2.3.4"},
        {5, "\\pattern\\vrola"}, // need not exist
        {6, "\\pattern\\pelor\\V1.2.3.4"},
        {7, "\\engine\\kinet\\V1.2.3.4"},
        {8, std::nullopt},
        {-1, std::nullopt},
    };
    for (const auto& [kind, found] : cases) {
        EXPECT_EQ(Find(kind), found) << kind;
    }
}

TEST_F(InstallPathsTest, DoublesNoSeparatorExceptForKind5) {
    for (const std::string separator : {"/", "\\"}) {
        SetEnvironment("VarnholtInstallPath", (Install().string() + separator).c_str());
        EXPECT_EQ(Find(programComponent), separator + "program\\V5.8.0.3050");
        EXPECT_EQ(Find(5), separator + "\\pattern\\vrola");
    }
}

TEST_F(InstallPathsTest, TakesTheSettingInTheNativeCharacterSet) {
    const std::filesystem::path other = Server() / u8"Über";
    std::filesystem::create_directories(other / "program" / "V1.0");
    SetEnvironment("VarnholtInstallPath", other.string().c_str());
    char buffer[256];
    EXPECT_STREQ(GetComponentPath(1, buffer, sizeof buffer),
                 (test::Native(other.string()) + "\\program\\V1.0").c_str());
}

TEST_F(InstallPathsTest, HasNoResultWithoutTheSetting) {
    for (const char* value : {static_cast<const char*>(nullptr), "", "/no/such/folder"}) {
        SetEnvironment("VarnholtInstallPath", value);
        char buffer[256];
        EXPECT_EQ(GetComponentPath(programComponent, buffer, sizeof buffer), nullptr);
    }
}

TEST_F(InstallPathsTest, CutsTheResultToTheBuffer) {
    const std::string whole = Install().string() + "\\program\\V5.8.0.3050";
    char buffer[] = "####################";
    EXPECT_EQ(GetComponentPath(programComponent, buffer, 16), buffer);
    EXPECT_EQ(std::string(buffer, sizeof buffer - 1), whole.substr(0, 15) + '\0' + "####");
    EXPECT_EQ(GetComponentPath(5, buffer, 10), buffer);
    EXPECT_EQ(buffer, whole.substr(0, 9));
}

TEST_F(InstallPathsTest, RefusesABaseOfMoreThan1020Characters) {
    // The same folder at any length: every "/." leads back to it.
    char buffer[2048];
    std::string base = Install().string();
    while (base.size() < 1010) {
        base += "/.";
    }
    EXPECT_EQ(FindLatestVersionDir(base.c_str(), "program", buffer, sizeof buffer), base + "\\program\\V5.8.0.3050");
    base.resize(1020, '/');
    // The pattern is cut behind three more characters, so that it names a folder of the base itself.
    std::filesystem::create_directory(Install() / "V10");
    std::filesystem::create_directory(Install() / "V1");
    EXPECT_EQ(FindLatestVersionDir(base.c_str(), "v10", buffer, sizeof buffer), base + "V10");
    EXPECT_EQ(FindLatestVersionDir(base.c_str(), "?1*", buffer, sizeof buffer), base + "V10");
    EXPECT_EQ(FindLatestVersionDir(base.c_str(), "V1_", buffer, sizeof buffer), nullptr);
    EXPECT_EQ(FindLatestVersionDir((base + "/").c_str(), "V10", buffer, sizeof buffer), nullptr);
    EXPECT_EQ(FindLatestVersionDir("", "program", buffer, sizeof buffer), nullptr);
}

} // namespace
} // namespace updkrx
