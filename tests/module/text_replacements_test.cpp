#include "migrations/text_replacements.h"

#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace updkrx {
namespace {

using Pairs = TextReplacements::Pairs;

struct Outcome {
    bool occurs;
    std::string text;
    std::vector<std::string> replaced; // key, and the text after its replacement
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    out << outcome.occurs << ' ' << outcome.text;
    for (const std::string& step : outcome.replaced) {
        out << "\n  " << step;
    }
    return out;
}

/** What has to come out: each key is searched for in turn. */
Outcome SearchForEachKey(const Pairs& pairs, std::string text) {
    Outcome outcome = {false, {}, {}};
    for (const auto& [key, value] : pairs) {
        outcome.occurs = outcome.occurs || text.find(key) != std::string::npos;
    }
    for (const auto& [key, value] : pairs) {
        if (const size_t position = text.find(key); position != std::string::npos) {
            text.replace(position, key.size(), value);
            outcome.replaced.push_back(key + " -> " + text);
        }
    }
    outcome.text = text;
    return outcome;
}

Outcome Replace(const Pairs& pairs, std::string text) {
    const TextReplacements replacements(pairs);
    Outcome outcome = {replacements.OccurIn(text), {}, {}};
    replacements.Apply(text, [&](auto pair) { outcome.replaced.push_back(pair->first + " -> " + text); });
    outcome.text = text;
    return outcome;
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
        replaced += expected.replaced.size();
    }
    EXPECT_GT(replaced, 5'000U) << "too little has happened";
}

} // namespace
} // namespace updkrx
