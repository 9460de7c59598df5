// The elements that are notes, other than <note>: what class such a note has, and the items that follow from its
// element's attributes, with which the platform finds it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/dxl/dxl_source.h"
#include "engine/values/item_codec.h"

namespace embedded::dxl {

struct NoteElement {
    std::string_view name;
    WORD noteClass;
    /** What $Flags says, by which the platform tells the design elements of one class apart. */
    std::string_view designFlags;
};

/** NULL when no note has an element of this name. */
const NoteElement* FindNoteElement(std::string_view name);

/** The class, with the bits for default and private. */
WORD ClassOf(const NoteElement& element, std::span<const DxlAttribute> attributes);

/** $TITLE and $Flags of a design element; Form, $REF and $Conflict of a document. */
std::vector<Item> ItemsOf(const NoteElement& element, std::span<const DxlAttribute> attributes);

/** The attributes from which the class and the items follow. */
std::span<const std::string_view> ImplyingAttributes(const NoteElement& element);

/** A value of keptHead: a note's own element. */
struct KeptHead {
    std::string_view element = {};
    /** How many items behind it follow from the attributes, as long as they have this hash. Nothing: the attributes
     *  must not become items again, because some of those items are gone. */
    std::optional<size_t> implied = 0;
    uint64_t hash = 0;
    std::string attributes = {};      // those that imply something, as XML
    std::string otherAttributes = {}; // as XML
};
std::string EncodeHead(const KeptHead& head);
KeptHead DecodeHead(std::string_view encoded);

/** Takes what stands in front of the first zero, and that. */
std::string_view TakePart(std::string_view& text);

std::optional<std::string_view> FindAttribute(std::span<const DxlAttribute> attributes, std::string_view name);

} // namespace embedded::dxl
