#include "engine/dxl/dxl_note_element.h"

#include <algorithm>
#include <charconv>

#include "engine/values/bytes.h"
#include "engine/values/charset.h"
#include "engine/values/unid.h"

namespace embedded::dxl {
namespace {

constexpr NoteElement noteElements[] = {
    {"document", NOTE_CLASS_DOCUMENT, ""},
    {"profiledocument", NOTE_CLASS_DOCUMENT, ""},
    {"form", NOTE_CLASS_FORM, ""},
    {"subform", NOTE_CLASS_FORM, "U"},
    {"page", NOTE_CLASS_FORM, "W"},
    {"frameset", NOTE_CLASS_FORM, "#"},
    {"imageresource", NOTE_CLASS_FORM, "i"},
    {"fileresource", NOTE_CLASS_FORM, "g"},
    {"stylesheetresource", NOTE_CLASS_FORM, "="},
    {"appletresource", NOTE_CLASS_FORM, "@"},
    {"sharedactions", NOTE_CLASS_FORM, "y"},
    {"view", NOTE_CLASS_VIEW, ""},
    {"folder", NOTE_CLASS_VIEW, "F"},
    {"navigator", NOTE_CLASS_VIEW, "G"},
    {"sharedcolumn", NOTE_CLASS_VIEW, "^"},
    {"agent", NOTE_CLASS_FILTER, "f"},
    {"agentdata", NOTE_CLASS_FILTER, "X"},
    {"scriptlibrary", NOTE_CLASS_FILTER, "s"},
    {"databasescript", NOTE_CLASS_FILTER, "t"},
    {"outline", NOTE_CLASS_FILTER, "m"},
    {"dataconnection", NOTE_CLASS_FILTER, "k"},
    {"webserviceprovider", NOTE_CLASS_FILTER, "{"},
    {"webserviceconsumer", NOTE_CLASS_FILTER, "s"},
    {"sharedfield", NOTE_CLASS_FIELD, ""},
    {"helpaboutdocument", NOTE_CLASS_INFO, ""},
    {"helpusingdocument", NOTE_CLASS_HELP, ""},
};

void AddText(std::vector<Item>& items, const char* name, std::string_view text) {
    std::string value = LmbcsFromUtf8(text);
    if (value.size() <= maxSummaryValue) {
        items.push_back({name, TYPE_TEXT, ITEM_SUMMARY, std::move(value)});
    }
}

void AddDocumentItems(std::span<const DxlAttribute> attributes, std::vector<Item>& items) {
    if (const auto form = FindAttribute(attributes, "form")) {
        AddText(items, "Form", *form);
    }
    const auto parent = FindAttribute(attributes, "parent");
    if (const auto unid = parent ? ParseUnid(*parent) : std::nullopt) {
        std::string reference;
        AppendValue(reference, WORD{1});
        AppendValue(reference, *unid);
        items.push_back({"$REF", TYPE_NOTEREF_LIST, ITEM_SUMMARY, reference});
    }
    if (FindAttribute(attributes, "conflict") == "true") {
        items.push_back({"$Conflict", TYPE_TEXT, ITEM_SUMMARY, {}});
    }
}

} // namespace

const NoteElement* FindNoteElement(std::string_view name) {
    const auto* found = std::ranges::find(noteElements, name, &NoteElement::name);
    return found == std::end(noteElements) ? nullptr : found;
}

WORD ClassOf(const NoteElement& element, std::span<const DxlAttribute> attributes) {
    WORD noteClass = element.noteClass;
    if (FindAttribute(attributes, "default") == "true") {
        noteClass |= NOTE_CLASS_DEFAULT;
    }
    if (FindAttribute(attributes, "private") == "true") {
        noteClass |= NOTE_CLASS_PRIVATE;
    }
    return noteClass;
}

std::vector<Item> ItemsOf(const NoteElement& element, std::span<const DxlAttribute> attributes) {
    std::vector<Item> items;
    if (element.noteClass == NOTE_CLASS_DOCUMENT) {
        AddDocumentItems(attributes, items);
        return items;
    }
    const auto name = FindAttribute(attributes, "name");
    const auto alias = FindAttribute(attributes, "alias");
    if (name) {
        AddText(items, "$TITLE", alias ? std::string(*name) + "|" + std::string(*alias) : *name);
    }
    if (!element.designFlags.empty()) {
        AddText(items, "$Flags", element.designFlags);
    }
    return items;
}

std::span<const std::string_view> ImplyingAttributes(const NoteElement& element) {
    static constexpr std::string_view ofDocuments[] = {"form", "parent", "response", "conflict", "default", "private"};
    static constexpr std::string_view ofDesign[] = {"name", "alias", "default", "private"};
    if (element.noteClass == NOTE_CLASS_DOCUMENT) {
        return ofDocuments;
    }
    return ofDesign;
}

// As text: the element, zero, how many items are implied or nothing, zero, the hash, zero, the attributes that imply
// something, zero, the others.

std::string EncodeHead(const KeptHead& head) {
    return std::string(head.element) + '\0' + (head.implied ? std::to_string(*head.implied) : "") + '\0' +
           std::to_string(head.hash) + '\0' + head.attributes + '\0' + head.otherAttributes;
}

KeptHead DecodeHead(std::string_view encoded) {
    const auto number = [&encoded](auto& value) {
        const std::string_view digits = TakePart(encoded);
        return std::from_chars(digits.data(), digits.data() + digits.size(), value).ec == std::errc();
    };
    KeptHead head;
    head.element = TakePart(encoded);
    size_t implied = 0;
    head.implied = number(implied) ? std::optional(implied) : std::nullopt;
    number(head.hash);
    head.attributes = TakePart(encoded);
    head.otherAttributes = TakePart(encoded);
    return head;
}

std::string_view TakePart(std::string_view& text) {
    const size_t end = text.find('\0');
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return part;
}

std::optional<std::string_view> FindAttribute(std::span<const DxlAttribute> attributes, std::string_view name) {
    const auto found = std::ranges::find(attributes, name, &DxlAttribute::name);
    return found == attributes.end() ? std::nullopt : std::optional(found->value);
}

} // namespace embedded::dxl
