#include "engine/dxl/dxl_source.h"

#include <algorithm>
#include <charconv>
#include <fstream>

#include "engine/dxl/dxl_vocabulary.h"
#include "engine/dxl/xml_text.h"
#include "engine/system/caller_system.h"
#include "engine/values/ascii.h"
#include "engine/values/charset.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr size_t maxFileSize = size_t{64} << 20;
constexpr size_t maxDepth = 64;
/** Elements and attributes below one child of the root, which bounds the memory of its tree. A note of the
 *  platform's sizes is far from it. */
constexpr size_t maxMarkup = 500'000;
constexpr size_t maxAttributes = 100;

constexpr std::string_view space = " \t\r\n";

std::string Quoted(std::string_view name) {
    return "<" + std::string(name) + ">";
}

/**
 * Walks the markup once, without recursion. It refuses what the parser would let pass or silently change: text
 * outside the root, a second root, entities (the parser leaves them as they are), references to characters that XML
 * does not have (zero would cut a text short), and what costs unbounded memory.
 */
class Cutter {
public:
    explicit Cutter(const DxlSource& source) : source_(source), text_(source.Text()) {}

    void Run() {
        while (at_ < text_.size()) {
            if (text_[at_] != '<') {
                Content();
            } else if (!Skip("<!--", "-->") && !Skip("<?", "?>") && !cdata() && !DocumentType() && !endTag()) {
                StartTag();
            }
        }
        if (!open_.empty()) {
            source_.Fail(open_.back().offset, Quoted(open_.back().name) + " is not closed");
        }
        if (!root) {
            source_.Fail(text_.size(), "there is no element");
        }
    }

    std::optional<DxlSource::Piece> root;
    std::vector<DxlSource::Piece> pieces;

private:
    struct Open {
        std::string_view name;
        size_t offset;
    };

    bool StartsWith(std::string_view mark) const { return text_.substr(at_).starts_with(mark); }

    size_t Find(std::string_view mark, std::string_view what) const {
        const size_t found = text_.find(mark, at_);
        if (found == std::string_view::npos) {
            source_.Fail(at_, Quoted(what) + " has no end");
        }
        return found;
    }

    bool Skip(std::string_view start, std::string_view end) {
        if (!StartsWith(start)) {
            return false;
        }
        if (start == "<?") {
            Declaration();
        }
        at_ += start.size();
        at_ = Find(end, start.substr(1)) + end.size();
        return true;
    }

    /** Only UTF-8 is read, so another encoding must not be taken for it. */
    void Declaration() const {
        if (!StartsWith("<?xml ")) {
            return;
        }
        const std::string_view words = text_.substr(at_, Find("?>", "?xml") - at_);
        const size_t key = words.find("encoding");
        if (key == std::string_view::npos) {
            return;
        }
        const size_t quote = words.find_first_of("'\"", key);
        std::string name(quote == std::string_view::npos ? std::string_view() : words.substr(quote + 1));
        name.resize(std::min(name.size(), name.find_first_of("'\"")));
        if (LowerAscii(name) != "utf-8" && LowerAscii(name) != "us-ascii") {
            source_.Fail(at_, "the encoding '" + name + "' is not UTF-8");
        }
    }

    bool cdata() {
        if (!StartsWith("<![CDATA[")) {
            return false;
        }
        if (open_.size() < 2) {
            source_.Fail(at_, "text has no place here");
        }
        const size_t end = Find("]]>", "![CDATA[");
        at_ = end + 3;
        return true;
    }

    bool DocumentType() {
        if (!StartsWith("<!")) {
            return false;
        }
        if (!StartsWith("<!DOCTYPE") || root) {
            source_.Fail(at_, "a declaration has no place here");
        }
        const size_t start = at_;
        for (char quote = 0; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (quote ? c == quote : c == '\'' || c == '"') {
                quote = quote ? 0 : c;
            } else if (!quote && c == '[') {
                source_.Fail(at_, "<!DOCTYPE> with declarations of its own is not taken");
            } else if (!quote && c == '>') {
                ++at_;
                return true;
            }
        }
        source_.Fail(start, "<!DOCTYPE> has no end");
    }

