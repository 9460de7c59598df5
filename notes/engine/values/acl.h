// An access control list as values and as the bytes that NSFDbReadACL hands out.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace embedded {

/** Texts are UTF-8, attribute names and values those of DXL. */
struct AclEntry {
    std::string name;
    std::map<std::string, std::string> attributes; // level, type, default, createdocs, ...
    std::vector<std::string> roles;

    bool operator==(const AclEntry&) const = default;
};

struct Acl {
    std::map<std::string, std::string> attributes; // adminserver, consistentacl, maxinternetaccess, ...
    std::vector<std::string> roles;
    std::vector<AclEntry> entries;
    std::vector<std::string> log;

    bool operator==(const Acl&) const = default;
};

std::string EncodeAcl(const Acl& acl);
/** Throws StatusError EMB_ERR_DAMAGED for bytes that EncodeAcl cannot have made. */
Acl DecodeAcl(std::string_view encoded);

/** The list of a database that is made without one: -Default- with manager access. */
Acl DefaultAcl();

} // namespace embedded
