#include "engine/dxl/xml_text.h"

#include <algorithm>
#include <optional>
#include <vector>

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
    if (parts.prefix == "krx") {
        parts.prefix = "krx-"; // ours already
    }
    return parts;
}

class XmlWriter {
public:
    std::string out;

    void Write(const DxlNode& node, std::string_view defaultUri) {
        if (node.name.empty()) {
            out += Escaped(node.text, XmlPlace::kept);
            return;
        }
        declared_.clear();
        const std::string name = StartTag(node, defaultUri);
        Attributes(node.attributes);
        if (!node.firstChild) {
            out += "/>";
            return;
        }
        out += ">";
        for (const DxlNode& child : DxlChildren(node)) {
            Write(child, defaultUri);
        }
        out += "</" + name + ">";
    }

    void Attributes(std::span<const DxlAttribute> attributes) {
        for (const DxlAttribute& attribute : attributes) {
            if (const auto foreign = ForeignPartsOf(attribute.name)) {
                Declare(*foreign);
                out += AttributeText(foreign->prefix + ":" + std::string(foreign->local), attribute.value);
            } else {
                out += AttributeText(attribute.name, attribute.value);
            }
        }
    }

private:
    /** Returns the element's name as it is written; `defaultUri` becomes that of its children. */
    std::string StartTag(const DxlNode& node, std::string_view& defaultUri) {
        const auto foreign = ForeignPartsOf(node.name);
        if (foreign && !foreign->prefix.empty()) {
            std::string name = foreign->prefix + ":" + std::string(foreign->local);
            out += "<" + name;
            Declare(*foreign);
            return name;
        }
        const bool own = node.name.starts_with("krx:");
        const std::string_view uri = foreign ? foreign->uri : own ? defaultUri : dxl::namespaceUri;
        std::string name(foreign ? foreign->local : node.name);
        out += "<" + name;
        if (uri != defaultUri) {
            out += AttributeText("xmlns", uri);
            defaultUri = uri;
        }
        return name;
    }

    /** Once on an element. */
    void Declare(const ForeignName& name) {
        if (name.prefix == "xml" || std::ranges::find(declared_, name.prefix) != declared_.end()) {
            return;
        }
        declared_.push_back(name.prefix);
        out += AttributeText("xmlns:" + name.prefix, name.uri);
    }

    std::vector<std::string> declared_;
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

std::string Escaped(std::string_view text, XmlPlace place) {
    const bool kept = place == XmlPlace::kept;
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
    return out;
}

std::string AttributeText(std::string_view name, std::string_view value) {
    return " " + std::string(name) + "='" + Escaped(value, XmlPlace::attribute) + "'";
}

std::string AttributesText(std::span<const DxlAttribute> attributes) {
    XmlWriter writer;
    writer.Attributes(attributes);
    return std::move(writer.out);
}

std::string XmlOf(const DxlNode& node) {
    XmlWriter writer;
    writer.Write(node, dxl::namespaceUri);
    return std::move(writer.out);
}

} // namespace embedded