    /** Text up to the next tag. */
    void Content() {
        const size_t end = std::min(text_.find('<', at_), text_.size());
        for (; at_ < end; ++at_) {
            if (open_.size() < 2 && space.find(text_[at_]) == std::string_view::npos) {
                source_.Fail(at_, open_.empty() ? "text outside the root element"
                                                : Quoted(open_.back().name) + ": text has no place here");
            }
            if (text_[at_] == '&') {
                Reference();
            }
        }
    }

    void Reference() const {
        const std::string_view all = text_.substr(at_ + 1, 32);
        const std::string_view name = all.substr(0, all.find(';'));
        const bool predefined = std::ranges::find(predefined_, name) != std::end(predefined_);
        if (name.size() == all.size() || (!predefined && !(name.starts_with('#') && IsCharacter(name.substr(1))))) {
            source_.Fail(at_, "the reference '&" + std::string(CutUtf8(name, 16)) + "' is not taken");
        }
    }

    static bool IsCharacter(std::string_view number) {
        const bool hex = number.starts_with('x');
        number.remove_prefix(hex ? 1 : 0);
        uint32_t c = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), c, hex ? 16 : 10);
        return error == std::errc() && end == number.data() + number.size() && IsXmlCharacter(c);
    }

    std::string_view TagName() {
        const size_t end = std::min(text_.find_first_of(" \t\r\n/>='\"<&", at_), text_.size());
        const std::string_view name = text_.substr(at_, end - at_);
        if (name.empty()) {
            source_.Fail(at_, "'<' without the name of an element");
        }
        at_ = end;
        return name;
    }

    bool endTag() {
        if (!StartsWith("</")) {
            return false;
        }
        const size_t start = at_;
        at_ += 2;
        const std::string_view name = TagName();
        at_ = std::min(text_.find_first_not_of(space, at_), text_.size());
        if (!StartsWith(">") || open_.empty() || open_.back().name != name) {
            source_.Fail(start, open_.empty() ? Quoted(name) + " is closed and was not open"
                                              : Quoted(open_.back().name) + " is closed by " + Quoted(name));
        }
        ++at_;
        const size_t opened = open_.back().offset;
        open_.pop_back();
        Closed(opened);
        return true;
    }

    void StartTag() {
        const size_t start = at_++;
        const std::string_view name = TagName();
        if (open_.empty() && root) {
            source_.Fail(start, Quoted(name) + ": there is a second root element");
        }
        if (open_.size() >= maxDepth) {
            source_.Fail(start, Quoted(name) + ": elements are nested too deep");
        }
        markup_ = open_.size() < 2 ? 0 : markup_ + 1;
        const bool empty = Attributes(start, name);
        if (markup_ > maxMarkup) {
            source_.Fail(start, Quoted(name) + ": too many elements in one");
        }
        if (open_.empty()) {
            root = Place(start);
        }
        if (empty) {
            Closed(start);
        } else {
            open_.push_back({name, start});
        }
    }

    /** Up to the end of the tag; true when it closes the element too. */
    bool Attributes(size_t start, std::string_view name) {
        for (size_t count = 0; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (c == '\'' || c == '"') {
                if (++count > maxAttributes) {
                    source_.Fail(start, Quoted(name) + ": too many attributes");
                }
                AttributeValue(c);
            } else if (c == '<') {
                break;
            } else if (c == '>') {
                return text_[at_++ - 1] == '/';
            }
        }
        source_.Fail(start, Quoted(name) + ": the tag has no end");
    }

    void AttributeValue(char quote) {
        ++markup_;
        const size_t start = at_++;
        for (; at_ < text_.size() && text_[at_] != quote; ++at_) {
            if (text_[at_] == '<') {
                break;
            }
            if (text_[at_] == '&') {
                Reference();
            }
        }
        if (!StartsWith({&quote, 1})) {
            source_.Fail(start, "an attribute's value has no end");
        }
    }

    /** An element ends here. */
    void Closed(size_t start) {
        if (open_.size() == 1) {
            pieces.push_back(Place(start));
        }
    }

    DxlSource::Piece Place(size_t start) const {
        return {static_cast<uint32_t>(start), static_cast<uint32_t>(at_ - start)};
    }

    static constexpr std::string_view predefined_[] = {"amp", "lt", "gt", "quot", "apos"};

    const DxlSource& source_;
    std::string_view text_;
    size_t at_ = 0;
    size_t markup_ = 0;
    std::vector<Open> open_;
};

} // namespace

