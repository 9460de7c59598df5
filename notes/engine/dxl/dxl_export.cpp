// Every note becomes a small tree of elements, which is then printed; one note is in memory at a time. A value gets
// the form that a person can read only when importing that form gives the same bytes again, and is raw otherwise.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <tuple>

#include "engine/dxl/dxl.h"
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
    std::string_view name;
    std::vector<std::pair<std::string_view, std::string>> attributes;
    /** Zero bytes are printed as breaks. An element has a text or children. */
    std::string text;
    std::vector<Element> children;
};

std::string escaped(std::string_view text, bool inAttribute) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '\'':
            out += inAttribute ? "&apos;" : "'";
            break;
        case '\t':
            out += "&#9;";
            break;
        case '\n':
            out += "&#10;";
            break;
        case '\r':
            out += "&#13;";
            break;
        case '\0':
            out += "<break/>";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string attribute(std::string_view name, std::string_view value) {
    return " " + std::string(name) + "='" + escaped(value, true) + "'";
}

/** An element that holds one element that holds one element ... stands in one line. */
bool isChain(const Element& element) {
    return element.children.empty() || (element.children.size() == 1 && isChain(element.children.front()));
}

void print(std::string& out, const Element& element, size_t depth) {
    out += "<" + std::string(element.name);
    for (const auto& [name, value] : element.attributes)
        out += attribute(name, value);
    if (element.text.empty() && element.children.empty()) {
        out += "/>";
        return;
    }
    out += ">" + escaped(element.text, false);
    const bool lines = !isChain(element);
    for (const Element& child : element.children) {
        if (lines)
            out += "\n" + std::string(2 * (depth + 1), ' ');
        print(out, child, depth + 1);
    }
    if (lines)
        out += "\n" + std::string(2 * depth, ' ');
    out += "</" + std::string(element.name) + ">";
}

std::string hex(uint32_t value, size_t digits) {
    char text[9];
    std::snprintf(text, sizeof text, "%0*x", static_cast<int>(digits), value);
    return text;
}

// ---- Values

/** The UTF-8 of a text, when import makes the same bytes of it. */
std::optional<std::string> readable(std::string_view lmbcs) {
    std::string text = utf8FromLmbcs(lmbcs);
    std::string withoutBreaks = text;
    std::erase(withoutBreaks, '\0');
    if (!isXmlText(withoutBreaks) || lmbcsFromUtf8(text) != lmbcs)
        return std::nullopt;
    return text;
}

using Form = std::optional<Element>;

Form textForm(std::string_view value) {
    auto text = readable(value);
    if (!text)
        return std::nullopt;
    return Element{"text", {}, *std::move(text), {}};
}

Form textListForm(std::string_view value) {
    const auto entries = textEntries(TYPE_TEXT_LIST, value);
    if (!entries || encodeTextList(*entries) != value)
        return std::nullopt;
    Element list{"textlist", {}, {}, {}};
    for (const std::string_view entry : *entries) {
        auto text = textForm(entry);
        if (!text)
            return std::nullopt;
        list.children.push_back(*std::move(text));
    }
    return list;
}

Form numberForm(std::string_view value) {
    if (value.size() != sizeof(double) || !std::isfinite(valueAt<double>(value.data() + 0)))
        return std::nullopt;
    char digits[32];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, valueAt<double>(value.data() + 0));
    return Element{"number", {}, std::string(digits, end), {}};
}

Form timeForm(std::string_view value) {
    if (value.size() != sizeof(TIMEDATE))
        return std::nullopt;
    const auto time = valueAt<TIMEDATE>(value.data() + 0);
    auto text = dxlFromTimedate(time);
    if (!text)
        return std::nullopt;
    Element element{"datetime", {}, *std::move(text), {}};
    if (isDaylightSaving(time))
        element.attributes.emplace_back("dst", "true");
    return element;
}

