// Every note becomes a small tree of elements, which is then printed; one note is in memory at a time. A value gets
// the form that a person can read only when importing that form gives the same bytes again, and is raw otherwise.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <list>
#include <span>
#include <tuple>

#include "engine/dxl/dxl.h"
#include "engine/dxl/dxl_items.h"
#include "engine/dxl/dxl_note_element.h"
#include "engine/dxl/dxl_values.h"
#include "engine/dxl/dxl_vocabulary.h"
#include "engine/dxl/xml_text.h"
#include "engine/formula/formula.h"
#include "engine/store/store.h"
#include "engine/system/caller_system.h"
#include "engine/system/replacement_file.h"
#include "engine/values/acl.h"
#include "engine/values/base64.h"
#include "engine/values/bytes.h"
#include "engine/values/charset.h"
#include "engine/values/timedate.h"

namespace embedded {
namespace {

constexpr size_t notesPerScan = 256;

// ---- Elements

struct Element {
    std::string name; // empty: a piece of XML, which is the text
    std::vector<std::pair<std::string_view, std::string>> attributes;
    /** Zero bytes are printed as breaks. An element has a text or children. */
    std::string text;
    std::vector<Element> children;
    std::string keptAttributes = {}; // as XML
};

/** An element that holds one element that holds one element ... stands in one line. */
bool IsChain(const Element& element) {
    return element.children.empty() || (element.children.size() == 1 && IsChain(element.children.front()));
}

/** Takes the attribute out of attributes that stand as XML: a blank, the name, and the value between "='" and "'". */
void EraseAttribute(std::string& attributes, std::string_view name) {
    for (size_t at = 0; at < attributes.size();) {
        const size_t equals = attributes.find('=', at);
        const size_t end = attributes.find('\'', equals + 2) + 1; // in a value "'" is a reference
        if (std::string_view(attributes).substr(at + 1, equals - at - 1) == name) {
            attributes.erase(at, end - at);
            return;
        }
        at = end;
    }
}

enum class Layout { lines, dense };

/** Prints elements as XML; what is long goes on to `flush` at once. */
class Printer {
public:
    explicit Printer(Layout layout, std::function<void(std::string_view)> flush = {})
        : layout_(layout), flush_(std::move(flush)) {}

    void Print(const Element& element, size_t depth) {
        if (element.name.empty()) {
            return Put(element.text);
        }
        Put("<" + element.name);
        std::string kept = element.keptAttributes;
        for (const auto& [name, value] : element.attributes) {
            EraseAttribute(kept, name); // as it was; here it is as it is
            Put(AttributeText(name, value));
        }
        Put(kept);
        if (element.text.empty() && element.children.empty()) {
            return Put("/>");
        }
        Put(">" + Escaped(element.text, XmlPlace::text));
        const bool lines = layout_ == Layout::lines && !IsChain(element);
        for (const Element& child : element.children) {
            if (lines) {
                Put("\n" + std::string(2 * (depth + 1), ' '));
            }
            Print(child, depth + 1);
        }
        if (lines) {
            Put("\n" + std::string(2 * depth, ' '));
        }
        Put("</" + element.name + ">");
    }

