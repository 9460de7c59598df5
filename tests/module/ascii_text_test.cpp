#include "common/ascii_text.h"

#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace updkrx {
namespace {

TEST(AsciiText, FoldsOnlyAsciiLetters) {
    EXPECT_TRUE(EqualIgnoringAsciiCase("aZ[config]", "Az[CONFIG]"));
    EXPECT_FALSE(EqualIgnoringAsciiCase("config", "configs"));
    EXPECT_FALSE(EqualIgnoringAsciiCase("[", "{")); // one bit apart, as "A" and "a" are
    EXPECT_FALSE(EqualIgnoringAsciiCase("\xC4", "\xE4"));
}

TEST(AsciiText, ReadsNumbers) {
    const struct {
        const char* text;
        int32_t number;
    } cases[] = {
        {"3050", 3050},
        {"3050abc", 3050},
        {" \t\n\v\f\r7", 7},
        {"+12", 12},
        {"-12", -12},
        {"- 12", 0},
        {"", 0},
        {"-", 0},
        {"abc", 0},
        {"007", 7},
        {"1.9", 1},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"-2147483648", INT_MIN},
        {"-2147483649", INT_MIN},
        {"99999999999999999999999", INT_MAX},
    };
    for (const auto& [text, number] : cases) {
        EXPECT_EQ(NumberOf(text), number) << text;
    }
}

TEST(AsciiText, TakesANumberAndLeavesTheRest) {
    std::string_view text = " 5.8";
    int32_t number = -1;
    EXPECT_TRUE(TakeNumber(text, number));
    EXPECT_EQ(number, 5);
    EXPECT_EQ(text, ".8");
    EXPECT_FALSE(TakeNumber(text, number));
    EXPECT_EQ(number, 5);
    EXPECT_EQ(text, ".8");
}

TEST(CommaList, KeepsItemsAsTheyAreWritten) {
    const struct {
        const char* text;
        std::vector<std::string> items;
    } cases[] = {
        {"", {}},
        {",", {""}},
        {",,", {"", ""}},
        {"a", {"a"}},
        {"a,b", {"a", "b"}},
        {"a,b,", {"a", "b"}},
        {"a,,b", {"a", "", "b"}},
        {",a", {"", "a"}},
        {"a, b ,\"c,d\"", {"a", " b ", "\"c", "d\""}},
        {"a,a", {"a", "a"}},
    };
    for (const auto& [text, items] : cases) {
        std::vector<std::string> list = {"first"};
        EXPECT_EQ(SplitCommaList(list, text), 0);
        std::vector<std::string> expected = {"first"};
        expected.insert(expected.end(), items.begin(), items.end());
        EXPECT_EQ(list, expected) << text;
    }
}

} // namespace
} // namespace updkrx
