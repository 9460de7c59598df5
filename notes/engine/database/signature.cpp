// The value of a signature item: magic (4 bytes), digest (8 bytes), signer's name.
//
// The digest covers the class and every item but the signature itself, in the form that lists of one have as
// single values, so that a note signed expanded and saved contracted is still as it was signed.
#include "engine/database/signature.h"

#include "engine/values/bytes.h"
#include "engine/values/charset.h"

namespace embedded {
namespace {

constexpr std::string_view magic = "ESG1";
constexpr size_t headSize = 4 + sizeof(uint64_t);

class Digest {
public:
    void Add(std::string_view bytes) {
        AddWord(bytes.size());
        hash_.Add(bytes);
    }
    void AddWord(uint64_t word) {
        std::string bytes;
        AppendValue(bytes, word);
        hash_.Add(bytes);
    }
    [[nodiscard]] uint64_t Value() const noexcept { return hash_.Value(); }

private:
    Hash hash_;
};

uint64_t DigestOf(Items items, WORD noteClass) {
    ContractItems(items);
    Digest digest;
    digest.AddWord(noteClass);
    ItemCursor cursor = items.Cursor();
    for (ItemView item{}; cursor.Next(item);) {
        if (SameItemName(item.name, signatureItem)) {
            continue;
        }
        digest.Add(item.name);
        digest.AddWord(item.type);
        digest.AddWord(item.flags);
        digest.Add(item.value);
        if (item.object) {
            digest.AddWord(item.object->size);
            digest.AddWord(item.object->hash);
        }
    }
    return digest.Value();
}

/** Of several signatures the last one made counts. */
std::optional<ItemView> LastSignature(const Items& items) {
    std::optional<ItemView> last;
    ItemCursor cursor = items.Cursor();
    for (ItemView item{}; cursor.Next(item);) {
        if (SameItemName(item.name, signatureItem)) {
            last = item;
        }
    }
    return last;
}

} // namespace

void SignItems(Items& items, WORD noteClass, std::string_view signer, bool beside) {
    std::string value(magic);
    AppendValue(value, DigestOf(items, noteClass));
    value += signer;
    if (!beside) {
        items.Erase(signatureItem);
    }
    items.Append({signatureItem, TYPE_SIGNATURE, ITEM_SIGN | ITEM_SEAL, value});
}

SignatureState CheckSignature(const Items& items, WORD noteClass) {
    SignatureState state;
    const auto item = LastSignature(items);
    if (!item) {
        return state;
    }
    state.present = true;
    if (item->type != TYPE_SIGNATURE || item->value.size() < headSize || !item->value.starts_with(magic)) {
        return state;
    }
    const auto digest = ValueAt<uint64_t>(item->value.data() + magic.size());
    state.valid = digest == DigestOf(items, noteClass);
    state.signer = item->value.substr(headSize);
    return state;
}

SignatureSummary SummarizeSignatures(Database& database, WORD classMask) {
    SignatureSummary summary;
    Database::SearchRequest request;
    request.classMask = classMask;
    (void)database.Search(request, [&](const Database::Match& match) -> STATUS { // ends only with the notes
        OpenNote note;
        database.ReadNote(match.head.id, note);
        const SignatureState state = CheckSignature(note.items, note.head.noteClass);
        ++summary.notes;
        summary.present += state.present;
        summary.invalid += state.present && !state.valid;
        if (!state.signer.empty()) {
            summary.signers.insert(Utf8FromLmbcs(state.signer));
        }
        return NOERROR;
    });
    return summary;
}

} // namespace embedded
