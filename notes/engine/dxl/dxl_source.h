// A DXL file, read in one pass. What stands below <database>, or the one note that is the root, becomes a small tree
// when its end is reached and is gone before the next one begins, so that the file as a whole is never in memory.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "engine/dxl/dxl.h"

namespace embedded {

struct DxlAttribute {
    std::string_view name; // as of an element; without a prefix it belongs to its element
    std::string_view value;
};

/**
 * An element, or a text between elements. An element's name is its own in DXL's namespace, "krx:NAME" in that of this
 * project, and "URI\nNAME\nPREFIX" in another one (without the last part when it has no prefix).
 */
struct DxlNode {
    std::string_view name; // empty: a text
    std::string_view text; // of a text
    std::span<const DxlAttribute> attributes;
    const DxlNode* firstChild = nullptr;
    const DxlNode* next = nullptr; // the sibling behind it
    uint64_t offset = 0;           // in the file
};

/** The nodes below one, for a range-for. */
class DxlChildren {
public:
    class Iterator {
    public:
        explicit Iterator(const DxlNode* node) : node_(node) {}
        const DxlNode& operator*() const { return *node_; }
        Iterator& operator++() {
            node_ = node_->next;
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        const DxlNode* node_;
    };

    explicit DxlChildren(const DxlNode& parent) : first_(parent.firstChild) {}
    [[nodiscard]] Iterator begin() const { return Iterator(first_); }
    [[nodiscard]] Iterator end() const { return Iterator(nullptr); }

private:
    const DxlNode* first_;
};

/** Whether a text is nothing but what makes a file readable. */
bool IsBlank(std::string_view text) noexcept;

class DxlSource {
public:
    /** Throws StatusError: ERR_NOEXIST, EMB_ERR_DISK. */
    explicit DxlSource(const std::filesystem::path& file);

    struct Visitor {
        /** The root element, without what is below it. */
        std::function<void(const DxlNode& root)> root;
        /** What stands below <database>, or the root when that is something else. Valid until it returns. */
        std::function<void(const DxlNode& piece)> piece;
    };
    /** Reads the file from its start; may be called again. Throws StatusError: EMB_ERR_DXL for what is no DXL or
     *  beyond the limits, EMB_ERR_CANCELLED when `progress` says so, and what the visitor throws. */
    void Read(const Visitor& visitor, const DxlProgress& progress);

    /** A hash of the whole file. */
    uint64_t HashOfText();

    /** Throws EMB_ERR_DXL with the file, the line of that place in it, and the cause. */
    [[noreturn]] void Fail(uint64_t offset, const std::string& cause);
    /** The same, naming the element. */
    [[noreturn]] void Fail(const DxlNode& node, const std::string& cause);

private:
    size_t ReadBlock(char* block, size_t size);
    void Rewind();

    struct Closer {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    std::string name_;
    std::unique_ptr<std::FILE, Closer> file_;
    uint64_t size_ = 0;
};

} // namespace embedded
