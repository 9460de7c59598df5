// The bytes of a list: a mark, then maps, lists and texts one after another, each with its count or length (DWORD)
// in front. Maps are ordered, so equal lists have equal bytes.
#include "engine/values/acl.h"

#include <cstdint>

#include "engine/values/bytes.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr std::string_view mark = "ACL1";

void PutCount(std::string& out, size_t count) {
    AppendValue(out, static_cast<uint32_t>(count));
}

void Put(std::string& out, const std::string& text) {
    PutCount(out, text.size());
    out += text;
}

void Put(std::string& out, const std::vector<std::string>& texts) {
    PutCount(out, texts.size());
    for (const std::string& text : texts) {
        Put(out, text);
    }
}

void Put(std::string& out, const std::map<std::string, std::string>& attributes) {
    PutCount(out, attributes.size());
    for (const auto& [name, value] : attributes) {
        Put(out, name);
        Put(out, value);
    }
}

class AclReader {
public:
    explicit AclReader(std::string_view rest) : rest_(rest) {}

    std::string_view Bytes(size_t size) {
        if (size > rest_.size()) {
            throw StatusError(EMB_ERR_DAMAGED, "the access control list is damaged");
        }
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }
    uint32_t Count() { return ValueAt<uint32_t>(Bytes(sizeof(uint32_t)).data()); }
    void Get(std::string& text) { text = Bytes(Count()); }
    void Get(std::vector<std::string>& texts) {
        for (uint32_t left = Count(); left > 0; --left) {
            Get(texts.emplace_back());
        }
    }
    void Get(std::map<std::string, std::string>& attributes) {
        for (uint32_t left = Count(); left > 0; --left) {
            std::string name;
            Get(name);
            Get(attributes[name]);
        }
    }

private:
    std::string_view rest_;
};

} // namespace

std::string EncodeAcl(const Acl& acl) {
    std::string out(mark);
    Put(out, acl.attributes);
    Put(out, acl.roles);
    PutCount(out, acl.entries.size());
    for (const AclEntry& entry : acl.entries) {
        Put(out, entry.name);
        Put(out, entry.attributes);
        Put(out, entry.roles);
    }
    Put(out, acl.log);
    return out;
}

Acl DecodeAcl(std::string_view encoded) {
    AclReader reader(encoded);
    Acl acl;
    (void)reader.Bytes(mark.size());
    reader.Get(acl.attributes);
    reader.Get(acl.roles);
    for (uint32_t left = reader.Count(); left > 0; --left) {
        AclEntry& entry = acl.entries.emplace_back();
        reader.Get(entry.name);
        reader.Get(entry.attributes);
        reader.Get(entry.roles);
    }
    reader.Get(acl.log);
    // Finds what the steps above let pass: another mark, bytes after the end, attributes doubled or out of order.
    if (EncodeAcl(acl) != encoded) {
        throw StatusError(EMB_ERR_DAMAGED, "the access control list is damaged");
    }
    return acl;
}

Acl DefaultAcl() {
    Acl acl;
    acl.entries.push_back({"-Default-", {{"default", "true"}, {"level", "manager"}, {"type", "unspecified"}}, {}});
    return acl;
}

} // namespace embedded
