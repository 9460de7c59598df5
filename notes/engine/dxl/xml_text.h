// Text as XML has it.
#pragma once

#include <cstdint>
#include <string_view>

namespace embedded {

inline bool IsXmlCharacter(uint32_t c) noexcept {
    return c < 0x20 ? c == '\t' || c == '\n' || c == '\r'
                    : c <= 0xD7FF || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/** Where the first byte stands that is not UTF-8 or starts a character that XML does not have; npos for none. */
inline size_t FindNonXml(std::string_view text) noexcept {
    constexpr uint32_t smallest[] = {0, 0x80, 0x800, 0x10000}; // of each length, as UTF-8 is never longer than needed
    for (size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const size_t trail = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if ((lead >= 0x80 && lead < 0xC0) || lead >= 0xF8 || text.size() - at <= trail) {
            return at;
        }
        uint32_t c = trail == 0 ? lead : lead & (0x3Fu >> trail);
        for (size_t i = 1; i <= trail; ++i) {
            const auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & 0xC0) != 0x80) {
                return at;
            }
            c = c << 6 | (next & 0x3Fu);
        }
        if (c < smallest[trail] || !IsXmlCharacter(c)) {
            return at;
        }
        at += trail + 1;
    }
    return std::string_view::npos;
}

inline bool IsXmlText(std::string_view text) noexcept {
    return FindNonXml(text) == std::string_view::npos;
}

} // namespace embedded
