#include "common/bounded_text.h"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace updkrx {
namespace {

TEST(BoundedText, WritesWhatFitsAndTellsWhenItCut) {
    const struct {
        const char* text;
        size_t capacity;
        int result;
        const char* written;
    } cases[] = {
        {"", 1, 0, ""}, {"abc", 4, 3, "abc"}, {"abcd", 4, -1, "abc"}, {"abcd", 1, -1, ""}, {"abcde", 7, 5, "abcde"},
    };
    for (const auto& [text, capacity, result, written] : cases) {
        SCOPED_TRACE(std::string(text) + " into " + std::to_string(capacity));
        std::string buffer(8, '#');
        EXPECT_EQ(bq_snprintf(buffer.data(), capacity, "%s", text), result);
        EXPECT_STREQ(buffer.c_str(), written);
        EXPECT_EQ(buffer.substr(capacity), std::string(8 - capacity, '#')) << "written behind the buffer";
    }
}

TEST(BoundedText, WritesNothingWithoutABuffer) {
    char buffer[] = "#";
    EXPECT_EQ(bq_snprintf(nullptr, 8, "%d", 1), -1);
    EXPECT_EQ(bq_snprintf(buffer, 0, "%d", 1), -1);
    EXPECT_STREQ(buffer, "#");
}

TEST(BoundedText, LeavesTheEmptyTextWhenItCannotFormat) {
    char buffer[16] = "#";
    const wchar_t unencodable[] = {0xD800, 0}; // half a character
    if (std::snprintf(nullptr, 0, "%ls", unencodable) >= 0) {
        GTEST_SKIP() << "formatting never fails here";
    }
    EXPECT_EQ(bq_snprintf(buffer, sizeof buffer, "ab%ls", unencodable), -1);
    EXPECT_STREQ(buffer, "");
    buffer[0] = '#';
    EXPECT_EQ(bq_snprintf(buffer, 0, "ab%ls", unencodable), -1);
    EXPECT_EQ(buffer[0], '#') << "no room for the empty text either";
}

} // namespace
} // namespace updkrx
