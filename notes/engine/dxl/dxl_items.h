// The items of a note from DXL.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/dxl/dxl_source.h"
#include "engine/values/item_codec.h"

namespace embedded::dxl {

/** An element that holds times or names and no item's name, for which a note has an item all the same. */
struct NamedItem {
    std::string_view element;
    const char* item;
    WORD type;
    WORD flags;
};
constexpr NamedItem namedItems[] = {
    {"updatedby", "$UpdatedBy", TYPE_TEXT_LIST, ITEM_SUMMARY | ITEM_NAMES},
    {"revisions", "$Revisions", TYPE_TIME_RANGE, ITEM_SUMMARY},
};

/** What an item in DXL says that its bytes have no place for. */
struct ItemDescription {
    std::string_view ofItem = {};   // attributes, as XML
    std::string_view ofValue = {};  // the same of its value's element
    std::string_view element = {};  // the name of that when it is another than the type's own
    std::string_view spelling = {}; // what stands in it, in other words than export's; as XML
};
/** Of a value of keptAttributes behind an item of this type and value. The spelling is there as long as the value is
 *  the one that it was. */
ItemDescription DecodeDescription(std::string_view encoded, WORD type, std::string_view value);

/** Takes each attribute once; what nobody takes is kept. Most elements have few, and are read often: no memory. */
class AttributesLeft {
public:
    explicit AttributesLeft(const DxlNode& node) : attributes_(node.attributes) {}

    std::optional<std::string_view> Take(std::string_view name);
    /** Takes the attribute when it has this value. */
    bool TakeIf(std::string_view name, std::string_view value);
    [[nodiscard]] bool Empty() const noexcept { return count_ == attributes_.size(); }
    [[nodiscard]] std::vector<DxlAttribute> Left() const;

private:
    static constexpr size_t bits = 64;
    [[nodiscard]] bool IsTaken(size_t place) const;
    /** The place of an attribute that is left; their number when there is none. */
    [[nodiscard]] size_t Find(std::string_view name) const;
    std::string_view TakeAt(size_t place);

    std::span<const DxlAttribute> attributes_;
    uint64_t taken_ = 0;              // the first ones
    std::vector<size_t> takenBehind_; // places of others
    size_t count_ = 0;
};

/** The one element below an element that holds nothing else, or NULL. */
const DxlNode* OnlyElementOf(const DxlNode& node);

/** A <datetime>; nothing for other elements and for what is no time. Passes over attributes other than dst. */
std::optional<TIMEDATE> ReadDatetime(const DxlNode& node);

/** Adds the item that <item> or the element of a NamedItem stands for, with what its bytes have no place for behind it.
 *  False when there are no bytes for its value; nothing is added then. */
bool AppendItem(const DxlNode& node, std::string& encoded);

/** Adds a node as it is: an item under its name, everything else without one. */
void AppendKept(const DxlNode& node, std::string& encoded);

} // namespace embedded::dxl