    void Put(std::string_view text) {
        constexpr size_t most = size_t{1} << 16;
        if (!flush_ || text_.size() + text.size() <= most) {
            text_ += text;
            return;
        }
        Flush();
        flush_(text);
    }
    void Flush() {
        flush_(text_);
        text_.clear();
    }
    [[nodiscard]] const std::string& Text() const noexcept { return text_; }

private:
    Layout layout_;
    std::function<void(std::string_view)> flush_;
    std::string text_;
};

std::string Hex(uint32_t value, size_t digits) {
    char text[9];
    std::snprintf(text, sizeof text, "%0*x", static_cast<int>(digits), value);
    return text;
}

// ---- Values

/** The UTF-8 of a text, when import makes the same bytes of it. */
std::optional<std::string> Readable(std::string_view lmbcs) {
    if (std::ranges::all_of(lmbcs, [](char c) { return c >= ' ' && c <= '~'; })) {
        return std::string(lmbcs); // ASCII, as most texts are, is the same in both
    }
    std::string text = Utf8FromLmbcs(lmbcs);
    std::string withoutBreaks = text;
    std::erase(withoutBreaks, '\0');
    if (!IsXmlText(withoutBreaks) || LmbcsFromUtf8(text) != lmbcs) {
        return std::nullopt;
    }
    return text;
}

using Form = std::optional<Element>;

Form TextForm(std::string_view value) {
    auto text = Readable(value);
    if (!text) {
        return std::nullopt;
    }
    return Element{"text", {}, *std::move(text), {}};
}

Form TextListForm(std::string_view value) {
    const auto entries = TextEntries(TYPE_TEXT_LIST, value);
    if (!entries || EncodeTextList(*entries) != value) {
        return std::nullopt;
    }
    Element list{"textlist", {}, {}, {}};
    for (const std::string_view entry : *entries) {
        auto text = TextForm(entry);
        if (!text) {
            return std::nullopt;
        }
        list.children.push_back(*std::move(text));
    }
    return list;
}

Form NumberForm(std::string_view value) {
    if (value.size() != sizeof(double) || !std::isfinite(ValueAt<double>(value.data() + 0))) {
        return std::nullopt;
    }
    char digits[32];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, ValueAt<double>(value.data() + 0));
    return Element{"number", {}, std::string(digits, end), {}};
}

Form TimeForm(std::string_view value) {
    if (value.size() != sizeof(TIMEDATE)) {
        return std::nullopt;
    }
    const auto time = ValueAt<TIMEDATE>(value.data() + 0);
    auto text = DxlFromTimedate(time);
    if (!text) {
        return std::nullopt;
    }
    Element element{"datetime", {}, *std::move(text), {}};
    if (IsDaylightSaving(time)) {
        element.attributes.emplace_back("dst", "true");
    }
    return element;
}

/** A range of single values, and of pairs behind them where the pair has an element. */
Form RangeForm(std::string_view value, const char* name, Form (*form)(std::string_view), const char* pairName) {
    constexpr size_t headSize = 2 * sizeof(WORD);
    constexpr size_t entrySize = 8;
    if (value.size() < headSize) {
        return std::nullopt;
    }
    const size_t singles = ValueAt<WORD>(value.data() + 0), pairs = ValueAt<WORD>(value.data() + sizeof(WORD));
    if (value.size() != headSize + entrySize * (singles + 2 * pairs) || (pairs > 0 && !pairName)) {
        return std::nullopt;
    }
    Element list{name, {}, {}, {}};
    for (size_t entry = 0; entry < singles + 2 * pairs; ++entry) {
        auto element = form(value.substr(headSize + entry * entrySize, entrySize));
        if (!element) {
            return std::nullopt;
        }
        if (entry >= singles && (entry - singles) % 2 == 0) {
            list.children.push_back({pairName, {}, {}, {}});
        }
        (entry < singles ? list : list.children.back()).children.push_back(*std::move(element));
    }
    return list;
}

Form NumberListForm(std::string_view value) {
    return RangeForm(value, "numberlist", NumberForm, nullptr);
}

Form TimeListForm(std::string_view value) {
    return RangeForm(value, "datetimelist", TimeForm, "datetimepair");
}

/** Base64, in lines when it is long. */
std::string Base64Text(std::string_view bytes) {
    constexpr size_t lineSize = 76;
    std::string digits = Base64FromBytes(bytes);
    if (digits.size() <= lineSize) {
        return digits;
    }
    std::string lines = "\n";
    for (size_t at = 0; at < digits.size(); at += lineSize) {
        lines += digits.substr(at, lineSize) + "\n";
    }
    return lines;
}

Element CompiledForm(std::string_view value) {
    return {std::string(dxl::compiledElement), {{"compiled", "true"}}, Base64Text(value), {}};
}

Form FormulaForm(std::string_view value) {
    if (IsFormula(value)) {
        const std::string source = FormulaText(value);
        auto text = Readable(source);
        const auto compiled = CompileFormula(source);
        const auto* bytes = std::get_if<std::string>(&compiled);
        if (text && text->find('\0') == std::string::npos && bytes && *bytes == value) {
            return Element{"formula", {}, *std::move(text), {}};
        }
    }
    return CompiledForm(value);
}

struct TypeForm {
    WORD type;
    Form (*form)(std::string_view value);
};
constexpr TypeForm typeForms[] = {
    {TYPE_TEXT, TextForm},       {TYPE_TEXT_LIST, TextListForm},
    {TYPE_NUMBER, NumberForm},   {TYPE_NUMBER_RANGE, NumberListForm},
    {TYPE_TIME, TimeForm},       {TYPE_TIME_RANGE, TimeListForm},
    {TYPE_FORMULA, FormulaForm},
};

Form TypedForm(WORD type, std::string_view value) {
    const auto* found = std::ranges::find(typeForms, type, &TypeForm::type);
    return found == std::end(typeForms) ? std::nullopt : found->form(value);
}

Element RawForm(WORD type, std::string_view value) {
    return {"rawitemdata", {{"type", Hex(type, 1)}}, Base64Text(value), {}};
}

Element PieceOfXml(std::string_view xml) {
    return {{}, {}, std::string(xml), {}};
}

// ---- Notes

class Exporter {
public:
    Exporter(Store& store, const std::string& file, bool stable)
        : store_(store), file_(file), stable_(stable), replicaInfo_(store.ReplicaInfo()),
          properties_(store.Properties()) {}

