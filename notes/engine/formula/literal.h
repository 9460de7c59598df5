// Names and literals: how the text of a formula has them, and how its compiled form does.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace embedded {

/** The length of the name characters that `text` (LMBCS) begins with. */
size_t NameLength(std::string_view text) noexcept;
/** Whether `text` is the name of a field or variable. */
bool IsName(std::string_view text) noexcept;
bool IsWholeCharacters(std::string_view text) noexcept;

inline bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

/** The length of the number that `text` begins with: digits with a point and an exponent; 0 when there is none. */
size_t NumberLength(std::string_view text) noexcept;
/** The compiled form of a number, 8 bytes; nothing when it is too large or too small. */
std::optional<std::string> NumberFromText(std::string_view text);

/** The compiled form (a TIMEDATE) of what stands in brackets: month/day/year, with a year of four digits, and after it
 *  hours:minutes[:seconds] [AM|PM], in GMT; nothing when it is no such time. */
std::optional<std::string> TimeFromText(std::string_view text);

/** The text, with quotes or brackets, of the leaf of that code; nothing when it could not be read again. */
std::optional<std::string> LeafText(char code, std::string_view payload);

} // namespace embedded
