#include "engine/values/charset.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace embedded {
namespace {

using namespace std::string_literals;

std::string Utf8(char32_t codePoint) {
    const auto byte = [codePoint](unsigned shift, unsigned mark) {
        return static_cast<char>((codePoint >> shift & 0x3F) | mark);
    };
    if (codePoint < 0x80) {
        return {static_cast<char>(codePoint)};
    }
    if (codePoint < 0x800) {
        return {byte(6, 0xC0), byte(0, 0x80)};
    }
    if (codePoint < 0x10000) {
        return {byte(12, 0xE0), byte(6, 0x80), byte(0, 0x80)};
    }
    return {byte(18, 0xF0), byte(12, 0x80), byte(6, 0x80), byte(0, 0x80)};
}

/** Characters in both sets, one after the other. */
struct Text {
    const char* name;
    std::vector<std::string> lmbcs;
    std::vector<std::string> utf8;
};

const std::vector<Text>& Texts() {
    static const std::vector<Text> table{
        {"ascii", {"A", " ", "~", "\x7F", "\0"s, "\t", "\r", "\n"}, {"A", " ", "~", "\x7F", "\0"s, "\t", "\r", "\n"}},
        {"latin", {"\x82", "\x81", "b", "\xE1"}, {"é", "ü", "b", "ß"}},
        {"greek", {"\x02\xD6", "\x02\xD7"}, {"α", "β"}},
        {"hebrew", {"\x03\xE0", "\x03\xFA"}, {"א", "ת"}},
        {"cyrillic", {"\x05\xC6", "-", "\x05\xFF"}, {"Ж", "-", "я"}},
        {"japanese", {"\x10\x83\x5C", "\x10\x95\x5C", "\x10\x82\xA0"}, {"ソ", "表", "あ"}},
        {"korean", {"\x11\xC7\xD1"}, {"한"}},
        {"unicode", {"\x14\xF6\x31", "\x14\x06\xF6"}, {"\u3100", "\u06F6"}},
        {"emoji", {"\x14\xD8\x3D\x14\xF6\xDE", "!", "\x14\xD8\x3D\x14\xDE\x42"}, {"😀", "!", "🙂"}},
        {"controls", {"\x0F\x21", "\x0F\x3B", "\x0F\x85", "\x19"}, {"\x01", "\x1B", "\u0085", "\x19"}},
        {"dash after cyrillic", {"\x05\xC6", "\x03\x96"}, {"Ж", "–"}},
    };
    return table;
}

std::string Joined(const std::vector<std::string>& characters) {
    std::string all;
    for (const std::string& character : characters) {
        all += character;
    }
    return all;
}

TEST(Charset, TranslatesBothWays) {
    for (const Text& text : Texts()) {
        SCOPED_TRACE(text.name);
        EXPECT_EQ(LmbcsFromUtf8(Joined(text.utf8)), Joined(text.lmbcs));
        EXPECT_EQ(Utf8FromLmbcs(Joined(text.lmbcs)), Joined(text.utf8));
    }
}

TEST(Charset, EveryCodePointOfTwoPlanesComesBack) {
    for (char32_t first = 0; first < 0x20000; first += 0x100) {
        std::string text;
        for (char32_t c = first; c < first + 0x100; ++c) {
            if ((c & 0xFFFFF800) != 0xD800 && (c & 0xFFFE) != 0xFFFE) { // surrogates; the last two of a plane
                text += Utf8(c);
            }
        }
        ASSERT_EQ(Utf8FromLmbcs(LmbcsFromUtf8(text)), text) << "from " << static_cast<uint32_t>(first);
    }
}

TEST(Charset, ReadsEveryGroup) {
    const std::pair<std::string, std::string> table[]{
        {"\x01\x82", "é"},          {"\x04\xC7", "ا"},      {"\x06\x9F", "č"},      {"\x08\xFE", "ş"},
        {"\x0B\xA1", "ก"},          {"\x12\xA4\xA4", "中"}, {"\x13\xD6\xD0", "中"}, {"\x14\x4E\x2D", "中"},
        {"\x10\x10\xB1", "\uFF71"}, // half width: a single byte of the group's code page
    };
    for (const auto& [lmbcs, expected] : table) {
        EXPECT_EQ(Utf8FromLmbcs(lmbcs), expected);
    }
}

TEST(Charset, MalformedBytesBecomeReplacementCharacters) {
    const std::string r = "\uFFFD";
    const std::pair<std::string, std::string> fromLmbcs[]{
        {"a\x07z", "a" + r + "z"},            // no such group
        {"a\x1Fz", "a" + r + "z"},            //
        {"a\x05", "a" + r},                   // cut short
        {"a\x14\x41", "a" + r + "A"},         //
        {"a\x10\0z"s, "a" + r + "\0z"s},      // a line break is not swallowed
        {"a\x14\x4E\0z"s, "a" + r + "N\0z"s}, //
        {"a\x0F\nz", "a" + r + "\nz"},        // escapes nothing that needs it
        {"a\x0FZz", "a" + r + "Zz"},          //
        {"a\x0F\xA0", "a" + r + "á"},         //
        {"a\x10\x82\x41z", "a" + r + "z"},    // not in the group's code page
        {"\x14\xD8\x3Dz", r + "z"},           // half of a pair
        {"\x14\xF6\xDEz", r + "z"},           //
    };
    for (const auto& [lmbcs, expected] : fromLmbcs) {
        EXPECT_EQ(Utf8FromLmbcs(lmbcs), expected) << testing::PrintToString(lmbcs);
    }

    const std::string l = LmbcsFromUtf8(r);
    const std::pair<std::string, std::string> fromUtf8[]{
        {"a\x80z", "a" + l + "z"},
        {"a\xC3z", "a" + l + "z"},
        {"a\xC3\0z"s, "a" + l + "\0z"s},
        {"a\xF0\x9F\x98", "a" + l},
        {"\xC0\xAF", l + l},
        {"\xED\xA0\x80", l + l + l}, // a surrogate is no character
    };
    for (const auto& [utf8Text, expected] : fromUtf8) {
        EXPECT_EQ(LmbcsFromUtf8(utf8Text), expected) << testing::PrintToString(utf8Text);
    }
}

/** What of the characters fits into `size` bytes. */
std::string Fitting(const std::vector<std::string>& characters, size_t size) {
    std::string all;
    for (const std::string& character : characters) {
        if (all.size() + character.size() > size) {
            break;
        }
        all += character;
    }
    return all;
}

TEST(Charset, CutsBetweenCharacters) {
    for (const Text& text : Texts()) {
        SCOPED_TRACE(text.name);
        const std::string lmbcs = Joined(text.lmbcs);
        for (size_t size = 0; size <= lmbcs.size() + 1; ++size) {
            EXPECT_EQ(CutLmbcs(lmbcs, size), Fitting(text.lmbcs, size)) << size;
        }
        const std::string inUtf8 = Joined(text.utf8);
        for (size_t size = 0; size <= inUtf8.size() + 1; ++size) {
            EXPECT_EQ(CutUtf8(inUtf8, size), Fitting(text.utf8, size)) << size;
        }
    }
}

TEST(Charset, CutsMalformedTextAtTheSize) {
    const std::string strayTrails(8, '\x80');
    EXPECT_EQ(CutUtf8(strayTrails, 5).size(), 5u);
    EXPECT_EQ(CutUtf8("\xC3\xA9\x80\x80", 2).size(), 2u);
    EXPECT_EQ(CutLmbcs("ab\x10\x83", 3).size(), 3u);
    EXPECT_EQ(CutLmbcs("\x07z", 1).size(), 1u);
    // What looks like the halves of a pair and is none is cut between.
    for (const char* noPair : {"\x14\xD8\x3D\x14\x4E\x2D", "\x14\x4E\x2D\x14\xF6\xDE", "\x14\xD8\x3D\x10\xDE\x41"}) {
        EXPECT_EQ(CutLmbcs(noPair, 5).size(), 3u) << testing::PrintToString(noPair);
    }
}

} // namespace
} // namespace embedded
