// The words of DXL that import and export share.
//
// Beside the platform's namespace, a namespace of this project's own holds what DXL has no words for, so that
// importing an export gives an equal database ("krx:" stands for any prefix of that namespace):
//   krx:replicationflags  on database: DBREPLICAINFO's flags, up to 4 hexadecimal digits
//   krx:cutoffinterval    on database: days
//   krx:cutoff            on database: the cutoff time, 16 hexadecimal digits as of a replica ID
//   krx:class             on a note, instead of class: a class without a name, up to 4 hexadecimal digits
//   krx:items             on a note with an element of its own: "all" when no item follows from its attributes
//   krx:noteid, krx:unid, krx:sequence  on noteinfo: what stood there under that name and is none; the note has
//                         another
//   krx:replicaid         on database: the same
//   krx:sequenceflags     on noteinfo: the high word of the sequence number, up to 4 hexadecimal digits
//   krx:time              in modified and revised, instead of datetime: 16 hexadecimal digits
//   krx:name              on an item, instead of name: a name that is no text, Base64
//   krx:flags             on an item: flags without a name, up to 4 hexadecimal digits
//   krx:stub              a deletion stub: a note without items
//   krx:deleted           a note that was deleted softly
#pragma once

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
/** Of a note whose class has a name that is not among these: a bit that the platform does not use. */
constexpr WORD unknownClass = 0x4000;

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

constexpr WORD namedFlags = [] {
    WORD all = ITEM_SUMMARY;
    for (const FlagName& flag : flagNames) {
        all |= flag.flag;
    }
    return all;
}();

/** In the order in which export writes them; others follow. */
constexpr std::string_view aclAttributes[] = {"adminserver", "adminservermaymodify", "adminreaderauthor",
                                              "consistentacl", "maxinternetaccess"};
/** Beside the name, which every entry has. */
constexpr std::string_view aclEntryAttributes[] = {"level",
                                                   "default",
                                                   "type",
                                                   "createdocs",
                                                   "deletedocs",
                                                   "createpersonalagents",
                                                   "createpersonalviews",
                                                   "createsharedviews",
                                                   "createlsjavaagents",
                                                   "readpublicdocs",
                                                   "writepublicdocs"};

/** Whether an element of this name is known to stand somewhere in DXL. */
bool IsKnownElement(std::string_view name);

} // namespace embedded::dxl
