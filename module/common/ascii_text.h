// Reading texts byte by byte: letters without regard to case, decimal numbers, lists. Only ASCII means anything here;
// every other byte stands for itself, whatever the process's locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace updkrx {

/** A-Z become a-z, every other byte stays. */
[[nodiscard]] char AsciiLower(char character) noexcept;

[[nodiscard]] bool EqualIgnoringAsciiCase(std::string_view left, std::string_view right) noexcept;

/**
 * Takes a decimal number from the start of `text`: blanks, an optional sign, digits. False, with both arguments as
 * they were, when no digit stands there. A number beyond 32 bits becomes the nearest one that fits.
 */
[[nodiscard]] bool TakeNumber(std::string_view& text, int32_t& number) noexcept;

/** The number at the start of `text` as TakeNumber reads it; 0 when there is none. */
[[nodiscard]] int32_t NumberOf(std::string_view text) noexcept;

/** Adds the items of a comma-separated text to the end of `list`, exactly as they are written: blanks and empty items
 *  stay. An empty text has no items, and one comma at the end adds none. Always 0. */
int SplitCommaList(std::vector<std::string>& list, std::string_view text);

} // namespace updkrx
