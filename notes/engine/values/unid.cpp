#include "engine/values/unid.h"

#include <cstdio>

#include "engine/values/ascii.h"
#include "engine/values/bytes.h"

namespace embedded {
namespace {

std::optional<DWORD> ParseWord(std::string_view digits) {
    DWORD value = 0;
    for (const char c : digits) {
        const char l = LowerAscii(c);
        if (l >= '0' && l <= '9') {
            value = value * 16 + static_cast<DWORD>(l - '0');
        } else if (l >= 'a' && l <= 'f') {
            value = value * 16 + static_cast<DWORD>(l - 'a' + 10);
        } else {
            return std::nullopt;
        }
    }
    return value;
}

} // namespace

std::string UnidText(const UNID& unid) {
    return IdText(unid.File) + IdText(unid.Note);
}

std::string IdText(const TIMEDATE& id) {
    char text[17];
    std::snprintf(text, sizeof text, "%08X%08X", id.Innards[1], id.Innards[0]);
    return text;
}

std::optional<UNID> ParseUnid(std::string_view text) {
    if (text.size() != 32) {
        return std::nullopt;
    }
    const auto file = ParseId(text.substr(0, 16));
    const auto note = ParseId(text.substr(16));
    if (!file || !note) {
        return std::nullopt;
    }
    return UNID{*file, *note};
}

std::optional<TIMEDATE> ParseId(std::string_view text) {
    if (text.size() != 16) {
        return std::nullopt;
    }
    const auto high = ParseWord(text.substr(0, 8));
    const auto low = ParseWord(text.substr(8));
    if (!high || !low) {
        return std::nullopt;
    }
    return TIMEDATE{{*low, *high}};
}

DBID GeneratedUnidFile(const TIMEDATE& replicaId, uint32_t serial) noexcept {
    const uint32_t words[] = {replicaId.Innards[0], replicaId.Innards[1], serial};
    ShortHash hash; // spread well enough for an identifier
    hash.Add({reinterpret_cast<const char*>(words), sizeof words});
    return DBID{{serial, hash.Value()}};
}

bool IsGeneratedUnid(const UNID& unid, const TIMEDATE& replicaId) noexcept {
    return unid.File == GeneratedUnidFile(replicaId, unid.File.Innards[0]);
}

} // namespace embedded