    void Run(std::ostream& out) {
        out << "<?xml version='1.0' encoding='utf-8'?>\n" << DatabaseTag() << "\n";
        PrintParts(out, partBeforeAcl);
        PrintElement(out, AclElement());
        PrintParts(out, partBehindAcl);
        if (stable_) {
            PrintSorted(out);
        } else {
            Scan([&](const NoteHead& head, std::string_view items) { PrintElement(out, NoteElement(head, items)); });
        }
        PrintParts(out, partBehindNotes);
        out << "</database>\n";
    }

private:
    void PrintParts(std::ostream& out, char place) {
        for (const auto& [name, value] : properties_) {
            if (!name.starts_with(property::partPrefix) || !value.starts_with(place)) {
                continue;
            }
            const std::string_view xml = std::string_view(value).substr(1);
            if (!stable_ || !xml.starts_with(infoTag)) {
                PrintElement(out, PieceOfXml(xml));
            }
        }
    }

    std::string Checked(const std::string& text, const std::string& what) const {
        if (!IsXmlText(text)) {
            throw StatusError(EMB_ERR_DXL, file_ + ": " + what + " has characters that XML does not have");
        }
        return text;
    }

    std::string DatabaseTag() {
        std::string tag =
            "<database" + AttributeText("xmlns", dxl::namespaceUri) + AttributeText("xmlns:krx", dxl::extensionUri);
        constexpr std::string_view prefix = property::attributePrefix;
        for (const auto& [name, value] : properties_) {
            if (name.starts_with(prefix) && !(stable_ && name == pathProperty)) {
                tag += AttributeText(name.substr(prefix.size()), Checked(value, "'" + name + "'"));
            }
        }
        if (const auto title = properties_.find(property::title); title != properties_.end()) {
            tag += AttributeText("title", Checked(title->second, "the title"));
        }
        if (const auto foreign = properties_.find(property::foreignAttributes); foreign != properties_.end()) {
            tag += foreign->second;
        }
        tag += AttributeText("replicaid", IdText(replicaInfo_.ID));
        if (replicaInfo_.Flags != 0) {
            tag += AttributeText("krx:replicationflags", Hex(replicaInfo_.Flags, 4));
        }
        if (replicaInfo_.CutoffInterval != 0) {
            tag += AttributeText("krx:cutoffinterval", std::to_string(replicaInfo_.CutoffInterval));
        }
        if (!stable_ && !(replicaInfo_.Cutoff == TIMEDATE{})) {
            tag += AttributeText("krx:cutoff", IdText(replicaInfo_.Cutoff));
        }
        return tag + ">";
    }

