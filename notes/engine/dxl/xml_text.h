// Text as XML has it, and elements written as XML.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "engine/dxl/dxl_source.h"

namespace embedded {

inline bool IsXmlCharacter(uint32_t c) noexcept {
    return c < 0x20 ? c == '\t' || c == '\n' || c == '\r'
                    : c <= 0xD7FF || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/** Whether it is UTF-8, and of characters that XML has. */
bool IsXmlText(std::string_view text) noexcept;

/** Whether it can name an attribute, in ASCII. */
bool IsXmlName(std::string_view text) noexcept;

enum class XmlPlace {
    attribute, // a value between apostrophes
    text,      // with line ends and tabs as references, since it is the value of something
    kept,      // as it stood, for a reader of XML
};
std::string Escaped(std::string_view text, XmlPlace place);
void AppendEscaped(std::string& out, std::string_view text, XmlPlace place);

/** " NAME='VALUE'" */
std::string AttributeText(std::string_view name, std::string_view value);
/** All of them, with the namespaces that they need. */
std::string AttributesText(std::span<const DxlAttribute> attributes);

/** Adds the node as XML, whole, to stand where DXL's namespace is the default one and "krx:" is that of this project.
 *  Read and written again it is the same. */
void AppendXml(std::string& out, const DxlNode& node);
std::string XmlOf(const DxlNode& node);
/** The same without the white space between elements, for an element that has other text only where it has nothing
 *  else. */
std::string DenseXmlOf(const DxlNode& node);

} // namespace embedded
