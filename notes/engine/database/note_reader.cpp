#include "engine/database/note_reader.h"

#include <algorithm>

#include "engine/database/signature.h"
#include "engine/values/acl.h"
#include "engine/values/bytes.h"
#include "engine/values/charset.h"

namespace embedded {
namespace {

std::string Listed(const std::map<std::string, std::string>& attributes, const std::vector<std::string>& roles) {
    std::string text;
    const auto add = [&](const std::string& part) { text.append(text.empty() ? "" : ", ").append(part); };
    if (const auto level = attributes.find("level"); level != attributes.end()) {
        add(level->second);
    }
    for (const auto& [name, value] : attributes) {
        if (name != "level" && value != "false") {
            add(name);
            text.append(value == "true" ? "" : " ").append(value == "true" ? "" : value);
        }
    }
    for (const std::string& role : roles) {
        add(role);
    }
    return text;
}

/** Also of what has no value that a person could read: an object tells equal values by their hashes, and what is kept
 *  as XML is shown so. */
ShownItem Show(const ItemView& item) {
    ShownItem shown = ShowItem(item);
    if (item.object) {
        shown.values = {std::to_string(item.object->size) + " bytes, hash " + std::to_string(item.object->hash)};
    } else if (IsKept(item.type)) {
        shown.type = "xml";
        shown.values = {std::string(item.value)};
        std::ranges::replace(shown.values.front(), '\0', '\n');
        shown.name = item.type == keptHead                           ? "(note)"
                     : item.type == keptElement && item.name.empty() ? "(element)"
                                                                     : shown.name;
    }
    return shown;
}

} // namespace

NoteReader::NoteReader(const std::filesystem::path& file) : store_(Store::Open(file, StoreAccess::readOnly)) {
    ReadFacts();
}

void NoteReader::ReadFacts() {
    constexpr std::string_view prefix = property::attributePrefix;
    for (const auto& [name, value] : store_->Properties()) {
        if (name == property::title) {
            facts_.push_back({false, "title", value});
        } else if (name == property::replicaInfo && value.size() == sizeof(DBREPLICAINFO)) {
            const auto info = ValueAt<DBREPLICAINFO>(value.data());
            facts_.push_back({false, "replica ID", IdText(info.ID)});
            facts_.push_back({false, "hidden design", (info.Flags & REPLFLG_HIDDEN_DESIGN) != 0 ? "hidden" : "open"});
            facts_.push_back(
                {false, "other replica flags", std::to_string(info.Flags & ~DWORD{REPLFLG_HIDDEN_DESIGN})});
            facts_.push_back({false, "days until cutoff", std::to_string(info.CutoffInterval)});
        } else if (name == property::acl) {
            ReadAccessControlList(value);
        } else if (name.starts_with(prefix)) {
            facts_.push_back({false, name.substr(prefix.size()), value});
        }
    }
}

void NoteReader::ReadAccessControlList(const std::string& encoded) {
    const Acl acl = DecodeAcl(encoded);
    for (const auto& [name, value] : acl.attributes) {
        facts_.push_back({true, name, value});
    }
    facts_.push_back({true, "roles", Listed({}, acl.roles)});
    for (const AclEntry& entry : acl.entries) {
        facts_.push_back({true, entry.name, Listed(entry.attributes, entry.roles)});
    }
    facts_.push_back({true, "log", Listed({}, acl.log)});
}

void NoteReader::ReadChunk() {
    constexpr size_t chunkSize = size_t{1} << 18;
    const std::optional<UNID> last = chunk_.empty() ? std::nullopt : std::optional(UnidOf(chunk_.back().head.oid));
    chunk_.clear();
    size_t size = 0;
    store_->ScanUnids(last ? &*last : nullptr, [&](const NoteHead& head, std::string_view items) {
        if (!head.deleted) {
            chunk_.push_back({head, std::string(items)});
            size += sizeof(StoredNote) + items.size();
        }
        return size < chunkSize;
    });
    at_ = 0;
}

bool NoteReader::Next() {
    if (at_ + 1 < chunk_.size()) {
        ++at_;
    } else if (!ended_) {
        ReadChunk();
        ended_ = chunk_.empty();
    }
    return !ended_;
}

std::vector<ShownItem> NoteReader::Items() const {
    std::vector<ShownItem> shown;
    ItemCursor cursor(Encoded());
    for (ItemView item{}; cursor.Next(item);) {
        if (item.type == keptInfo) {
            continue; // times, and where the note stood: two equal databases do not have that in common
        }
        shown.push_back(Show(item));
        if (item.type == TYPE_SIGNATURE && SameItemName(item.name, signatureItem)) {
            const SignatureState state = CheckSignature(embedded::Items(chunk_[at_].items), Head().noteClass);
            shown.back().type = "signature";
            shown.back().values = {Utf8FromLmbcs(state.signer), state.valid ? "unchanged since" : "changed since"};
        }
    }
    return shown;
}

} // namespace embedded
