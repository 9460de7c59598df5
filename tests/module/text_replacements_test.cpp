#include "migrations/text_replacements.h"

#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace updkrx {
namespace {

using Pairs = TextReplacements::Pairs;

/** Whether a key occurs, the text, and for each replacement the key and the text after it. */
using Outcome = std::tuple<bool, std::string, std::vector<std::string>>;

/** What has to come out: each key is searched for in turn. */
Outcome SearchForEachKey(const Pairs& pairs, std::string text) {
    bool occurs = false;
    std::vector<std::string> replaced;
    for (const auto& [key, value] : pairs) {
        occurs = occurs || text.find(key) != std::string::npos;
    }
    for (const auto& [key, value] : pairs) {
        if (const size_t position = text.find(key); position != std::string::npos) {
            text.replace(position, key.size(), value);
            replaced.push_back(key + " -> " + text);
        }
    }
    return {occurs, text, replaced};
}

Outcome Replace(const Pairs& pairs, std::string text) {
    const TextReplacements replacements(pairs);
    const bool occurs = replacements.OccurIn(text);
    std::vector<std::string> replaced;
    replacements.Apply(text, [&](auto pair) { replaced.push_back(pair->first + " -> " + text); });
    return {occurs, text, replaced};
}

/** Few letters, so that keys, values and texts overlap in every way. */
TEST(TextReplacementsTest, EqualsASearchForEachKey) {
    std::mt19937 random(5'8'0);
    const auto number = [&](size_t from, size_t to) { return std::uniform_int_distribution<size_t>(from, to)(random); };
    const auto letters = [&](size_t length, std::string_view alphabet) {
        std::string text;
        while (text.size() < length) {
            text += alphabet[number(0, alphabet.size() - 1)];
        }
        return text;
    };
    size_t replaced = 0;
    for (int round = 0; round < 5'000; ++round) {
        const size_t keyLength = number(1, 4);
        const bool equalLengths = number(0, 2) != 0;
        Pairs pairs;
        for (size_t count = number(1, 12); count > 0; --count) {
            pairs.emplace(letters(equalLengths ? keyLength : number(0, 4), "A\xFF"),
                          letters(equalLengths ? keyLength : number(0, 4), "A\xFF."));
        }
        const std::string text = letters(number(0, 24), "A\xFF..");
        const Outcome expected = SearchForEachKey(pairs, text);
        ASSERT_EQ(Replace(pairs, text), expected) << "round " << round << ": " << text;
        replaced += std::get<2>(expected).size();
    }
    EXPECT_GT(replaced, 5'000U) << "too little has happened";
}

} // namespace
} // namespace updkrx
