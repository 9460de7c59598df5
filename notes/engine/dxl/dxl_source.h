// A DXL file as elements. The file is checked as XML and cut into the elements below its root first; each of these
// becomes a tree when it is its turn, so that the file as a whole never does.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace embedded {

class DxlSource {
public:
    /** An element's place in the text. */
    struct Piece {
        uint32_t offset;
        uint32_t size;
    };

    /** Reads and checks the file. Throws StatusError: ERR_NOEXIST, EMB_ERR_DISK, EMB_ERR_DXL. */
    explicit DxlSource(const std::filesystem::path& file);

    [[nodiscard]] std::string_view Text() const noexcept { return text_; }
    /** The root element's start tag. */
    [[nodiscard]] Piece Root() const noexcept { return root_; }
    /** The elements below the root. */
    [[nodiscard]] const std::vector<Piece>& Pieces() const noexcept { return pieces_; }

    /** Throws EMB_ERR_DXL with the file, the line of that place in the text, and the cause. */
    [[noreturn]] void Fail(size_t offset, const std::string& cause) const;

private:
    void Read(const std::filesystem::path& file);
    void Cut();

    std::string name_;
    std::string text_;
    Piece root_{};
    std::vector<Piece> pieces_;
};

class DxlTree;

/**
 * An element of a tree. Names are without their prefix, and with "krx:" in front when they are of this project's own
 * namespace; names of other namespaces equal none. What is not asked for is refused, not passed over.
 */
class DxlElement {
public:
    DxlElement(const DxlTree& tree, pugi::xml_node node) : tree_(&tree), node_(node) {}

    [[nodiscard]] std::string Name() const { return NameOf(node_.name(), true); }
    /** The elements below this one; text between them is refused. */
    [[nodiscard]] std::vector<DxlElement> Children() const;
    /** The one element below this one. */
    [[nodiscard]] DxlElement Child() const;
    /** The text of an element that holds nothing else. */
    [[nodiscard]] std::string Text() const;
    /** The same without the white space around it. */
    [[nodiscard]] std::string TrimmedText() const;
    /** The text of an element that holds text and breaks; these become zero bytes. */
    [[nodiscard]] std::string TextWithBreaks() const;
    /** Refuses content. */
    void ExpectEmpty() const;

    /** Throws EMB_ERR_DXL with the line and name of this element. */
    [[noreturn]] void Fail(const std::string& cause) const;
    /** Refuses this element as one that has no place here. */
    [[noreturn]] void FailUnknown() const;

private:
    friend class DxlAttributes;
    [[nodiscard]] std::string NameOf(std::string_view qualified, bool isElement) const;
    [[nodiscard]] std::string_view NamespaceOf(std::string_view prefix) const;

    const DxlTree* tree_;
    pugi::xml_node node_;
};

/** The attributes of an element. Each is taken once; Finish() refuses what is left. */
class DxlAttributes {
public:
    struct Attribute {
        std::string name;
        std::string value;
        std::string written; // the name with its prefix
    };

    /** Refuses an attribute that stands twice. */
    explicit DxlAttributes(const DxlElement& element);

    std::optional<std::string> Take(std::string_view name);
    std::string Require(std::string_view name);
    /** "true" or "false". */
    std::optional<bool> TakeBoolean(std::string_view name);
    /** Whole and in the given base, at most `most`. */
    std::optional<uint32_t> TakeNumber(std::string_view name, int base, uint32_t most);
    /** What was not taken. */
    [[nodiscard]] const std::vector<Attribute>& Left() const noexcept { return left_; }
    void Finish() const;

private:
    [[noreturn]] void FailValue(std::string_view name, const std::string& value) const;

    const DxlElement& element_;
    std::vector<Attribute> left_;
};

/** One piece of a source as a tree. Elements stand on it, and it on the source and on the tree of the root. */
class DxlTree {
public:
    /** The root element without what is below it. */
    explicit DxlTree(const DxlSource& source);
    DxlTree(const DxlSource& source, DxlSource::Piece piece, const DxlTree& root);
    DxlTree(const DxlTree&) = delete;
    DxlTree& operator=(const DxlTree&) = delete;

    [[nodiscard]] DxlElement Element() const { return {*this, document_.document_element()}; }

private:
    friend class DxlElement;
    void Parse(std::string_view text);

    const DxlSource& source_;
    size_t offset_;
    const DxlTree* root_;
    pugi::xml_document document_;
};

} // namespace embedded
