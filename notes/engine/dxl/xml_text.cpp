#include "engine/dxl/xml_text.h"

#include <algorithm>
#include <map>
#include <optional>

#include "engine/dxl/dxl_vocabulary.h"

namespace embedded {
namespace {

/** A name of another namespace in its parts. */
struct ForeignName {
    std::string_view uri;
    std::string_view local;
    std::string prefix; // empty for none
};

/** Nothing for a name of DXL's own or of this project. */
std::optional<ForeignName> ForeignPartsOf(std::string_view name) {
    const size_t uri = name.find('\n');
    if (uri == std::string_view::npos) {
        return std::nullopt;
    }
    const size_t local = name.find('\n', uri + 1);
    ForeignName parts{name.substr(0, uri), name.substr(uri + 1, local - uri - 1), {}};
    if (local != std::string_view::npos) {
        parts.prefix = name.substr(local + 1);
    }
    return parts;
}

class XmlWriter {
public:
    explicit XmlWriter(std::string& out, bool isDense = false) : out_(out), isDense_(isDense) {}

    void Write(const DxlNode& node, std::string_view defaultUri) {
        if (node.name.empty()) {
            if (!isDense_ || !IsBlank(node.text)) {
                AppendEscaped(out_, node.text, XmlPlace::kept);
            }
            return;
        }
        declared_.clear();
        const std::string name = StartTag(node, defaultUri);
        Attributes(node.attributes);
        if (!node.firstChild) {
            out_ += "/>";
            return;
        }
        out_ += ">";
        for (const DxlNode& child : DxlChildren(node)) {
            Write(child, defaultUri);
        }
        out_ += "</" + name + ">";
    }

    void Attributes(std::span<const DxlAttribute> attributes) {
        for (const DxlAttribute& attribute : attributes) {
            if (const auto foreign = ForeignPartsOf(attribute.name)) {
                const std::string prefix = Declare(*foreign);
                out_ += AttributeText(prefix + ":" + std::string(foreign->local), attribute.value);
            } else {
                out_ += AttributeText(attribute.name, attribute.value);
            }
        }
    }

private:
    /** Returns the element's name as it is written; `defaultUri` becomes that of its children. */
    std::string StartTag(const DxlNode& node, std::string_view& defaultUri) {
        const auto foreign = ForeignPartsOf(node.name);
        if (foreign && !foreign->prefix.empty()) {
            std::string name = PrefixFor(*foreign) + ":" + std::string(foreign->local);
            out_ += "<" + name;
            Declare(*foreign);
            return name;
        }
        const bool own = node.name.starts_with("krx:");
        const std::string_view uri = foreign ? foreign->uri : own ? defaultUri : dxl::namespaceUri;
        std::string name(foreign ? foreign->local : node.name);
        out_ += "<" + name;
        if (uri != defaultUri) {
            out_ += AttributeText("xmlns", uri);
            defaultUri = uri;
        }
        return name;
    }

    /** The prefix that the name has on this element: its own, unless that stands for something else. */
    [[nodiscard]] std::string PrefixFor(const ForeignName& name) const {
        std::string prefix = name.prefix;
        const auto isTaken = [&] {
            const auto found = declared_.find(prefix);
            return prefix == "krx" || (found != declared_.end() && found->second != name.uri);
        };
        while (isTaken()) {
            prefix += "-";
        }
        return prefix;
    }

    /** Once on an element. */
    std::string Declare(const ForeignName& name) {
        std::string prefix = PrefixFor(name);
        if (prefix != "xml" && declared_.emplace(prefix, name.uri).second) {
            out_ += AttributeText("xmlns:" + prefix, name.uri);
        }
        return prefix;
    }

    std::string& out_;
    bool isDense_;
    std::map<std::string, std::string_view> declared_; // prefixes on the element that is being written
};

} // namespace

bool IsXmlText(std::string_view text) noexcept {
    constexpr uint32_t smallest[] = {0, 0x80, 0x800, 0x10000}; // of each length, as UTF-8 is never longer than needed
    for (size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const size_t trail = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if ((lead >= 0x80 && lead < 0xC0) || lead >= 0xF8 || text.size() - at <= trail) {
            return false;
        }
        uint32_t c = trail == 0 ? lead : lead & (0x3Fu >> trail);
        for (size_t i = 1; i <= trail; ++i) {
            const auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            c = c << 6 | (next & 0x3Fu);
        }
        if (c < smallest[trail] || !IsXmlCharacter(c)) {
            return false;
        }
        at += trail + 1;
    }
    return true;
}

bool IsXmlName(std::string_view text) noexcept {
    const auto starts = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    return !text.empty() && starts(text.front()) && std::ranges::all_of(text, [&](char c) {
        return starts(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
    });
}

void AppendEscaped(std::string& out, std::string_view text, XmlPlace place) {
    const bool kept = place == XmlPlace::kept;
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
            out += place == XmlPlace::attribute ? "&apos;" : "'";
            break;
        case '\t':
            out += kept ? "\t" : "&#9;";
            break;
        case '\n':
            out += kept ? "\n" : "&#10;";
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
}

std::string Escaped(std::string_view text, XmlPlace place) {
    std::string out;
    out.reserve(text.size());
    AppendEscaped(out, text, place);
    return out;
}

std::string AttributeText(std::string_view name, std::string_view value) {
    return " " + std::string(name) + "='" + Escaped(value, XmlPlace::attribute) + "'";
}

std::string AttributesText(std::span<const DxlAttribute> attributes) {
    std::string out;
    XmlWriter(out).Attributes(attributes);
    return out;
}

void AppendXml(std::string& out, const DxlNode& node) {
    XmlWriter(out).Write(node, dxl::namespaceUri);
}

std::string XmlOf(const DxlNode& node) {
    std::string out;
    AppendXml(out, node);
    return out;
}

std::string DenseXmlOf(const DxlNode& node) {
    std::string out;
    XmlWriter(out, true).Write(node, dxl::namespaceUri);
    return out;
}

} // namespace embedded
