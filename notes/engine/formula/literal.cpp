#include "engine/formula/literal.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "engine/formula/operation.h"
#include "engine/values/ascii.h"
#include "engine/values/charset.h"
#include "engine/values/timedate.h"

namespace embedded {

namespace {

/** Field names are of ASCII letters, digits, _ and $, and of all other characters but controls. */
bool IsNameCharacter(std::string_view character) {
    const auto lead = static_cast<unsigned char>(character.front());
    if (lead >= 0x20 && lead < 0x80) {
        return (lead >= 'A' && lead <= 'Z') || (lead >= 'a' && lead <= 'z') || IsDigit(character.front()) ||
               lead == '_' || lead == '$';
    }
    return lead >= 0x80 || (character.size() > 1 && lead != 0x0F);
}

size_t DigitsLength(std::string_view text) {
    return std::min(text.find_first_not_of("0123456789"), text.size());
}

/** Takes the parts of a time literal off its text. */
class TimeReader {
public:
    explicit TimeReader(std::string_view text) : rest_(text) {}

    /** A number of `least` to `most` digits, with `behind` behind it; -1 when there is none. */
    int Number(size_t least, size_t most, std::string_view behind = {}) {
        const size_t length = DigitsLength(rest_);
        int number = -1;
        if (length >= least && length <= most && rest_.substr(length).starts_with(behind)) {
            std::from_chars(rest_.data(), rest_.data() + length, number);
            rest_.remove_prefix(length + behind.size());
        }
        return number;
    }
    bool Word(std::string_view word) {
        if (LowerAscii(rest_.substr(0, word.size())) != word) {
            return false;
        }
        rest_.remove_prefix(word.size());
        return true;
    }
    void SkipBlanks() { rest_ = Trimmed(rest_); }
    [[nodiscard]] bool AtEnd() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

/** Hours as a clock of 24 hours has them; -1 for what a clock of twelve does not have. */
int ReadMeridiem(TimeReader& reader, int hours) {
    const bool morning = reader.Word("am");
    if (!morning && !reader.Word("pm")) {
        return hours;
    }
    return hours < 1 || hours > 12 ? -1 : hours % 12 + (morning ? 0 : 12);
}

std::string TextLiteral(std::string_view content) {
    std::string text = "\"";
    while (!content.empty()) {
        const std::string_view character = content.substr(0, LmbcsCharacterLength(content));
        if (character == "\"" || character == "\\") {
            text += '\\';
        }
        text += character;
        content.remove_prefix(character.size());
    }
    return text += '"';
}

std::optional<std::string> NumberText(std::string_view payload) {
    const auto number = ValueAt<double>(payload.data());
    char digits[32];
    const auto written = std::to_chars(digits, digits + sizeof digits, number);
    std::string text(digits, written.ptr);
    return !std::signbit(number) && NumberFromText(text) == payload ? std::optional(text) : std::nullopt;
}

std::optional<std::string> TimeLiteral(std::string_view payload) {
    const std::string dxl = DxlFromTimedate(ValueAt<TIMEDATE>(payload.data())).value_or(""); // 20261225T103000,00+00
    if (dxl.size() < 8 || dxl.front() == 'T') {
        return std::nullopt;
    }
    std::string text = dxl.substr(4, 2) + "/" + dxl.substr(6, 2) + "/" + dxl.substr(0, 4);
    if (dxl.size() > 15) {
        text += " " + dxl.substr(9, 2) + ":" + dxl.substr(11, 2) + ":" + dxl.substr(13, 2);
    }
    return TimeFromText(text) == payload ? std::optional("[" + text + "]") : std::nullopt;
}

} // namespace

size_t NameLength(std::string_view text) noexcept {
    size_t length = 0;
    while (const size_t next = LmbcsCharacterLength(text.substr(length))) {
        if (!IsNameCharacter(text.substr(length, next))) {
            break;
        }
        length += next;
    }
    return length;
}

bool IsName(std::string_view text) noexcept {
    return !text.empty() && !IsDigit(text.front()) && NameLength(text) == text.size();
}

bool IsWholeCharacters(std::string_view text) noexcept {
    while (const size_t next = LmbcsCharacterLength(text)) {
        text.remove_prefix(next);
    }
    return text.empty();
}

size_t NumberLength(std::string_view text) noexcept {
    size_t length = DigitsLength(text);
    if (text.substr(length).starts_with('.')) {
        const size_t decimals = DigitsLength(text.substr(length + 1));
        length += length + decimals > 0 ? 1 + decimals : 0;
    }
    if (length > 0 && LowerAscii(text.substr(length, 1)) == "e") {
        const size_t sign = text.substr(length + 1).find_first_of("+-") == 0 ? 1 : 0;
        const size_t exponent = DigitsLength(text.substr(length + 1 + sign));
        length += exponent > 0 ? 1 + sign + exponent : 0;
    }
    return length;
}

std::optional<std::string> NumberFromText(std::string_view text) {
    double number = 0;
    // cppcheck-suppress invalidLifetime ; nobody calls this with a text that is gone
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || (number != 0 && !std::isnormal(number))) {
        return std::nullopt;
    }
    std::string bytes;
    AppendValue(bytes, number);
    return bytes;
}

std::optional<std::string> TimeFromText(std::string_view text) {
    TimeReader reader(Trimmed(text));
    const int month = reader.Number(1, 2, "/");
    const int day = reader.Number(1, 2, "/");
    const int year = reader.Number(4, 4);
    if (month < 0 || day < 0 || year < 0) {
        return std::nullopt;
    }
    char dxl[64];
    std::snprintf(dxl, sizeof dxl, "%04d%02d%02d", year, month, day);
    if (!reader.AtEnd()) {
        if (!reader.Word(" ")) {
            return std::nullopt;
        }
        reader.SkipBlanks();
        int hours = reader.Number(1, 2, ":");
        const int minutes = reader.Number(2, 2);
        const int seconds = reader.Word(":") ? reader.Number(2, 2) : 0;
        reader.SkipBlanks();
        hours = ReadMeridiem(reader, hours);
        if (hours < 0 || minutes < 0 || seconds < 0 || !reader.AtEnd()) {
            return std::nullopt;
        }
        std::snprintf(dxl, sizeof dxl, "%04d%02d%02dT%02d%02d%02d", year, month, day, hours, minutes, seconds);
    }
    const auto time = TimedateFromDxl(dxl, false);
    if (!time) {
        return std::nullopt;
    }
    std::string bytes;
    AppendValue(bytes, *time);
    return bytes;
}

std::optional<std::string> LeafText(char code, std::string_view payload) {
    switch (code) {
    case op::field:
        return IsName(payload) ? std::optional(std::string(payload)) : std::nullopt;
    case op::number:
        return NumberText(payload);
    case op::time:
        return TimeLiteral(payload);
    default:
        return IsWholeCharacters(payload) ? std::optional(TextLiteral(payload)) : std::nullopt;
    }
}

} // namespace embedded
