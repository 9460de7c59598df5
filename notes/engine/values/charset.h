// The Notes character set (LMBCS, optimisation group 1) and its way to and from UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace embedded {

/** Bytes that are not UTF-8 become U+FFFD. */
std::u16string Utf16FromUtf8(std::string_view text);
/** Bytes that are not UTF-8 become U+FFFD. Zero bytes stay. A character has the same bytes wherever it stands, so
 *  that equal texts are equal bytes and parts of a text can be looked for. */
std::string LmbcsFromUtf8(std::string_view text);
/** Bytes that are not LMBCS become U+FFFD. Zero bytes stay. */
std::string Utf8FromLmbcs(std::string_view text);
/** The bytes of the first character of `text`; 0 when there is none or its bytes are not LMBCS. */
size_t LmbcsCharacterLength(std::string_view text) noexcept;
/** The same for who goes on in any case: what begins no character counts as one byte. */
size_t LmbcsStepLength(std::string_view text) noexcept;
/** An LMBCS text with each letter in that case, one for one, whatever the locale. */
std::string LmbcsLowerCase(std::string_view text);
std::string LmbcsUpperCase(std::string_view text);
/** The longest start of `text` that fits into `size` bytes without cutting a character. */
std::string_view CutUtf8(std::string_view text, size_t size);
std::string_view CutLmbcs(std::string_view text, size_t size);

} // namespace embedded