    static void PrintElement(std::ostream& out, const Element& element) {
        Printer printer(Layout::lines, [&out](std::string_view text) { out << text; });
        printer.Put("  ");
        printer.Print(element, 1);
        printer.Put("\n");
        printer.Flush();
    }

    // ---- The access control list

    void AddAclAttributes(Element& element, const std::map<std::string, std::string>& values,
                          std::span<const std::string_view> inOrder) const {
        for (const std::string_view name : inOrder) {
            if (const auto value = values.find(std::string(name)); value != values.end()) {
                element.attributes.emplace_back(name, Checked(value->second, aclName));
            }
        }
        for (const auto& [name, value] : values) {
            if (std::ranges::find(inOrder, name) != inOrder.end()) {
                continue;
            }
            if (!IsXmlName(name) || name == "name") { // not from an import
                throw StatusError(EMB_ERR_DXL, file_ + ": " + aclName + " has attributes that DXL does not have");
            }
            element.attributes.emplace_back(name, Checked(value, aclName));
        }
    }

    void AddTexts(Element& element, std::string_view name, const std::vector<std::string>& texts) const {
        for (const std::string& text : texts) {
            element.children.push_back({std::string(name), {}, Checked(text, aclName), {}});
        }
    }

    Element AclElement() {
        const std::string bytes = store_.GetProperty(property::acl);
        if (const std::string kept = store_.GetProperty(property::aclElement);
            kept.size() > sizeof(uint64_t) && ValueAt<uint64_t>(kept.data()) == HashOf(bytes)) {
            return PieceOfXml(std::string_view(kept).substr(sizeof(uint64_t)));
        }
        acl_ = bytes.empty() ? DefaultAcl() : DecodeAcl(bytes);
        const Acl& list = acl_;
        Element element{"acl", {}, {}, {}};
        AddAclAttributes(element, list.attributes, dxl::aclAttributes);
        AddTexts(element, "role", list.roles);
        for (const AclEntry& entry : list.entries) {
            Element child{"aclentry", {{"name", Checked(entry.name, aclName)}}, {}, {}};
            AddAclAttributes(child, entry.attributes, dxl::aclEntryAttributes);
            AddTexts(child, "role", entry.roles);
            element.children.push_back(std::move(child));
        }
        AddTexts(element, "logentry", list.log);
        return element;
    }

    // ---- Notes

    template<typename Visit>
    void Scan(const Visit& visit) {
        for (NOTEID last = 0; (last = store_.Scan(last, notesPerScan, visit)) != 0;) {
        }
    }

    void PrintSorted(std::ostream& out) {
        std::vector<std::tuple<WORD, std::string, NOTEID>> order;
        Scan([&](const NoteHead& head, std::string_view) {
            order.emplace_back(head.noteClass, UnidText(Shown(UnidOf(head.oid))), head.id);
        });
        std::ranges::sort(order);
        NoteHead head;
        std::string items;
        for (const auto& [noteClass, unid, id] : order) {
            if (store_.Read(id, head, items)) {
                PrintElement(out, NoteElement(head, items));
            }
        }
    }

    /** A UNID that this database or a replica of it generated holds the moment; the stable form has none. */
    UNID Shown(UNID unid) const {
        if (stable_ && IsGeneratedUnid(unid, replicaInfo_.ID)) {
            unid.Note = TIMEDATE{};
        }
        return unid;
    }

