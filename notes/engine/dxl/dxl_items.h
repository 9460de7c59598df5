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
    static constexpr size_t most = 64; // those behind stay
    /** The place of an attribute that is left, or `most`. */
    [[nodiscard]] size_t Find(std::string_view name) const;
    std::string_view TakeAt(size_t place);

    std::span<const DxlAttribute> attributes_;
    uint64_t taken_ = 0;
    size_t count_ = 0;
};

/** Whether this text, though export would write another one, means the value. */
bool StandsFor(std::string_view text, WORD type, std::string_view value);

/** A <datetime>; nothing for other elements and for what is no time. Passes over attributes other than dst. */
std::optional<TIMEDATE> ReadDatetime(const DxlNode& node);

/** Adds the item that <item> or the element of a NamedItem stands for, with what its bytes have no place for behind it.
 *  False when there are no bytes for its value; nothing is added then. */
bool AppendItem(const DxlNode& node, std::string& encoded);

/** Adds a node as it is: an item under its name, everything else without one. */
void AppendKept(const DxlNode& node, std::string& encoded);

} // namespace embedded::dxl
