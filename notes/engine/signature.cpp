// The value of a signature item: magic (4 bytes), digest (8 bytes), signer's name.
//
// The digest covers the class and every item but the signature itself, in the form that lists of one have as
// single values, so that a note signed expanded and saved contracted is still as it was signed.
#include "engine/signature.h"

#include <cstring>

namespace embedded {
namespace {

constexpr std::string_view magic = "ESG1";
constexpr size_t headSize = 4 + sizeof(uint64_t);

class Digest {
public:
    void add(std::string_view bytes) noexcept {
        addWord(bytes.size());
        for (const char c : bytes)
            addByte(static_cast<unsigned char>(c));
    }
    void addWord(uint64_t word) noexcept {
        for (int shift = 0; shift < 64; shift += 8)
            addByte(static_cast<unsigned char>(word >> shift));
    }
    [[nodiscard]] uint64_t value() const noexcept { return hash_; }

private:
    // FNV-1a, 64 bits.
    void addByte(unsigned char byte) noexcept { hash_ = (hash_ ^ byte) * 1099511628211ull; }
    uint64_t hash_ = 14695981039346656037ull;
};

uint64_t digestOf(Items items, WORD noteClass) {
    contractItems(items);
    Digest digest;
    digest.addWord(noteClass);
    ItemCursor cursor = items.cursor();
    for (ItemView item{}; cursor.next(item);) {
        if (sameItemName(item.name, signatureItem))
            continue;
        digest.add(item.name);
        digest.addWord(item.type);
        digest.addWord(item.flags);
        digest.add(item.value);
    }
    return digest.value();
}

} // namespace

void signItems(Items& items, WORD noteClass, std::string_view signer) {
    const uint64_t digest = digestOf(items, noteClass);
    std::string value(magic);
    value.append(reinterpret_cast<const char*>(&digest), sizeof digest);
    value += signer;
    items.set({signatureItem, TYPE_SIGNATURE, ITEM_SIGN, value});
}

SignatureState signatureState(const Items& items, WORD noteClass) {
    SignatureState state;
    const auto item = items.find(signatureItem);
    if (!item)
        return state;
    state.present = true;
    if (item->type != TYPE_SIGNATURE || item->value.size() < headSize || !item->value.starts_with(magic))
        return state;
    uint64_t digest;
    std::memcpy(&digest, item->value.data() + magic.size(), sizeof digest);
    state.valid = digest == digestOf(items, noteClass);
    state.signer = item->value.substr(headSize);
    return state;
}

} // namespace embedded