/** A range of single values; pairs stay raw. */
Form rangeForm(std::string_view value, std::string_view name, Form (*form)(std::string_view)) {
    constexpr size_t headSize = 2 * sizeof(WORD);
    constexpr size_t entrySize = 8;
    if (value.size() < headSize || valueAt<WORD>(value.data() + sizeof(WORD)) != 0 ||
        value.size() != headSize + entrySize * valueAt<WORD>(value.data() + 0))
        return std::nullopt;
    Element list{name, {}, {}, {}};
    for (size_t at = headSize; at < value.size(); at += entrySize) {
        auto entry = form(value.substr(at, entrySize));
        if (!entry)
            return std::nullopt;
        list.children.push_back(*std::move(entry));
    }
    return list;
}

Form numberListForm(std::string_view value) {
    return rangeForm(value, "numberlist", numberForm);
}

Form timeListForm(std::string_view value) {
    return rangeForm(value, "datetimelist", timeForm);
}

/** Base64, in lines when it is long. */
std::string base64Text(std::string_view bytes) {
    constexpr size_t lineSize = 76;
    std::string digits = base64FromBytes(bytes);
    if (digits.size() <= lineSize)
        return digits;
    std::string lines = "\n";
    for (size_t at = 0; at < digits.size(); at += lineSize)
        lines += digits.substr(at, lineSize) + "\n";
    return lines;
}

Form formulaForm(std::string_view value) {
    if (isFormula(value)) {
        const std::string source = formulaText(value);
        auto text = readable(source);
        const auto compiled = compileFormula(source);
        const auto* bytes = std::get_if<std::string>(&compiled);
        if (text && text->find('\0') == std::string::npos && bytes && *bytes == value)
            return Element{"formula", {}, *std::move(text), {}};
    }
    return Element{"formula", {{"compiled", "true"}}, base64Text(value), {}};
}

struct TypeForm {
    WORD type;
    Form (*form)(std::string_view value);
};
constexpr TypeForm typeForms[] = {
    {TYPE_TEXT, textForm},       {TYPE_TEXT_LIST, textListForm},
    {TYPE_NUMBER, numberForm},   {TYPE_NUMBER_RANGE, numberListForm},
    {TYPE_TIME, timeForm},       {TYPE_TIME_RANGE, timeListForm},
    {TYPE_FORMULA, formulaForm},
};

Form typedForm(WORD type, std::string_view value) {
    const auto* found = std::ranges::find(typeForms, type, &TypeForm::type);
    return found == std::end(typeForms) ? std::nullopt : found->form(value);
}

Element rawForm(WORD type, std::string_view value) {
    return {"rawitemdata", {{"type", hex(type, 1)}}, base64Text(value), {}};
}

// ---- Notes

class Exporter {
public:
    Exporter(Store& store, const std::string& file, bool stable) : store_(store), file_(file), stable_(stable) {
        const std::string bytes = store.getProperty(property::replicaInfo);
        if (bytes.size() != sizeof replicaInfo_)
            throw StatusError(EMB_ERR_DAMAGED, file_ + ": the replica information is damaged");
        replicaInfo_ = valueAt<DBREPLICAINFO>(bytes.data() + 0);
    }

    void run(std::ostream& out) {
        out << "<?xml version='1.0' encoding='utf-8'?>\n" << databaseTag() << "\n";
        printElement(out, acl());
        if (stable_)
            printSorted(out);
        else
            scan([&](const NoteHead& head, std::string_view items) { printElement(out, note(head, items)); });
        out << "</database>\n";
    }

private:
    std::string checked(const std::string& text, const std::string& what) const {
        if (!isXmlText(text))
            throw StatusError(EMB_ERR_DXL, file_ + ": " + what + " has characters that XML does not have");
        return text;
    }

