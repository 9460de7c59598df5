// Each reader gives nothing for what the platform's bytes cannot say; the item is then kept as XML.
#include "engine/dxl/dxl_items.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "engine/dxl/dxl_note_element.h"
#include "engine/dxl/dxl_values.h"
#include "engine/dxl/dxl_vocabulary.h"
#include "engine/dxl/xml_text.h"
#include "engine/formula/formula.h"
#include "engine/values/base64.h"
#include "engine/values/bytes.h"
#include "engine/values/charset.h"
#include "engine/values/timedate.h"

namespace embedded::dxl {
namespace {

constexpr WORD maxWord = 0xFFFF;

/** A value without type word. */
struct Value {
    WORD type;
    std::string bytes;
    /** Whether an item has it in the summary unless the item says otherwise. */
    bool summary = true;
};
using Read = std::optional<Value>;

/** The text of an element that holds nothing else. `joined` takes one that stands in pieces. */
std::optional<std::string_view> TextOf(const DxlNode& node, std::string& joined) {
    if (!node.firstChild) {
        return std::string_view();
    }
    if (node.firstChild->name.empty() && !node.firstChild->next) {
        return node.firstChild->text;
    }
    joined.clear();
    for (const DxlNode& child : DxlChildren(node)) {
        if (!child.name.empty()) {
            return std::nullopt;
        }
        joined += child.text;
    }
    return joined;
}

/** The elements below an element that holds nothing else, but white space. */
std::optional<std::vector<const DxlNode*>> ElementsOf(const DxlNode& node) {
    std::vector<const DxlNode*> elements;
    for (const DxlNode& child : DxlChildren(node)) {
        if (!child.name.empty()) {
            elements.push_back(&child);
        } else if (!IsBlank(child.text)) {
            return std::nullopt;
        }
    }
    return elements;
}

bool IsPlain(const DxlNode& node, std::string_view name) {
    return node.name == name && node.attributes.empty();
}

// ---- Values

/** A text with breaks, which are zero bytes in the platform's form. */
std::optional<std::string> LmbcsOf(const DxlNode& node) {
    if (node.firstChild && node.firstChild->name.empty() && !node.firstChild->next) {
        return LmbcsFromUtf8(node.firstChild->text);
    }
    std::string text;
    for (const DxlNode& child : DxlChildren(node)) {
        if (child.name.empty()) {
            text += LmbcsFromUtf8(child.text);
        } else if (IsPlain(child, "break") && !child.firstChild) {
            text += '\0';
        } else {
            return std::nullopt;
        }
    }
    return text;
}

Read ReadText(const DxlNode& node, AttributesLeft&) {
    auto text = LmbcsOf(node);
    return text ? Read({TYPE_TEXT, *std::move(text)}) : std::nullopt;
}

/** A text list of the entries in elements of that name. */
std::optional<std::string> TextList(const DxlNode& node, std::string_view name) {
    const auto elements = ElementsOf(node);
    if (!elements || elements->size() > maxWord) {
        return std::nullopt;
    }
    std::vector<std::string> entries;
    for (const DxlNode* element : *elements) {
        auto text = IsPlain(*element, name) ? LmbcsOf(*element) : std::nullopt;
        if (!text || text->size() > maxWord) {
            return std::nullopt;
        }
        entries.push_back(*std::move(text));
    }
    return EncodeTextList(std::vector<std::string_view>(entries.begin(), entries.end()));
}

Read ReadTextList(const DxlNode& node, AttributesLeft&) {
    auto list = TextList(node, "text");
    return list ? Read({TYPE_TEXT_LIST, *std::move(list)}) : std::nullopt;
}

std::optional<double> NumberOf(std::string_view text) {
    text = Trimmed(text);
    double number = 0;
    const char* start = text.data() + (text.starts_with('+') ? 1 : 0);
    const auto [end, error] = std::from_chars(start, text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) {
        return std::nullopt;
    }
    return number;
}

std::optional<double> ReadDouble(const DxlNode& node) {
    std::string joined;
    const auto text = TextOf(node, joined);
    return text ? NumberOf(*text) : std::nullopt;
}

Read ReadNumber(const DxlNode& node, AttributesLeft&) {
    const auto number = ReadDouble(node);
    if (!number) {
        return std::nullopt;
    }
    Value value{TYPE_NUMBER, {}};
    AppendValue(value.bytes, *number);
    return value;
}

/** A range's head: how many single values and how many pairs follow. */
Read RangeOf(WORD type, size_t singles, size_t pairs, const std::string& values) {
    if (singles > maxWord || pairs > maxWord) {
        return std::nullopt;
    }
    Value value{type, {}};
    AppendValue(value.bytes, static_cast<WORD>(singles));
    AppendValue(value.bytes, static_cast<WORD>(pairs));
    value.bytes += values;
    return value;
}

Read ReadNumberList(const DxlNode& node, AttributesLeft&) {
    const auto elements = ElementsOf(node);
    if (!elements) {
        return std::nullopt;
    }
    std::string numbers;
    for (const DxlNode* element : *elements) {
        const auto number = IsPlain(*element, "number") ? ReadDouble(*element) : std::nullopt;
        if (!number) {
            return std::nullopt;
        }
        AppendValue(numbers, *number);
    }
    return RangeOf(TYPE_NUMBER_RANGE, elements->size(), 0, numbers);
}

std::optional<TIMEDATE> TimeOf(const DxlNode& node, bool dst) {
    std::string joined;
    const auto text = TextOf(node, joined);
    return text ? TimedateFromDxl(Trimmed(*text), dst) : std::nullopt;
}

Read ReadTime(const DxlNode& node, AttributesLeft& attributes) {
    const auto time = TimeOf(node, attributes.TakeIf("dst", "true"));
    if (!time) {
        return std::nullopt;
    }
    Value value{TYPE_TIME, {}};
    AppendValue(value.bytes, *time);
    return value;
}

/** A time in a list, with no attribute but dst. */
bool AppendTime(const DxlNode& node, std::string& times) {
    AttributesLeft attributes(node);
    const bool dst = attributes.TakeIf("dst", "true");
    attributes.TakeIf("dst", "false");
    const auto time = node.name == "datetime" && attributes.Empty() ? TimeOf(node, dst) : std::nullopt;
    if (time) {
        AppendValue(times, *time);
    }
    return time.has_value();
}

bool AppendPair(const DxlNode& node, std::string& times) {
    const auto ends = IsPlain(node, "datetimepair") ? ElementsOf(node) : std::nullopt;
    return ends && ends->size() == 2 && AppendTime(*ends->front(), times) && AppendTime(*ends->back(), times);
}

/** The platform keeps pairs last. */
Read TimeList(const DxlNode& node) {
    const auto elements = ElementsOf(node);
    if (!elements) {
        return std::nullopt;
    }
    std::string times;
    size_t singles = 0, pairs = 0;
    for (const DxlNode* element : *elements) {
        if (pairs == 0 && AppendTime(*element, times)) {
            ++singles;
        } else if (AppendPair(*element, times)) {
            ++pairs;
        } else {
            return std::nullopt;
        }
    }
    return RangeOf(TYPE_TIME_RANGE, singles, pairs, times);
}

Read ReadTimeList(const DxlNode& node, AttributesLeft&) {
    return TimeList(node);
}

std::optional<std::string> Base64Of(const DxlNode& node) {
    std::string joined;
    const auto text = TextOf(node, joined);
    return text ? BytesFromBase64(*text) : std::nullopt;
}

Read ReadFormula(const DxlNode& node, AttributesLeft& attributes) {
    if (attributes.TakeIf("compiled", "true")) {
        auto bytes = Base64Of(node);
        return bytes ? Read({TYPE_FORMULA, *std::move(bytes)}) : std::nullopt;
    }
    std::string joined;
    const auto text = TextOf(node, joined);
    if (!text) {
        return std::nullopt;
    }
    auto result = CompileFormula(LmbcsFromUtf8(*text));
    auto* bytes = std::get_if<std::string>(&result);
    return bytes ? Read({TYPE_FORMULA, std::move(*bytes)}) : std::nullopt;
}

std::optional<WORD> HexWord(std::string_view text) {
    WORD number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

Read ReadRaw(const DxlNode& node, AttributesLeft& attributes) {
    const auto type = attributes.Take("type");
    const auto word = type ? HexWord(*type) : std::nullopt;
    auto bytes = word && !IsKept(*word) ? Base64Of(node) : std::nullopt;
    return bytes ? Read({*word, *std::move(bytes), false}) : std::nullopt;
}

struct ValueForm {
    std::string_view name;
    Read (*read)(const DxlNode& node, AttributesLeft& attributes);
};
constexpr ValueForm valueForms[] = {
    {"text", ReadText},     {"textlist", ReadTextList},     {"number", ReadNumber},   {"numberlist", ReadNumberList},
    {"datetime", ReadTime}, {"datetimelist", ReadTimeList}, {"formula", ReadFormula}, {"rawitemdata", ReadRaw},
    {"itemdata", ReadRaw},
};

// ---- Items

std::optional<std::string> ItemName(AttributesLeft& attributes) {
    const auto coded = attributes.Take("krx:name"), text = attributes.Take("name");
    if (coded && text) {
        return std::nullopt;
    }
    const auto name = coded ? BytesFromBase64(*coded) : text ? std::optional(LmbcsFromUtf8(*text)) : std::nullopt;
    return name && name->size() <= maxItemName ? name : std::nullopt;
}

/** Flags but that of the summary; nothing when an attribute does not say which. */
std::optional<WORD> ItemFlags(AttributesLeft& attributes) {
    WORD flags = 0;
    if (attributes.Empty()) {
        return flags; // as most items have none
    }
    if (const auto digits = attributes.Take("krx:flags")) {
        const auto unnamed = HexWord(*digits);
        if (!unnamed || (*unnamed & namedFlags) != 0) {
            return std::nullopt;
        }
        flags = *unnamed;
    }
    for (const FlagName& flag : flagNames) {
        if (attributes.TakeIf(flag.name, "true")) {
            flags |= flag.flag;
        }
    }
    return flags;
}

std::string HashText(WORD type, std::string_view value) {
    Hash hash;
    hash.Add({reinterpret_cast<const char*>(&type), sizeof type});
    hash.Add(value);
    return std::to_string(hash.Value());
}

/** Adds what export would not write of itself, for it to write all the same. */
void AppendDescription(std::string_view name, const ItemDescription& description, const Value& value,
                       std::string& encoded) {
    const auto& [ofItem, ofValue, element, spelling] = description;
    if (!ofItem.empty() || !ofValue.empty() || !element.empty() || !spelling.empty()) {
        std::string kept;
        for (const std::string_view part : {ofItem, ofValue, element}) {
            kept.append(part) += '\0';
        }
        if (!spelling.empty()) {
            kept.append(HashText(value.type, value.bytes)).append(1, '\0').append(spelling);
        }
        AppendEncoded(encoded, {name, keptAttributes, 0, kept});
    }
}

/** Whether an element has its value's bytes. */
bool IsRaw(const DxlNode& element) {
    return element.name == "rawitemdata" || element.name == "itemdata" ||
           (element.name == compiledElement && FindAttribute(element.attributes, "compiled") == "true");
}

/** The name of a raw element when export would write the value in another one. */
std::string_view OtherElement(const DxlNode& element, const Value& value) {
    const std::string exported = ValueElement(value.type, value.bytes);
    const bool same = element.name == compiledElement ? exported.starts_with("<formula compiled=")
                                                      : exported.empty() && element.name == "rawitemdata";
    return same ? std::string_view() : element.name;
}

/** What stands between the tags of an element. */
std::string_view Inside(std::string_view xml) {
    const size_t start = xml.find('>') + 1, end = xml.rfind("</");
    return end == std::string_view::npos ? std::string_view() : xml.substr(start, end - start);
}

/** What stands in an element when export would write the value in other words: "1.50", say. */
std::string Spelling(const DxlNode& element, const Value& value) {
    if (value.type == TYPE_TEXT || value.type == TYPE_TEXT_LIST) {
        return {}; // no two texts stand for the same bytes
    }
    const std::string own = DenseXmlOf(element), exported = ValueElement(value.type, value.bytes);
    return Inside(own) == Inside(exported) ? std::string() : std::string(Inside(own));
}

bool AppendNamedItem(const NamedItem& named, const DxlNode& node, std::string& encoded) {
    if (!node.attributes.empty()) {
        return false;
    }
    Read value;
    if (named.type != TYPE_TEXT_LIST) {
        value = TimeList(node);
    } else if (auto names = TextList(node, "name")) {
        value = {TYPE_TEXT_LIST, *std::move(names)};
    }
    if (!value || value->bytes.size() > maxSummaryValue) {
        return false;
    }
    AppendEncoded(encoded, {named.item, named.type, named.flags, value->bytes});
    if (const std::string spelling = Spelling(node, *value); !spelling.empty()) {
        AppendDescription(named.item, {{}, {}, named.element, spelling}, *value, encoded);
    }
    return true;
}

} // namespace

const DxlNode* OnlyElementOf(const DxlNode& node) {
    const DxlNode* only = nullptr;
    for (const DxlNode& child : DxlChildren(node)) {
        if (child.name.empty() ? !IsBlank(child.text) : only != nullptr) {
            return nullptr;
        }
        if (!child.name.empty()) {
            only = &child;
        }
    }
    return only;
}

size_t AttributesLeft::Find(std::string_view name) const {
    size_t place = 0;
    while (place < attributes_.size() && (attributes_[place].name != name || IsTaken(place))) {
        ++place;
    }
    return place;
}

bool AttributesLeft::IsTaken(size_t place) const {
    return place < bits ? (taken_ >> place & 1) != 0 : std::ranges::find(takenBehind_, place) != takenBehind_.end();
}

std::string_view AttributesLeft::TakeAt(size_t place) {
    if (place < bits) {
        taken_ |= uint64_t{1} << place;
    } else {
        takenBehind_.push_back(place);
    }
    ++count_;
    return attributes_[place].value;
}

std::optional<std::string_view> AttributesLeft::Take(std::string_view name) {
    const size_t place = Find(name);
    return place == attributes_.size() ? std::nullopt : std::optional(TakeAt(place));
}

bool AttributesLeft::TakeIf(std::string_view name, std::string_view value) {
    const size_t place = Find(name);
    if (place == attributes_.size() || attributes_[place].value != value) {
        return false;
    }
    TakeAt(place);
    return true;
}

std::vector<DxlAttribute> AttributesLeft::Left() const {
    std::vector<DxlAttribute> left;
    for (size_t place = 0; place < attributes_.size() && !Empty(); ++place) {
        if (!IsTaken(place)) {
            left.push_back(attributes_[place]);
        }
    }
    return left;
}

ItemDescription DecodeDescription(std::string_view encoded, WORD type, std::string_view value) {
    ItemDescription description;
    for (std::string_view* part : {&description.ofItem, &description.ofValue, &description.element}) {
        *part = TakePart(encoded);
    }
    if (!encoded.empty() && TakePart(encoded) == HashText(type, value)) {
        description.spelling = encoded;
    }
    return description;
}

std::optional<TIMEDATE> ReadDatetime(const DxlNode& node) {
    if (node.name != "datetime") {
        return std::nullopt;
    }
    return TimeOf(node, FindAttribute(node.attributes, "dst") == "true");
}

bool AppendItem(const DxlNode& node, std::string& encoded) {
    if (const auto* named = std::ranges::find(namedItems, node.name, &NamedItem::element);
        named != std::end(namedItems)) {
        return AppendNamedItem(*named, node, encoded);
    }
    AttributesLeft attributes(node);
    const auto name = ItemName(attributes);
    auto flags = ItemFlags(attributes);
    const DxlNode* child = OnlyElementOf(node);
    if (!name || !flags || !child) {
        return false;
    }
    const DxlNode& element = *child;
    const auto* form = std::ranges::find(valueForms, element.name, &ValueForm::name);
    if (form == std::end(valueForms)) {
        return false;
    }
    AttributesLeft ofValue(element);
    const Read value = form->read(element, ofValue);
    if (!value) {
        return false;
    }
    if (value->summary != attributes.TakeIf("summary", value->summary ? "false" : "true")) {
        *flags |= ITEM_SUMMARY;
    }
    AppendEncoded(encoded, {*name, value->type, *flags, value->bytes});
    const bool raw = IsRaw(element);
    const std::string ofItem = AttributesText(attributes.Left()), ofItsValue = AttributesText(ofValue.Left());
    const std::string spelling = raw ? std::string() : Spelling(element, *value);
    AppendDescription(*name, {ofItem, ofItsValue, raw ? OtherElement(element, *value) : std::string_view(), spelling},
                      *value, encoded);
    return true;
}

void AppendKept(const DxlNode& node, std::string& encoded) {
    if (node.name.empty()) {
        const std::string text = Escaped(Trimmed(node.text), XmlPlace::kept);
        return AppendEncoded(encoded, {{}, keptElement, 0, text});
    }
    std::string name;
    if (node.name == "item") {
        AttributesLeft attributes(node);
        name = ItemName(attributes).value_or(std::string());
    }
    AppendEncoded(encoded, name, keptElement, 0, [&](std::string& out) { AppendXml(out, node); });
}

} // namespace embedded::dxl
