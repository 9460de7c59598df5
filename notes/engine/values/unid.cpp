#include "engine/values/unid.h"

#include <cstdio>

#include "engine/values/ascii.h"

namespace embedded {
namespace {

std::optional<DWORD> parseWord(std::string_view digits) {
    DWORD value = 0;
    for (const char c : digits) {
        const char l = lowerAscii(c);
        if (l >= '0' && l <= '9')
            value = value * 16 + static_cast<DWORD>(l - '0');
        else if (l >= 'a' && l <= 'f')
            value = value * 16 + static_cast<DWORD>(l - 'a' + 10);
        else
            return std::nullopt;
    }
    return value;
}

} // namespace

std::string unidText(const UNID& unid) {
    return idText(unid.File) + idText(unid.Note);
}

std::string idText(const TIMEDATE& id) {
    char text[17];
    std::snprintf(text, sizeof text, "%08X%08X", id.Innards[1], id.Innards[0]);
    return text;
}

std::optional<UNID> parseUnid(std::string_view text) {
    if (text.size() != 32)
        return std::nullopt;
    const auto file = parseId(text.substr(0, 16));
    const auto note = parseId(text.substr(16));
    if (!file || !note)
        return std::nullopt;
    return UNID{*file, *note};
}

std::optional<TIMEDATE> parseId(std::string_view text) {
    if (text.size() != 16)
        return std::nullopt;
    const auto high = parseWord(text.substr(0, 8));
    const auto low = parseWord(text.substr(8));
    if (!high || !low)
        return std::nullopt;
    return TIMEDATE{{*low, *high}};
}

DBID generatedUnidFile(const TIMEDATE& replicaId, uint32_t serial) noexcept {
    // FNV-1a over the three words: spread well enough for an identifier, and the same on every machine.
    uint32_t hash = 2166136261u;
    for (const uint32_t word : {replicaId.Innards[0], replicaId.Innards[1], serial})
        for (int shift = 0; shift < 32; shift += 8)
            hash = (hash ^ ((word >> shift) & 0xFF)) * 16777619u;
    return DBID{{serial, hash}};
}

bool isGeneratedUnid(const UNID& unid, const TIMEDATE& replicaId) noexcept {
    return unid.File == generatedUnidFile(replicaId, unid.File.Innards[0]);
}

} // namespace embedded