    std::string databaseTag() {
        std::string tag =
            "<database" + attribute("xmlns", dxl::namespaceUri) + attribute("xmlns:krx", dxl::extensionUri);
        const auto properties = store_.properties();
        constexpr std::string_view prefix = property::attributePrefix;
        for (const auto& [name, value] : properties)
            if (name.starts_with(prefix))
                tag += attribute(name.substr(prefix.size()), checked(value, "'" + name + "'"));
        if (const auto title = properties.find(property::title); title != properties.end())
            tag += attribute("title", checked(title->second, "the title"));
        tag += attribute("replicaid", idText(replicaInfo_.ID));
        if (replicaInfo_.Flags != 0)
            tag += attribute("krx:replicationflags", hex(replicaInfo_.Flags, 4));
        if (replicaInfo_.CutoffInterval != 0)
            tag += attribute("krx:cutoffinterval", std::to_string(replicaInfo_.CutoffInterval));
        if (!stable_ && !(replicaInfo_.Cutoff == TIMEDATE{}))
            tag += attribute("krx:cutoff", idText(replicaInfo_.Cutoff));
        return tag + ">";
    }

    void printElement(std::ostream& out, const Element& element) {
        line_ = "  ";
        print(line_, element, 1);
        out << line_ << '\n';
    }

    // ---- The access control list

    template<size_t N>
    void addAclAttributes(Element& element, const std::map<std::string, std::string>& values,
                          const dxl::AclAttribute (&known)[N]) const {
        size_t found = 0;
        for (const auto& [name, kind] : known) {
            const auto value = values.find(std::string(name));
            if (value == values.end())
                continue;
            element.attributes.emplace_back(name, checked(value->second, aclName));
            ++found;
        }
        if (found != values.size())
            throw StatusError(EMB_ERR_DXL, file_ + ": " + aclName + " has attributes that DXL does not have");
    }

    void addTexts(Element& element, std::string_view name, const std::vector<std::string>& texts) const {
        for (const std::string& text : texts)
            element.children.push_back({name, {}, checked(text, aclName), {}});
    }

    Element acl() {
        const std::string bytes = store_.getProperty(property::acl);
        const Acl list = bytes.empty() ? defaultAcl() : decodeAcl(bytes);
        Element element{"acl", {}, {}, {}};
        addAclAttributes(element, list.attributes, dxl::aclAttributes);
        addTexts(element, "role", list.roles);
        for (const AclEntry& entry : list.entries) {
            Element child{"aclentry", {{"name", checked(entry.name, aclName)}}, {}, {}};
            addAclAttributes(child, entry.attributes, dxl::aclEntryAttributes);
            addTexts(child, "role", entry.roles);
            element.children.push_back(std::move(child));
        }
        addTexts(element, "logentry", list.log);
        return element;
    }

    // ---- Notes

    template<typename Visit>
    void scan(const Visit& visit) {
        for (NOTEID last = 0; (last = store_.scan(last, notesPerScan, visit)) != 0;) {
        }
    }

    void printSorted(std::ostream& out) {
        std::vector<std::tuple<WORD, std::string, NOTEID>> order;
        scan([&](const NoteHead& head, std::string_view) {
            order.emplace_back(head.noteClass, unidText(shown(unidOf(head.oid))), head.id);
        });
        std::ranges::sort(order);
        NoteHead head;
        std::string items;
        for (const auto& [noteClass, unid, id] : order)
            if (store_.read(id, head, items))
                printElement(out, note(head, items));
    }

    /** A UNID that this database or a replica of it generated holds the moment; the stable form has none. */
    UNID shown(UNID unid) const {
        if (stable_ && isGeneratedUnid(unid, replicaInfo_.ID))
            unid.Note = TIMEDATE{};
        return unid;
    }

    Element note(const NoteHead& head, std::string_view items) const {
        const char* name = head.soft ? "krx:deleted" : head.deleted ? "krx:stub" : "note";
        Element element{name, {}, {}, {noteInfo(head)}};
        const auto base = static_cast<WORD>(head.noteClass & ~dxl::classModifiers);
        const auto* found = std::ranges::find(dxl::classNames, base, &dxl::ClassName::noteClass);
        if (found != std::end(dxl::classNames))
            element.attributes.emplace_back("class", found->name);
        else
            element.attributes.emplace_back("krx:class", hex(base, 4));
        if (head.noteClass & NOTE_CLASS_DEFAULT)
            element.attributes.emplace_back("default", "true");
        if (head.noteClass & NOTE_CLASS_PRIVATE)
            element.attributes.emplace_back("private", "true");
        ItemCursor cursor(items);
        for (ItemView view{}; cursor.next(view);)
            if (!stable_ || !sameItemName(view.name, "$Revisions"))
                element.children.push_back(item(view));
        return element;
    }