DxlSource::DxlSource(const std::filesystem::path& file) : name_(PathForCaller(file)) {
    Read(file);
    if (text_.size() > maxFileSize) {
        throw StatusError(EMB_ERR_DXL, name_ + ": the file is larger than 64 MiB");
    }
    if (text_.starts_with("\xEF\xBB\xBF")) {
        text_.erase(0, 3);
    }
    if (const size_t bad = FindNonXml(text_); bad != std::string::npos) {
        Fail(bad, "a character that is not XML in UTF-8");
    }
    Cut();
}

void DxlSource::Read(const std::filesystem::path& file) {
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) {
        throw StatusError(ERR_NOEXIST, name_ + ": no such file");
    }
    std::ifstream in(file, std::ios::binary);
    // In blocks up to just beyond the limit: the size of a pipe is not known before.
    constexpr size_t block = size_t{1} << 16;
    while (in && text_.size() <= maxFileSize) {
        const size_t before = text_.size();
        text_.resize(before + block);
        in.read(text_.data() + before, block);
        text_.resize(before + static_cast<size_t>(in.gcount()));
    }
    if (std::filesystem::is_directory(file, ignored) || in.bad() || (!in.eof() && text_.size() <= maxFileSize)) {
        throw StatusError(EMB_ERR_DISK, name_ + ": cannot be read");
    }
}

void DxlSource::Cut() {
    Cutter cutter(*this);
    cutter.Run();
    root_ = *cutter.root;
    pieces_ = std::move(cutter.pieces);
}

void DxlSource::Fail(size_t offset, const std::string& cause) const {
    const std::string_view before = std::string_view(text_).substr(0, offset);
    const auto line = 1 + std::ranges::count(before, '\n');
    throw StatusError(EMB_ERR_DXL, name_ + ":" + std::to_string(line) + ": " + cause);
}

DxlTree::DxlTree(const DxlSource& source) : source_(source), offset_(source.Root().offset), root_(nullptr) {
    std::string tag(source.Text().substr(source.Root().offset, source.Root().size));
    if (!tag.ends_with("/>")) {
        tag.replace(tag.size() - 1, 1, "/>");
    }
    Parse(tag);
}

DxlTree::DxlTree(const DxlSource& source, DxlSource::Piece piece, const DxlTree& root)
    : source_(source), offset_(piece.offset), root_(&root) {
    Parse(source.Text().substr(piece.offset, piece.size));
}

void DxlTree::Parse(std::string_view text) {
    // White space is text until an element is known to have none.
    constexpr unsigned options = pugi::parse_default | pugi::parse_ws_pcdata;
    // cppcheck-suppress invalidLifetime; load_buffer() copies the text
    const auto result = document_.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
    if (!result) {
        source_.Fail(offset_ + static_cast<size_t>(result.offset), result.description());
    }
}

void DxlElement::Fail(const std::string& cause) const {
    tree_->source_.Fail(tree_->offset_ + static_cast<size_t>(node_.offset_debug()),
                        Quoted(node_.name()) + ": " + cause);
}

void DxlElement::FailUnknown() const {
    Fail("the element has no place here");
}

std::string_view DxlElement::NamespaceOf(std::string_view prefix) const {
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + std::string(prefix);
    for (pugi::xml_node node = node_; node; node = node.parent()) {
        if (const pugi::xml_attribute found = node.attribute(declaration.c_str())) {
            return found.value();
        }
    }
    return tree_->root_ ? tree_->root_->Element().NamespaceOf(prefix) : std::string_view();
}

