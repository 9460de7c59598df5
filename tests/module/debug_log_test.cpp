#include "foundation/debug_log.h"

#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>

#include "support/server_fixture.h"
#include "support/system.h"

namespace updkrx {
namespace {

using DebugLogTest = test::ServerFixture;

TEST_F(DebugLogTest, WritesOnlyWhileTheSwitchIsOne) {
    for (const char* value : {static_cast<const char*>(nullptr), "", "0", "2", "-1", "11", "on"}) {
        SetEnvironment("KRX_ENABLE_KRENCY_LOG", value);
        EmbResetCalls();
        DebugLog(level::progress, "%s", "lost");
        EXPECT_EQ(EmbCallCount(nullptr), 1U) << "one look at the switch and no more";
        EXPECT_EQ(EmbCallCount("OSGetEnvironmentLong"), 1U);
    }
    EXPECT_TRUE(std::filesystem::is_empty(Data() / "krxtemp"));

    SwitchLogOn();
    DebugLog(level::progress, "kept");
    SetEnvironment("KRX_ENABLE_KRENCY_LOG", "0");
    DebugLog(level::progress, "lost");
    EXPECT_EQ(LogMessages(), std::vector<std::string>{"[1]kept"});
}

TEST_F(DebugLogTest, WritesOneLineWithItsHeader) {
    SwitchLogOn();
    DebugLog(1, "The running KRX build is %d", 3001);
    const auto lines = ReadLog();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].message, "The running KRX build is 3001");
    EXPECT_EQ(lines[0].level, "1");
    EXPECT_EQ(lines[0].pid, test::ProcessId());
    EXPECT_EQ(lines[0].tid, test::ThreadId());
    const std::string content = test::ReadText(Data() / "krxtemp" / lines[0].file);
    EXPECT_TRUE(content.ends_with("][module=1]:The running KRX build is 3001\n")) << content;
}

TEST_F(DebugLogTest, ShowsTheLevelInHexadecimal) {
    SwitchLogOn();
    for (const int32_t shown : {0, 3, 31, -1, -2147483647}) {
        DebugLog(shown, "x");
    }
    EXPECT_EQ(LogMessages(), (std::vector<std::string>{"[0]x", "[3]x", "[1f]x", "[ffffffff]x", "[80000001]x"}));
}

TEST_F(DebugLogTest, CutsLongMessagesAndKeepsLineFeeds) {
    SwitchLogOn();
    DebugLog(1, "%s", std::string(2047, 'a').c_str());
    DebugLog(1, "%s", std::string(3000, 'b').c_str());
    DebugLog(1, "ends in a line feed\n");
    DebugLog(1, "100%% %s", "%s");
    EXPECT_EQ(LogMessages(), (std::vector<std::string>{"[1]" + std::string(2047, 'a'), "[1]" + std::string(2047, 'b'),
                                                       "[1]ends in a line feed\n", "[1]100% %s"}));
}

TEST_F(DebugLogTest, StartsAFileForEachDay) {
    SwitchLogOn();
    // 26 hours apart: never the same day.
    for (const char* there : {"WST12", "EST-14"}) {
        test::SetTimeZone(there);
        DebugLog(1, "%s", there);
    }
    test::SetTimeZone(nullptr);
    const auto lines = ReadLog();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].message, "WST12");
    EXPECT_EQ(lines[1].message, "EST-14");
    EXPECT_LT(lines[0].file, lines[1].file);
}

TEST_F(DebugLogTest, IsSilentWithoutItsFolder) {
    SwitchLogOn();
    std::filesystem::remove(Data() / "krxtemp");
    DebugLog(1, "lost");
    EXPECT_FALSE(std::filesystem::exists(Data() / "krxtemp"));
}

TEST_F(DebugLogTest, TellsItsFolder) {
    const std::string whole = Data().string() + "\\krxtemp";
    char buffer[256] = "#";
    GetDebugLogFolder(nullptr, 5);
    GetDebugLogFolder(buffer, 0);
    GetDebugLogFolder(buffer, -1);
    EXPECT_STREQ(buffer, "#");
    GetDebugLogFolder(buffer, 6);
    EXPECT_EQ(buffer, whole.substr(0, 5));
    GetDebugLogFolder(buffer, sizeof buffer);
    EXPECT_EQ(buffer, whole);
}

} // namespace
} // namespace updkrx