    Element NoteElement(const NoteHead& head, std::string_view encoded) const {
        std::list<std::string> objects;
        const std::vector<ItemView> items = ItemsOf(encoded, objects);
        Element element{head.soft ? "krx:deleted" : head.deleted ? "krx:stub" : "note", {}, {}, {}};
        size_t at = 0;
        dxl::KeptHead own{"note"};
        if (!items.empty() && items.front().type == keptHead) {
            own = dxl::DecodeHead(items[at++].value);
        }
        std::string_view rest;
        if (at < items.size() && items[at].type == keptInfo) {
            rest = items[at++].value;
        }
        element.children.push_back(NoteInfo(head, rest));
        element.keptAttributes = own.otherAttributes;
        const bool canonical = stable_ && own.element == "document";
        if (head.deleted || canonical || !dxl::FindNoteElement(own.element)) {
            AddClass(element, head.noteClass);
        } else {
            element.name = own.element;
            element.keptAttributes = own.attributes + own.otherAttributes;
            at += ImpliedItems(own, std::span(items).subspan(at), element);
        }
        for (; at < items.size(); ++at) {
            if (stable_ && SameItemName(items[at].name, "$Revisions")) {
                continue;
            }
            const bool described = at + 1 < items.size() && items[at + 1].type == keptAttributes &&
                                   SameItemName(items[at + 1].name, items[at].name);
            AddItem(element, items[at], described ? items[at + 1].value : std::string_view());
        }
        return element;
    }

    /** With the values that stand in objects, which `objects` holds. */
    std::vector<ItemView> ItemsOf(std::string_view encoded, std::list<std::string>& objects) const {
        std::vector<ItemView> items;
        ItemCursor cursor(encoded);
        for (ItemView view{}; cursor.Next(view);) {
            if (view.object) {
                std::string& value = objects.emplace_back();
                store_.ReadObject(*view.object, [&value](std::string_view bytes) { value += bytes; });
                view.value = value;
            }
            items.push_back(view);
        }
        return items;
    }

    static void AddClass(Element& element, WORD noteClass) {
        const auto base = static_cast<WORD>(noteClass & ~dxl::classModifiers);
        const auto* found = std::ranges::find(dxl::classNames, base, &dxl::ClassName::noteClass);
        if (found != std::end(dxl::classNames)) {
            element.attributes.emplace_back("class", found->name);
        } else {
            element.attributes.emplace_back("krx:class", Hex(base, 4));
        }
        if (noteClass & NOTE_CLASS_DEFAULT) {
            element.attributes.emplace_back("default", "true");
        }
        if (noteClass & NOTE_CLASS_PRIVATE) {
            element.attributes.emplace_back("private", "true");
        }
    }

    /** How many of the items follow from the element's attributes. */
    static size_t ImpliedItems(const dxl::KeptHead& own, std::span<const ItemView> items, Element& element) {
        if (own.implied && *own.implied <= items.size()) {
            std::string encoded;
            for (const ItemView& item : items.first(*own.implied)) {
                AppendEncoded(encoded, {item.name, item.type, item.flags, item.value});
            }
            if (HashOf(encoded) == own.hash) {
                return *own.implied;
            }
        }
        element.attributes.emplace_back("krx:items", "all");
        return 0;
    }

    /** `rest` is a value of keptInfo, or empty. */
    Element NoteInfo(const NoteHead& head, std::string_view rest) const {
        Element info{"noteinfo", {}, {}, {}};
        if (!stable_) {
            info.attributes.emplace_back("noteid", Hex(head.id, 1));
        }
        info.attributes.emplace_back("unid", UnidText(Shown(UnidOf(head.oid))));
        if (stable_) {
            return info;
        }
        info.keptAttributes = dxl::TakePart(rest);
        info.attributes.emplace_back("sequence", std::to_string(head.oid.Sequence & 0xFFFF));
        if (head.oid.Sequence >> 16 != 0) {
            info.attributes.emplace_back("krx:sequenceflags", Hex(head.oid.Sequence >> 16, 4));
        }
        for (rest = rest.empty() ? datesAlone : rest; !rest.empty();) {
            std::string_view piece = dxl::TakePart(rest);
            const char kind = piece.front();
            piece.remove_prefix(1);
            info.children.push_back(kind == 'm'   ? NoteTime("modified", head.modified, piece)
                                    : kind == 'r' ? NoteTime("revised", head.oid.SequenceTime, piece)
                                                  : PieceOfXml(piece));
        }
        return info;
    }

