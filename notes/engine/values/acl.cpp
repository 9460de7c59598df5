// The bytes of a list: a mark, then maps, lists and texts one after another, each with its count or length (DWORD)
// in front. Maps are ordered, so equal lists have equal bytes.
#include "engine/values/acl.h"

#include <cstdint>
#include <cstring>

#include "engine/values/bytes.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr std::string_view mark = "ACL1";

void putCount(std::string& out, size_t count) {
    const auto value = static_cast<uint32_t>(count);
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void put(std::string& out, const std::string& text) {
    putCount(out, text.size());
    out += text;
}

void put(std::string& out, const std::vector<std::string>& texts) {
    putCount(out, texts.size());
    for (const std::string& text : texts)
        put(out, text);
}

void put(std::string& out, const std::map<std::string, std::string>& attributes) {
    putCount(out, attributes.size());
    for (const auto& [name, value] : attributes) {
        put(out, name);
        put(out, value);
    }
}

class AclReader {
public:
    explicit AclReader(std::string_view rest) : rest_(rest) {}

    std::string_view bytes(size_t size) {
        if (size > rest_.size())
            throw StatusError(EMB_ERR_DAMAGED, "the access control list is damaged");
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }
    uint32_t count() { return valueAt<uint32_t>(bytes(sizeof(uint32_t)).data()); }
    void get(std::string& text) { text = bytes(count()); }
    void get(std::vector<std::string>& texts) {
        for (uint32_t left = count(); left > 0; --left)
            get(texts.emplace_back());
    }
    void get(std::map<std::string, std::string>& attributes) {
        for (uint32_t left = count(); left > 0; --left) {
            std::string name;
            get(name);
            get(attributes[name]);
        }
    }

private:
    std::string_view rest_;
};

} // namespace

std::string encodeAcl(const Acl& acl) {
    std::string out(mark);
    put(out, acl.attributes);
    put(out, acl.roles);
    putCount(out, acl.entries.size());
    for (const AclEntry& entry : acl.entries) {
        put(out, entry.name);
        put(out, entry.attributes);
        put(out, entry.roles);
    }
    put(out, acl.log);
    return out;
}

Acl decodeAcl(std::string_view encoded) {
    AclReader reader(encoded);
    Acl acl;
    (void)reader.bytes(mark.size());
    reader.get(acl.attributes);
    reader.get(acl.roles);
    for (uint32_t left = reader.count(); left > 0; --left) {
        AclEntry& entry = acl.entries.emplace_back();
        reader.get(entry.name);
        reader.get(entry.attributes);
        reader.get(entry.roles);
    }
    reader.get(acl.log);
    // Finds what the steps above let pass: another mark, bytes after the end, attributes doubled or out of order.
    if (encodeAcl(acl) != encoded)
        throw StatusError(EMB_ERR_DAMAGED, "the access control list is damaged");
    return acl;
}

Acl defaultAcl() {
    Acl acl;
    acl.entries.push_back({"-Default-", {{"default", "true"}, {"level", "manager"}, {"type", "unspecified"}}, {}});
    return acl;
}

} // namespace embedded
