// ICU knows the groups of LMBCS. It is asked for one character at a time, because over a longer text it lets the
// group of the last character decide how the next one is written, and lets stray bytes swallow what follows them.
#include "engine/values/charset.h"

#include <algorithm>
#include <memory>

#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include "engine/values/status_error.h"

namespace embedded {

namespace {

constexpr std::string_view utf8Replacement = "\xEF\xBF\xBD";

struct ConverterCloser {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

UConverter* LmbcsConverter() {
    thread_local std::unique_ptr<UConverter, ConverterCloser> converter; // opening one costs more than most texts
    if (!converter) {
        UErrorCode error = U_ZERO_ERROR;
        converter.reset(ucnv_open("LMBCS-1", &error));
        if (!converter) {
            throw StatusError(EMB_ERR_UNSUPPORTED, std::string("no LMBCS converter: ") + u_errorName(error));
        }
    }
    return converter.get();
}

/** ASCII, line ends and the zero that stands for a line break in a text item. */
bool SameInBothSets(char byte) {
    const bool printable = static_cast<unsigned char>(byte) >= 0x20 && static_cast<unsigned char>(byte) < 0x80;
    return printable || byte == '\0' || byte == '\t' || byte == '\n' || byte == '\r';
}

/** Takes the bytes at the start of `text` off it that are the same in both sets, or that are not. */
std::string_view TakeStart(std::string_view& text, bool same) {
    const auto end = std::find_if(text.begin(), text.end(), [same](char byte) { return SameInBothSets(byte) != same; });
    const std::string_view start = text.substr(0, static_cast<size_t>(end - text.begin()));
    text.remove_prefix(start.size());
    return start;
}

/** LMBCS writes a code point of two units as two, each in its own group 0x14 character. */
std::string LmbcsFromUnit(char16_t unit) {
    char bytes[16];
    UErrorCode error = U_ZERO_ERROR;
    const int32_t length = ucnv_fromUChars(LmbcsConverter(), bytes, sizeof bytes, &unit, 1, &error);
    if (U_FAILURE(error)) {
        throw StatusError(EMB_ERR_UNSUPPORTED, std::string("no LMBCS for a character: ") + u_errorName(error));
    }
    return std::string(bytes, static_cast<size_t>(length));
}

/** `character` is one whole character by its length; what ICU does not find in its group becomes U+FFFD. */
std::string Utf8FromCharacter(std::string_view character) {
    UChar units[8];
    UErrorCode error = U_ZERO_ERROR;
    const int32_t unitCount = ucnv_toUChars(LmbcsConverter(), units, static_cast<int32_t>(std::size(units)),
                                            character.data(), static_cast<int32_t>(character.size()), &error);
    char bytes[std::size(units) * 3];
    int32_t length = 0;
    u_strToUTF8WithSub(bytes, sizeof bytes, &length, units, unitCount, 0xFFFD, nullptr, &error);
    return U_SUCCESS(error) ? std::string(bytes, static_cast<size_t>(length)) : std::string(utf8Replacement);
}

unsigned ByteAt(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/** The bytes of a character with this lead byte, or 0 when no group has it. */
size_t SizeByLead(unsigned lead) {
    switch (lead) {
    case 0x00:
    case 0x09:
    case 0x0A:
    case 0x0D:
    case 0x19:
        return 1;
    case 0x07:
    case 0x0C:
    case 0x0E:
        return 0;
    default:
        return lead >= 0x20 ? 1 : lead <= 0x0F ? 2 : lead <= 0x14 ? 3 : 0;
    }
}

/** The UTF-16 unit of a 0x14 character; a low byte of zero is written as 0xF6 in front of the high one. */
unsigned Utf16Unit(std::string_view character) {
    const unsigned first = ByteAt(character, 1);
    const unsigned second = ByteAt(character, 2);
    return first == 0xF6 ? second << 8 : first << 8 | second;
}

/** 0x0F escapes control characters only, those below 0x20 moved up by 0x20. */
bool IsEscapedControl(unsigned trail) {
    return (trail >= 0x20 && trail < 0x40) || (trail >= 0x80 && trail < 0xA0);
}

/** LmbcsCharacterLength without regard to characters of two UTF-16 units. */
size_t UnitLength(std::string_view text) {
    const size_t length = text.empty() ? 0 : SizeByLead(ByteAt(text, 0));
    if (length <= 1) {
        return length;
    }
    // No character has a zero among its trail bytes: it is the line break after a damaged one.
    if (length > text.size() || text.substr(0, length).find('\0') != std::string_view::npos) {
        return 0;
    }
    return ByteAt(text, 0) == 0x0F && !IsEscapedControl(ByteAt(text, 1)) ? 0 : length;
}

/** What is no character stays, as does a character of two units. */
std::string WithCase(std::string_view text, UChar32 (*convert)(UChar32)) {
    std::string result;
    while (!text.empty()) {
        const size_t length = LmbcsStepLength(text);
        const std::string_view character = text.substr(0, length);
        text.remove_prefix(length);
        if (length == 1 && static_cast<unsigned char>(character.front()) < 0x80) {
            result += static_cast<char>(convert(character.front()));
            continue;
        }
        const std::u16string units = Utf16FromUtf8(Utf8FromLmbcs(character));
        const auto converted = static_cast<char16_t>(convert(units.front()));
        result += units.size() > 1 || converted == units.front() ? std::string(character) : LmbcsFromUnit(converted);
    }
    return result;
}

} // namespace

std::u16string Utf16FromUtf8(std::string_view text) {
    std::u16string units(text.size(), u'\0');
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    // cppcheck-suppress danglingTemporaryLifetime ; nobody calls this with a text that is gone
    u_strFromUTF8WithSub(units.data(), static_cast<int32_t>(units.size()), &length, text.data(),
                         static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &error);
    units.resize(static_cast<size_t>(length));
    return units;
}

std::string LmbcsFromUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        result += TakeStart(text, true);
        for (const char16_t unit : Utf16FromUtf8(TakeStart(text, false))) {
            result += LmbcsFromUnit(unit);
        }
    }
    return result;
}

std::string Utf8FromLmbcs(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        if (SameInBothSets(text.front())) {
            result += TakeStart(text, true);
        } else if (const size_t length = LmbcsCharacterLength(text); length > 0) {
            result += Utf8FromCharacter(text.substr(0, length));
            text.remove_prefix(length);
        } else {
            result += utf8Replacement;
            text.remove_prefix(1);
        }
    }
    return result;
}

