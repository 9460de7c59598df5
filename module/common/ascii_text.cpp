#include "common/ascii_text.h"

#include <algorithm>
#include <limits>

namespace updkrx {

char AsciiLower(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool EqualIgnoringAsciiCase(std::string_view left, std::string_view right) noexcept {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return AsciiLower(a) == AsciiLower(b); });
}

bool TakeNumber(std::string_view& text, int32_t& number) noexcept {
    size_t position = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    bool negative = false;
    if (position < text.size() && (text[position] == '-' || text[position] == '+')) {
        negative = text[position] == '-';
        ++position;
    }
    const size_t firstDigit = position;
    // Gathered as a negative number, since the smallest number has no positive counterpart.
    constexpr int64_t smallest = std::numeric_limits<int32_t>::min();
    constexpr int64_t largest = std::numeric_limits<int32_t>::max();
    int64_t value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        value = std::max(value * 10 - (text[position] - '0'), smallest);
    }
    if (position == firstDigit) {
        return false;
    }
    number = static_cast<int32_t>(negative ? value : std::min(-value, largest));
    text.remove_prefix(position);
    return true;
}

int32_t NumberOf(std::string_view text) noexcept {
    int32_t number = 0;
    return TakeNumber(text, number) ? number : 0;
}

int SplitCommaList(std::vector<std::string>& list, std::string_view text) {
    while (!text.empty()) {
        const size_t comma = text.find(',');
        list.emplace_back(text.substr(0, comma));
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    }
    return 0;
}

} // namespace updkrx
