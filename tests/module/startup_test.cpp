#include "common/startup.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "common/common_log.h"
#include "common/name_texts.h"

namespace updkrx {
namespace {

TEST(Startup, HasSetUpTheCommonLog) {
    EXPECT_TRUE(CommonLogLock.valid);
    EXPECT_EQ(CommonLogSettings.level, -1);
    EXPECT_EQ(CommonLogSettings.mode, 0);
    EXPECT_TRUE(CommonLogSettings.is64Bit);
    EXPECT_EQ(CommonLogSettings.processIdFile, 0xFFFFFFFFFFFFFFFFU);
    EXPECT_STREQ(CommonLogSettings.baseName, "");
    EXPECT_STREQ(CommonLogSettings.directory, "");
    EXPECT_TRUE(GetOSIf64Bit());
}

TEST(NameTexts, StandFirstAndOnce) {
    std::set<std::string> names;
    for (const char* text : StringPool) {
        ASSERT_NE(text, nullptr);
        if (*text != '\0') {
            EXPECT_TRUE(names.insert(text).second) << text;
            EXPECT_STREQ(StringPool[names.size() - 1], text) << "an empty slot stands before it";
        }
    }
    EXPECT_STREQ(StringPool[installPathVariable], "VarnholtInstallPath");
    // As they are stored, also behind the pass over them at load.
    for (const char* text : {"$ConflictAction", "KRX_ENABLE_KRENCY_LOG", "pre-defined", "engine\\vrola", "DocID"}) {
        EXPECT_EQ(names.count(text), 1U) << text;
    }
}

TEST(NameTexts, TheFirstPairForACharacterReplacesIt) {
    char text[] = "abcab\xFF\t\0ab";
    const CharPair pairs[] = {{'b', 'c'}, {'a', 'b'}, {'b', 'x'}, {'\t', '\n'}, {'\0', 'x'}};
    ReplaceCharacters(text, pairs);
    EXPECT_EQ(std::string(text, sizeof text), std::string("bccbc\xFF\n\0ab", 11));
}

} // namespace
} // namespace updkrx
