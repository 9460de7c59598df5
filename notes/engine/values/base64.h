#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace embedded {

constexpr std::string_view base64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/** Padded, in one line. */
inline std::string Base64FromBytes(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view group = bytes.substr(at, 3);
        unsigned bits = 0;
        for (size_t i = 0; i < 3; ++i) {
            bits = bits << 8 | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0u);
        }
        for (size_t i = 0; i < 4; ++i) {
            out += i <= group.size() ? base64Digits[bits >> (18 - 6 * i) & 63] : '=';
        }
    }
    return out;
}

constexpr unsigned char noBase64Value = 255;
constexpr std::array<unsigned char, 256> MakeBase64Values() {
    std::array<unsigned char, 256> values{};
    values.fill(noBase64Value);
    for (size_t value = 0; value < base64Digits.size(); ++value) {
        values[static_cast<unsigned char>(base64Digits[value])] = static_cast<unsigned char>(value);
    }
    return values;
}
/** What each character stands for. */
constexpr std::array<unsigned char, 256> base64Values = MakeBase64Values();

/** White space is passed over. Nothing when a digit is wrong, or the last group is not padded or has bits to spare. */
inline std::optional<std::string> BytesFromBase64(std::string_view text) {
    std::string out;
    unsigned bits = 0;
    size_t digits = 0, padding = 0;
    for (const char c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            continue;
        }
        const unsigned value = base64Values[static_cast<unsigned char>(c)];
        if (c == '=' ? ++padding > 2 : padding > 0 || value == noBase64Value) {
            return std::nullopt;
        }
        bits = bits << 6 | (c == '=' ? 0u : value);
        if (++digits % 4 != 0) {
            continue;
        }
        const char group[] = {static_cast<char>(bits >> 16 & 255), static_cast<char>(bits >> 8 & 255),
                              static_cast<char>(bits & 255)};
        if (padding > 0 && (bits & ((1u << 8 * padding) - 1)) != 0) {
            return std::nullopt;
        }
        out.append(group, 3 - padding);
    }
    if (digits % 4 != 0) {
        return std::nullopt;
    }
    return out;
}

} // namespace embedded