    /** `own` is the time and the element that stood for it, or empty. */
    static Element NoteTime(const char* name, const TIMEDATE& time, std::string_view own) {
        const std::string id = IdText(time);
        if (own.starts_with(id)) {
            return PieceOfXml(own.substr(id.size()));
        }
        return {name, {}, {}, {PieceOfXml(dxl::NoteTimeElement(time))}};
    }

    /** `description` is a value of keptAttributes. */
    void AddItem(Element& note, const ItemView& view, std::string_view description) const {
        if (view.type == keptElement) {
            note.children.push_back(PieceOfXml(view.value));
        } else if (!IsHidden(view.type)) {
            const auto described = dxl::DecodeDescription(description, view.type, view.value);
            const bool isNamed = std::ranges::find(dxl::namedItems, described.element, &dxl::NamedItem::element) !=
                                 std::end(dxl::namedItems);
            auto named = stable_ || !(isNamed || description.empty()) ? std::nullopt : NamedElement(view);
            if (named && !described.spelling.empty()) {
                named->children = {PieceOfXml(described.spelling)};
            }
            note.children.push_back(named ? *std::move(named)
                                          : ItemElement(view, isNamed ? dxl::ItemDescription{} : described));
        }
    }

    /** An item that has an element of its own, but in the stable form. */
    static Form NamedElement(const ItemView& view) {
        for (const dxl::NamedItem& named : dxl::namedItems) {
            if (view.name != named.item || view.type != named.type || view.flags != named.flags ||
                view.value.size() > maxSummaryValue) {
                continue;
            }
            auto form = TypedForm(view.type, view.value);
            if (form) {
                form->name = named.element;
            }
            if (form && named.type == TYPE_TEXT_LIST) {
                for (Element& child : form->children) {
                    child.name = "name";
                }
            }
            return form;
        }
        return std::nullopt;
    }

    Element ItemElement(const ItemView& view, const dxl::ItemDescription& described) const {
        Element element{"item", {}, {}, {}};
        if (auto name = Readable(view.name); name && name->find('\0') == std::string::npos) {
            element.attributes.emplace_back("name", *std::move(name));
        } else {
            element.attributes.emplace_back("krx:name", Base64FromBytes(view.name));
        }
        WORD unnamed = view.flags & static_cast<WORD>(~ITEM_SUMMARY);
        for (const dxl::FlagName& flag : dxl::flagNames) {
            if (view.flags & flag.flag) {
                element.attributes.emplace_back(flag.name, "true");
            }
            unnamed &= static_cast<WORD>(~flag.flag);
        }
        element.keptAttributes = described.ofItem;
        Form form;
        if (described.element.empty()) {
            form = TypedForm(view.type, view.value);
        } else if (described.element == dxl::compiledElement) {
            form = CompiledForm(view.value);
        }
        if (const bool summary = (view.flags & ITEM_SUMMARY) != 0; summary != form.has_value()) {
            element.attributes.emplace_back("summary", summary ? "true" : "false");
        }
        if (unnamed != 0) {
            element.attributes.emplace_back("krx:flags", Hex(unnamed, 4));
        }
        element.children.push_back(form ? *std::move(form) : RawForm(view.type, ShownValue(view)));
        Element& value = element.children.front();
        value.keptAttributes = described.ofValue;
        if (!described.element.empty()) {
            value.name = described.element;
        } else if (!stable_ && !described.spelling.empty()) {
            value.text.clear();
            value.children = {PieceOfXml(described.spelling)};
            if (view.type == TYPE_FORMULA) {
                value.attributes.clear(); // it is not compiled
            }
        }
        return element;
    }

