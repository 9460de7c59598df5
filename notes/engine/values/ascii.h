// Texts of ASCII characters, whatever the locale.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace embedded {

inline char LowerAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

inline std::string LowerAscii(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) { return LowerAscii(c); });
    return lower;
}

/** Without the blanks and line ends around it. */
inline std::string_view Trimmed(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace embedded
