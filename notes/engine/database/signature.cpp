// The value of a signature item: magic (4 bytes), digest (8 bytes), signer's name.
//
// The digest covers the class and every item but the signature itself, in the form that lists of one have as
// single values, so that a note signed expanded and saved contracted is still as it was signed.
#include "engine/database/signature.h"

#include "engine/values/bytes.h"

namespace embedded {
namespace {

constexpr std::string_view magic = "ESG1";
constexpr size_t headSize = 4 + sizeof(uint64_t);

class Digest {
public:
    void add(std::string_view bytes) {
        addWord(bytes.size());
        hash_.add(bytes);
    }
    void addWord(uint64_t word) {
        std::string bytes;
        appendValue(bytes, word);
        hash_.add(bytes);
    }
    [[nodiscard]] uint64_t value() const noexcept { return hash_.value(); }

private:
    Hash hash_;
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

/** Of several signatures the last one made counts. */
std::optional<ItemView> lastSignature(const Items& items) {
    std::optional<ItemView> last;
    ItemCursor cursor = items.cursor();
    for (ItemView item{}; cursor.next(item);)
        if (sameItemName(item.name, signatureItem))
            last = item;
    return last;
}

} // namespace

void signItems(Items& items, WORD noteClass, std::string_view signer, bool beside) {
    const uint64_t digest = digestOf(items, noteClass);
    std::string value(magic);
    value.append(reinterpret_cast<const char*>(&digest), sizeof digest);
    value += signer;
    if (!beside)
        items.erase(signatureItem);
    items.append({signatureItem, TYPE_SIGNATURE, ITEM_SIGN | ITEM_SEAL, value});
}

SignatureState signatureState(const Items& items, WORD noteClass) {
    SignatureState state;
    const auto item = lastSignature(items);
    if (!item)
        return state;
    state.present = true;
    if (item->type != TYPE_SIGNATURE || item->value.size() < headSize || !item->value.starts_with(magic))
        return state;
    const auto digest = valueAt<uint64_t>(item->value.data() + magic.size());
    state.valid = digest == digestOf(items, noteClass);
    state.signer = item->value.substr(headSize);
    return state;
}

} // namespace embedded
