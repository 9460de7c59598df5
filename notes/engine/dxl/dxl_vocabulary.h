// The words of DXL that import and export share.
//
// Beside the platform's namespace, a namespace of this project's own holds what DXL has no words for, so that
// importing an export gives an equal database ("krx:" stands for any prefix of that namespace):
//   krx:replicationflags  on database: DBREPLICAINFO's flags, up to 4 hexadecimal digits
//   krx:cutoffinterval    on database: days
//   krx:cutoff            on database: the cutoff time, 16 hexadecimal digits as of a replica ID
//   krx:class             on a note, instead of class: a class without a name, up to 4 hexadecimal digits
//   krx:sequenceflags     on noteinfo: the high word of the sequence number, up to 4 hexadecimal digits
//   krx:time              in modified and revised, instead of datetime: 16 hexadecimal digits
//   krx:name              on an item, instead of name: a name that is no text, Base64
//   krx:flags             on an item: flags without a name, up to 4 hexadecimal digits
//   krx:stub              a deletion stub: a note without items
#pragma once

#include <algorithm>
#include <string_view>

#include "notes_api.h"

namespace embedded::dxl {

constexpr std::string_view namespaceUri = "http://www.lotus.com/dxl";
constexpr std::string_view extensionUri = "urn:updkrx:embedded-notes";

constexpr WORD classModifiers = NOTE_CLASS_PRIVATE | NOTE_CLASS_DEFAULT;

struct ClassName {
    std::string_view name;
    WORD noteClass;
};
/** DXL has no names for design and access control notes. */
constexpr ClassName classNames[] = {
    {"document", NOTE_CLASS_DOCUMENT},
    {"helpaboutdocument", NOTE_CLASS_INFO},
    {"form", NOTE_CLASS_FORM},
    {"view", NOTE_CLASS_VIEW},
    {"icon", NOTE_CLASS_ICON},
    {"helpindex", NOTE_CLASS_HELP_INDEX},
    {"helpusingdocument", NOTE_CLASS_HELP},
    {"filter", NOTE_CLASS_FILTER},
    {"sharedfield", NOTE_CLASS_FIELD},
    {"replicationformula", NOTE_CLASS_REPLFORMULA},
};

struct FlagName {
    std::string_view name;
    WORD flag;
};
/** False where an item does not say otherwise. The summary flag has a rule of its own: a value with a form of its
 *  own is in the summary unless the item says otherwise, a raw one is not. */
constexpr FlagName flagNames[] = {
    {"sign", ITEM_SIGN},           {"seal", ITEM_SEAL},           {"authors", ITEM_READWRITERS},
    {"names", ITEM_NAMES},         {"readers", ITEM_READERS},     {"placeholder", ITEM_PLACEHOLDER},
    {"protected", ITEM_PROTECTED}, {"unchanged", ITEM_UNCHANGED},
};

enum class AclValue { text, boolean, level, entryType };

struct AclAttribute {
    std::string_view name;
    AclValue value;
};
constexpr AclAttribute aclAttributes[] = {
    {"adminserver", AclValue::text},          {"adminservermaymodify", AclValue::boolean},
    {"adminreaderauthor", AclValue::boolean}, {"consistentacl", AclValue::boolean},
    {"maxinternetaccess", AclValue::level},
};
/** Beside the name, which every entry has. */
constexpr AclAttribute aclEntryAttributes[] = {
    {"level", AclValue::level},
    {"default", AclValue::boolean},
    {"type", AclValue::entryType},
    {"createdocs", AclValue::boolean},
    {"deletedocs", AclValue::boolean},
    {"createpersonalagents", AclValue::boolean},
    {"createpersonalviews", AclValue::boolean},
    {"createsharedviews", AclValue::boolean},
    {"createlsjavaagents", AclValue::boolean},
    {"readpublicdocs", AclValue::boolean},
    {"writepublicdocs", AclValue::boolean},
};
constexpr std::string_view accessLevels[] = {"noaccess", "depositor", "reader", "author",
                                             "editor",   "designer",  "manager"};
constexpr std::string_view entryTypes[] = {"unspecified", "person",      "server",
                                           "mixedgroup",  "persongroup", "servergroup"};

inline bool IsAclValue(AclValue kind, std::string_view value) {
    const auto in = [value](const auto& words) { return std::ranges::find(words, value) != std::end(words); };
    switch (kind) {
    case AclValue::boolean:
        return value == "true" || value == "false";
    case AclValue::level:
        return in(accessLevels);
    case AclValue::entryType:
        return in(entryTypes);
    case AclValue::text:
        break;
    }
    return true;
}

} // namespace embedded::dxl