    /** The stable form shows that a note is signed, and no more of it; and no moment of a generated UNID. */
    std::string ShownValue(const ItemView& view) const {
        std::string value(view.value);
        if (!stable_) {
            return value;
        }
        if (view.type == TYPE_SIGNATURE) {
            return {};
        }
        if (view.type == TYPE_NOTEREF_LIST) {
            for (size_t at = sizeof(WORD); at + sizeof(UNID) <= value.size(); at += sizeof(UNID)) {
                const UNID unid = Shown(ValueAt<UNID>(value.data() + at));
                value.replace(at, sizeof unid, reinterpret_cast<const char*>(&unid), sizeof unid);
            }
        }
        return value;
    }

    static constexpr const char* aclName = "the access control list";
    static constexpr std::string_view infoTag = "<databaseinfo";
    static constexpr std::string_view datesAlone = std::string_view("m\0r", 3); // a value of keptInfo's pieces
    static inline const std::string pathProperty = std::string(property::attributePrefix) + "path";

    Store& store_;
    const std::string& file_;
    bool stable_;
    DBREPLICAINFO replicaInfo_;
    Acl acl_; // the names of attributes point into it
    std::map<std::string, std::string> properties_;
};

void ExpectOther(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile) {
    std::error_code ignored;
    if (std::filesystem::equivalent(databaseFile, dxlFile, ignored)) {
        throw StatusError(EMB_ERR_ARGUMENT,
                          PathForCaller(dxlFile) + ": the DXL would take the place of its own database");
    }
}

} // namespace

ShownItem ShowItem(const ItemView& item) {
    const auto form = TypedForm(item.type, item.value);
    Element element = form ? *form : RawForm(item.type, item.value);
    const auto name = Readable(item.name);
    ShownItem shown{name ? *name : Base64FromBytes(item.name), std::string(element.name), {}, {}};
    if (!form) {
        shown.type += " " + Hex(item.type, 1);
    }
    if (!form || !element.attributes.empty()) { // raw, or a compiled formula: in lines, for DXL
        std::erase(element.text, '\n');
    }
    if (element.children.empty() && !element.name.ends_with("list")) {
        element.children.push_back(element);
    }
    for (Element& value : element.children) {
        std::ranges::replace(value.text, '\0', '\n');
        shown.values.push_back(std::move(value.text));
    }
    if ((item.flags & ITEM_SUMMARY) != 0) {
        shown.flags = "summary";
    }
    for (const auto& [word, flag] : dxl::flagNames) {
        if ((item.flags & flag) != 0) {
            shown.flags += (shown.flags.empty() ? "" : " ") + std::string(word);
        }
    }
    return shown;
}

std::string ShowClass(WORD noteClass) {
    const auto base = static_cast<WORD>(noteClass & ~dxl::classModifiers);
    const auto* found = std::ranges::find(dxl::classNames, base, &dxl::ClassName::noteClass);
    return found != std::end(dxl::classNames) ? std::string(found->name) : Hex(base, 4);
}

std::string dxl::ValueElement(WORD type, std::string_view value) {
    const auto form = TypedForm(type, value);
    if (!form) {
        return {};
    }
    Printer printer(Layout::dense);
    printer.Print(*form, 0);
    return printer.Text();
}

std::string dxl::NoteTimeElement(const TIMEDATE& time) {
    const std::string element = ValueElement(TYPE_TIME, {reinterpret_cast<const char*>(&time), sizeof time});
    return element.empty() ? "<krx:time>" + IdText(time) + "</krx:time>" : element;
}

void ExportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile,
               const DxlExportOptions& options) {
    ExpectOther(databaseFile, dxlFile);
    const std::string name = PathForCaller(databaseFile);
    const auto store = Store::Open(databaseFile, StoreAccess::readOnly);
    ReplacementFile replacement(dxlFile);
    std::ofstream out(replacement.Path(), std::ios::binary);
    if (out) {
        Exporter(*store, name, options.stable).Run(out);
    }
    out.close();
    if (!out) {
        throw StatusError(EMB_ERR_DISK, PathForCaller(dxlFile) + ": cannot be written");
    }
    replacement.Commit();
}

} // namespace embedded