    Element noteInfo(const NoteHead& head) const {
        Element info{"noteinfo", {}, {}, {}};
        if (!stable_)
            info.attributes.emplace_back("noteid", hex(head.id, 1));
        info.attributes.emplace_back("unid", unidText(shown(unidOf(head.oid))));
        if (stable_)
            return info;
        info.attributes.emplace_back("sequence", std::to_string(head.oid.Sequence & 0xFFFF));
        if (head.oid.Sequence >> 16 != 0)
            info.attributes.emplace_back("krx:sequenceflags", hex(head.oid.Sequence >> 16, 4));
        info.children.push_back(noteTime("modified", head.modified));
        info.children.push_back(noteTime("revised", head.oid.SequenceTime));
        return info;
    }

    static Element noteTime(std::string_view name, const TIMEDATE& time) {
        auto form = timeForm({reinterpret_cast<const char*>(&time), sizeof time});
        if (!form)
            form = Element{"krx:time", {}, idText(time), {}};
        return {name, {}, {}, {*std::move(form)}};
    }

    Element item(const ItemView& view) const {
        Element element{"item", {}, {}, {}};
        if (auto name = readable(view.name); name && name->find('\0') == std::string::npos)
            element.attributes.emplace_back("name", *std::move(name));
        else
            element.attributes.emplace_back("krx:name", base64FromBytes(view.name));
        WORD unnamed = view.flags & static_cast<WORD>(~ITEM_SUMMARY);
        for (const dxl::FlagName& flag : dxl::flagNames) {
            if (view.flags & flag.flag)
                element.attributes.emplace_back(flag.name, "true");
            unnamed &= static_cast<WORD>(~flag.flag);
        }
        auto form = typedForm(view.type, view.value);
        if (const bool summary = (view.flags & ITEM_SUMMARY) != 0; summary != form.has_value())
            element.attributes.emplace_back("summary", summary ? "true" : "false");
        if (unnamed != 0)
            element.attributes.emplace_back("krx:flags", hex(unnamed, 4));
        element.children.push_back(form ? *std::move(form) : rawForm(view.type, shownValue(view)));
        return element;
    }

    /** The stable form shows that a note is signed, and no more of it; and no moment of a generated UNID. */
    std::string shownValue(const ItemView& view) const {
        std::string value(view.value);
        if (!stable_)
            return value;
        if (view.type == TYPE_SIGNATURE)
            return {};
        if (view.type == TYPE_NOTEREF_LIST)
            for (size_t at = sizeof(WORD); at + sizeof(UNID) <= value.size(); at += sizeof(UNID)) {
                const UNID unid = shown(valueAt<UNID>(value.data() + at));
                value.replace(at, sizeof unid, reinterpret_cast<const char*>(&unid), sizeof unid);
            }
        return value;
    }

    static constexpr const char* aclName = "the access control list";

    Store& store_;
    const std::string& file_;
    bool stable_;
    DBREPLICAINFO replicaInfo_{};
    std::string line_;
};

void expectOther(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile) {
    std::error_code ignored;
    if (std::filesystem::equivalent(databaseFile, dxlFile, ignored))
        throw StatusError(EMB_ERR_ARGUMENT,
                          pathForCaller(dxlFile) + ": the DXL would take the place of its own database");
}

} // namespace

void exportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile,
               const DxlExportOptions& options) {
    expectOther(databaseFile, dxlFile);
    const std::string name = pathForCaller(databaseFile);
    const auto store = Store::open(databaseFile, StoreAccess::readOnly);
    ReplacementFile replacement(dxlFile);
    std::ofstream out(replacement.path(), std::ios::binary);
    if (out)
        Exporter(*store, name, options.stable).run(out);
    out.close();
    if (!out)
        throw StatusError(EMB_ERR_DISK, pathForCaller(dxlFile) + ": cannot be written");
    replacement.commit();
}

} // namespace embedded
