#include "engine/note_data.h"

#include <cstdio>

#include "engine/status_error.h"

namespace embedded {
namespace {

template<typename T>
void put(std::string& out, T value) {
    char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    out.append(bytes, sizeof(T));
}

template<typename T>
T get(const char* bytes) noexcept {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

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

void ItemCursor::damaged() {
    throw StatusError(EMB_ERR_DAMAGED, "the items of a note are damaged");
}

void appendEncoded(std::string& encoded, const ItemView& item) {
    const auto nameSize = static_cast<WORD>(item.name.size());
    const auto valueSize = static_cast<DWORD>(item.value.size());
    char head[itemHeadSize];
    std::memcpy(head, &item.flags, sizeof item.flags);
    std::memcpy(head + 2, &item.type, sizeof item.type);
    std::memcpy(head + 4, &nameSize, sizeof nameSize);
    std::memcpy(head + 6, &valueSize, sizeof valueSize);
    encoded.append(head, sizeof head).append(item.name).append(item.value);
}

std::string encodeItems(const std::vector<Item>& items) {
    std::string encoded;
    for (const Item& item : items)
        appendEncoded(encoded, {item.name, item.type, item.flags, item.value});
    return encoded;
}

std::optional<ItemView> findItem(std::string_view encoded, std::string_view name) {
    ItemCursor cursor(encoded);
    for (ItemView view{}; cursor.next(view);)
        if (sameItemName(view.name, name))
            return view;
    return std::nullopt;
}

std::optional<std::vector<std::string_view>> textEntries(WORD type, std::string_view value) {
    if (type == TYPE_TEXT)
        return std::vector{value};
    if (type != TYPE_TEXT_LIST || value.size() < sizeof(WORD))
        return std::nullopt;
    const size_t count = get<WORD>(value.data());
    size_t at = sizeof(WORD) * (1 + count);
    if (value.size() < at)
        return std::nullopt;
    std::vector<std::string_view> entries;
    entries.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const size_t length = get<WORD>(value.data() + sizeof(WORD) * (1 + i));
        if (value.size() - at < length)
            return std::nullopt;
        entries.push_back(value.substr(at, length));
        at += length;
    }
    return entries;
}

std::string encodeTextList(const std::vector<std::string_view>& entries) {
    std::string out;
    put(out, static_cast<WORD>(entries.size()));
    for (const std::string_view entry : entries)
        put(out, static_cast<WORD>(entry.size()));
    for (const std::string_view entry : entries)
        out += entry;
    return out;
}

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