std::string DxlElement::NameOf(std::string_view qualified, bool isElement) const {
    const size_t colon = qualified.find(':');
    if (colon == std::string_view::npos && !isElement) {
        return std::string(qualified); // an attribute without a prefix belongs to its element
    }
    const bool prefixed = colon != std::string_view::npos;
    const std::string_view uri = NamespaceOf(prefixed ? qualified.substr(0, colon) : std::string_view());
    std::string local(prefixed ? qualified.substr(colon + 1) : qualified);
    if (uri == dxl::namespaceUri && isElement) {
        return local;
    }
    return uri == dxl::extensionUri ? "krx:" + local : "{" + std::string(uri) + "}" + local;
}

std::vector<DxlElement> DxlElement::Children() const {
    std::vector<DxlElement> elements;
    for (const pugi::xml_node node : node_.children()) {
        if (node.type() == pugi::node_element) {
            elements.emplace_back(*tree_, node);
        } else if (!Trimmed(node.value()).empty()) {
            Fail("text has no place here");
        }
    }
    return elements;
}

DxlElement DxlElement::Child() const {
    const auto all = Children();
    if (all.size() != 1) {
        Fail("needs one element below it");
    }
    return all.front();
}

std::string DxlElement::Text() const {
    std::string text;
    for (const pugi::xml_node node : node_.children()) {
        if (node.type() == pugi::node_element) {
            DxlElement(*tree_, node).FailUnknown();
        }
        text += node.value();
    }
    return text;
}

std::string DxlElement::TrimmedText() const {
    return std::string(Trimmed(Text()));
}

std::string DxlElement::TextWithBreaks() const {
    std::string text;
    for (const pugi::xml_node node : node_.children()) {
        if (node.type() != pugi::node_element) {
            text += node.value();
            continue;
        }
        const DxlElement element(*tree_, node);
        if (element.Name() != "break") {
            element.FailUnknown();
        }
        DxlAttributes(element).Finish();
        element.ExpectEmpty();
        text += '\0';
    }
    return text;
}

void DxlElement::ExpectEmpty() const {
    if (const auto below = Children(); !below.empty()) {
        below.front().FailUnknown();
    }
}

DxlAttributes::DxlAttributes(const DxlElement& element) : element_(element) {
    for (const pugi::xml_attribute attribute : element.node_.attributes()) {
        const std::string_view written = attribute.name();
        if (element.node_.attribute(attribute.name()) != attribute) { // gives the first of that name
            element.Fail("the attribute '" + std::string(written) + "' stands twice");
        }
        if (written != "xmlns" && !written.starts_with("xmlns:")) {
            left_.push_back({element.NameOf(written, false), attribute.value(), std::string(written)});
        }
    }
}

std::optional<std::string> DxlAttributes::Take(std::string_view name) {
    const auto found = std::ranges::find(left_, name, &Attribute::name);
    if (found == left_.end()) {
        return std::nullopt;
    }
    std::string value = std::move(found->value);
    left_.erase(found);
    return value;
}

std::string DxlAttributes::Require(std::string_view name) {
    auto value = Take(name);
    if (!value) {
        element_.Fail("the attribute '" + std::string(name) + "' is missing");
    }
    return *std::move(value);
}

std::optional<bool> DxlAttributes::TakeBoolean(std::string_view name) {
    const auto value = Take(name);
    if (!value) {
        return std::nullopt;
    }
    if (*value != "true" && *value != "false") {
        FailValue(name, *value);
    }
    return *value == "true";
}

std::optional<uint32_t> DxlAttributes::TakeNumber(std::string_view name, int base, uint32_t most) {
    const auto value = Take(name);
    if (!value) {
        return std::nullopt;
    }
    uint32_t number = 0;
    const char* end = value->data() + value->size();
    const auto [stop, error] = std::from_chars(value->data(), end, number, base);
    if (error != std::errc() || stop != end || number > most) {
        FailValue(name, *value);
    }
    return number;
}

void DxlAttributes::Finish() const {
    if (!left_.empty()) {
        element_.Fail("the attribute '" + left_.front().written + "' has no place here");
    }
}

void DxlAttributes::FailValue(std::string_view name, const std::string& value) const {
    element_.Fail("the attribute '" + std::string(name) + "' cannot be '" + value + "'");
}

} // namespace embedded
