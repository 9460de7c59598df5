#include "foundation/ini_file.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace updkrx {
namespace {

class IniFileTest : public testing::Test {
protected:
    int Load(std::string_view content) { return ini_.Load(test::WriteFile(folder_.Path() / "a.ini", content).c_str()); }

    /** The value, or the code's name. */
    std::string Value(const char* section, const char* key, int index = 0) const {
        char buffer[2048];
        int size = sizeof buffer;
        const int code = ini_.GetValueAt(section, key, index, buffer, &size);
        return code == IDD_ERR_ZERO ? std::string(buffer, static_cast<size_t>(size)) : IddErrorName(code);
    }

    test::TemporaryFolder folder_;
    IniFile ini_;
};

constexpr const char* noKey = "IDD_ERR_VALUE_NOTFOUND";
constexpr const char* noSection = "IDD_ERR_SECTION_NOTFOUND";

TEST_F(IniFileTest, ReadsLines) {
    const std::string key63(63, 'k');
    const std::string name63(63, 'n');
    const struct {
        const char* what;
        std::string content;
        std::string section;
        std::string key;
        std::string value;
    } cases[] = {
        {"plain", "[Config]\nFiles=a,b\n", "Config", "Files", "a,b"},
        {"CR LF", "[Config]\r\nFiles=a\r\n", "Config", "Files", "a"},
        {"case of names", "[Config]\nFILES=a\n", "config", "files", "a"},
        {"blank before =", "[Config]\nFiles =a\n", "Config", "Files", noKey},
        {"blanks belong to key and value", "[Config]\nFiles = a \n", "Config", "Files ", " a "},
        {"= in a value", "[Config]\nFiles=a=b=\n", "Config", "Files", "a=b="},
        {"empty value", "[Config]\nFiles=\n", "Config", "Files", ""},
        {"no comments", "[Config]\n;Files=a\n", "Config", ";Files", "a"},
        {"line without =", "[Config]\nFiles\nBuild=1\n", "Config", "Files", noKey},
        {"goes on after it", "[Config]\nFiles\nBuild=1\n", "Config", "Build", "1"},
        {"key of 64 is skipped", "[Config]\nk" + key63 + "=a\n", "Config", "k" + key63, noKey},
        {"name of 64 is cut", "[" + name63 + "m]\nFiles=a\n", name63, "Files", "a"},
        {"text after ]", "[Config] and more\nFiles=a\n", "Config", "Files", "a"},
        {"no ]", "[Config\nFiles=a\n", "Config", "Files", "a"},
        {"after the end marker", "[A]\nFiles=a\n[END]\n[B]\nFiles=b\n", "B", "Files", noSection},
        {"blank before the end marker", "[A]\n [END]\nFiles=a\n", "A", "Files", "a"},
        {"text after the end marker", "[A]\n[END] \nFiles=a\n", "END", "Files", "a"},
        {"empty file", "", "A", "Files", noSection},
        {"only the end marker", "[END]", "END", "Files", noSection},
    };
    for (const auto& [what, content, section, key, value] : cases) {
        SCOPED_TRACE(what);
        EXPECT_EQ(Load(content), IDD_ERR_ZERO);
        EXPECT_EQ(Value(section.c_str(), key.c_str()), value);
    }
}

TEST_F(IniFileTest, FindsEntriesOfTheSameKeyByIndex) {
    ASSERT_EQ(Load("[A]\nk=1\nother=x\nK=2\n[B]\nk=3\n[A]\nk=4\n"), IDD_ERR_ZERO);
    EXPECT_EQ(Value("A", "k", 0), "1");
    EXPECT_EQ(Value("A", "k", 1), "2");
    EXPECT_EQ(Value("A", "k", 2), noKey);
    EXPECT_EQ(Value("A", "k", -1), noKey);
    EXPECT_EQ(Value("B", "k", 0), "3");
    EXPECT_EQ(ini_.CountValues("A", "k"), 2);
    EXPECT_EQ(ini_.CountValues("A", "none"), 0);
    EXPECT_EQ(ini_.CountValues("C", "k"), IDD_ERR_SECTION_NOTFOUND);
}

TEST_F(IniFileTest, CutsAValueToTheBuffer) {
    ASSERT_EQ(Load("[A]\nk=abcde\n"), IDD_ERR_ZERO);
    const struct {
        int capacity;
        std::string value;
    } cases[] = {{1, ""}, {4, "abc"}, {5, "abcd"}, {6, "abcde"}, {7, "abcde"}};
    for (const auto& [capacity, value] : cases) {
        char buffer[] = "########";
        int size = capacity;
        EXPECT_EQ(ini_.GetValue("A", "k", buffer, &size), IDD_ERR_ZERO);
        EXPECT_EQ(size, static_cast<int>(value.size()));
        EXPECT_EQ(buffer, value);
        EXPECT_EQ(buffer[capacity], '#') << "written behind the buffer";
    }
}

TEST_F(IniFileTest, RefusesMissingArguments) {
    ASSERT_EQ(Load("[A]\nk=1\n"), IDD_ERR_ZERO);
    char buffer[4] = "#";
    int size = sizeof buffer;
    int none = 0;
    EXPECT_EQ(ini_.Load(nullptr), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.GetValue(nullptr, "k", buffer, &size), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.GetValue("A", nullptr, buffer, &size), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.GetValue("A", "k", nullptr, &size), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.GetValue("A", "k", buffer, nullptr), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.GetValue("A", "k", buffer, &none), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.CountValues(nullptr, "k"), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(ini_.CountValues("A", nullptr), IDD_ERR_NULL_ARGUMENT);
    EXPECT_STREQ(buffer, "#");
    EXPECT_EQ(Value("A", "k"), "1");
}

TEST_F(IniFileTest, KeepsItsContentWhenAFileCannotBeRead) {
    ASSERT_EQ(Load("[A]\nk=1\n"), IDD_ERR_ZERO);
    EXPECT_EQ(ini_.Load((folder_.Path() / "none.ini").string().c_str()), IDD_ERR_INIFILE_OPENFAILED);
    EXPECT_EQ(ini_.Load(folder_.Path().string().c_str()), IDD_ERR_INIFILE_OPENFAILED) << "a folder is no file";
    EXPECT_EQ(ini_.Load("/proc/self/mem"), IDD_ERR_INIFILE_OPENFAILED) << "opens, but its start cannot be read";
    EXPECT_EQ(Value("A", "k"), "1");

    ASSERT_EQ(Load("[B]\nk=2\n"), IDD_ERR_ZERO);
    EXPECT_EQ(Value("A", "k"), noSection) << "loading replaces";
    EXPECT_EQ(ini_.Clear(), IDD_ERR_ZERO);
    EXPECT_EQ(Value("B", "k"), noSection);
}

TEST_F(IniFileTest, TakesEitherSeparatorInAPath) {
    test::WriteFile(folder_.Path() / "sub" / "a.ini", "[A]\nk=1\n");
    EXPECT_EQ(ini_.Load((folder_.Path().string() + "\\sub\\a.ini").c_str()), IDD_ERR_ZERO);
    EXPECT_EQ(Value("A", "k"), "1");
}

TEST(IniFileCodes, HaveNames) {
    const std::vector<std::pair<int, const char*>> names = {
        {0, "IDD_ERR_ZERO"},
        {-100, "IDD_ERR_INVALID_VALUE"},
        {-101, "IDD_ERR_VALUE_NAME_OVERSIZE"},
        {-102, "IDD_ERR_VALUE_OVERSIZE"},
        {-103, "IDD_ERR_VALUE_NOTFOUND"},
        {-104, "IDD_ERR_SECTION_NOTFOUND"},
        {-105, "IDD_ERR_INIFILE_OPENFAILED"},
        {-106, "IDD_ERR_Unknown"},
        {1, "IDD_ERR_Unknown"},
    };
    for (const auto& [code, name] : names) {
        EXPECT_STREQ(IddErrorName(code), name);
    }
}

} // namespace
} // namespace updkrx
