#include "common/startup.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

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

TEST(Startup, CollectionsOrderTextsByUnsignedBytes) {
    const std::vector<std::string> ordered = {"", std::string("\0", 1), "A", "AA", "B", "a", "\x7F", "\x80", "\xFF"};
    const decltype(ObsoleteUNIDSet) texts(ordered.rbegin(), ordered.rend());
    EXPECT_EQ(std::vector<std::string>(texts.begin(), texts.end()), ordered);
    decltype(gMap) map;
    for (const std::string& text : ordered) {
        map.emplace(text, "first");
        map.emplace(text, "second");
    }
    EXPECT_TRUE(std::ranges::equal(map, ordered, {}, &decltype(gMap)::value_type::first));
    EXPECT_EQ(map["\xFF"], "first");
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
    EXPECT_EQ(StringPool.size(), 1412U);
    EXPECT_EQ(names.size(), 46U);
    EXPECT_STREQ(StringPool[installPathVariable], "VarnholtInstallPath");
    // As they are stored, also behind the pass over them at load.
    for (const char* text : {"$ConflictAction", "KRX_ENABLE_KRENCY_LOG", "pre-defined", "engine\\vrola", "DocID"}) {
        EXPECT_EQ(names.count(text), 1U) << text;
    }
}

TEST(NameTexts, CharacterPairsChangeNothing) {
    std::string expected("\0\a\b\t\n\v\f\r", 8);
    for (char printable = ' '; printable <= '~'; ++printable) {
        expected += printable;
    }
    std::string from;
    std::string to;
    for (const CharPair& pair : CharPairTable) {
        from += pair.from;
        to += pair.to;
    }
    EXPECT_EQ(from.size(), 103U);
    EXPECT_EQ(from, expected);
    EXPECT_EQ(to, expected);
}

TEST(NameTexts, TheFirstPairForACharacterReplacesIt) {
    char text[] = "abcab\xFF\t\0ab";
    const CharPair pairs[] = {{'b', 'c'}, {'a', 'b'}, {'b', 'x'}, {'\t', '\n'}, {'\0', 'x'}};
    ReplaceCharacters(text, pairs);
    EXPECT_EQ(std::string(text, sizeof text), std::string("bccbc\xFF\n\0ab", 11));
}

} // namespace
} // namespace updkrx