size_t LmbcsCharacterLength(std::string_view text) noexcept {
    const size_t length = UnitLength(text);
    if (length == 0 || ByteAt(text, 0) != 0x14 || !U16_IS_LEAD(Utf16Unit(text))) {
        return length;
    }
    const std::string_view rest = text.substr(length);
    const bool pair = UnitLength(rest) == length && ByteAt(rest, 0) == 0x14 && U16_IS_TRAIL(Utf16Unit(rest));
    return pair ? 2 * length : length;
}

size_t LmbcsStepLength(std::string_view text) noexcept {
    return std::max<size_t>(LmbcsCharacterLength(text), 1);
}

std::string LmbcsLowerCase(std::string_view text) {
    return WithCase(text, u_tolower);
}

std::string LmbcsUpperCase(std::string_view text) {
    return WithCase(text, u_toupper);
}

std::string_view CutUtf8(std::string_view text, size_t size) {
    if (size >= text.size()) {
        return text;
    }
    size_t start = size; // of the character that the cut may go through
    while (start > 0 && size - start < 3 && U8_IS_TRAIL(ByteAt(text, start))) {
        --start;
    }
    const auto end = start + 1 + static_cast<size_t>(U8_COUNT_TRAIL_BYTES(ByteAt(text, start)));
    return text.substr(0, end > size ? start : size);
}

std::string_view CutLmbcs(std::string_view text, size_t size) {
    size_t end = 0;
    while (end < text.size()) {
        const size_t next = end + LmbcsStepLength(text.substr(end));
        if (next > size) {
            break;
        }
        end = next;
    }
    return text.substr(0, end);
}

} // namespace embedded
