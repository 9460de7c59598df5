// expat cuts the file. Only what the predefined and the numeric references stand for is taken: a DOCTYPE may name a
// grammar but not declare anything, so that there is nothing to expand.
//
// Whatever is taken here is taken again in the words of export. Therefore the limits go by what export writes of it.
#include "engine/dxl/dxl_source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iterator>
#include <list>
#include <memory_resource>
#include <optional>
#include <vector>

#include <expat.h>

#include "engine/dxl/dxl_vocabulary.h"
#include "engine/dxl/xml_text.h"
#include "engine/system/caller_system.h"
#include "engine/values/bytes.h"
#include "engine/values/charset.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

/** The limits; docs/formats.md tells them. */
constexpr size_t maxDepth = 256;               // of a note; export puts <database> around it
constexpr size_t maxPiece = size_t{256} << 20; // text of one note
constexpr size_t maxTag = size_t{1} << 20;     // bytes of one tag as export writes it
constexpr size_t maxMarkup = size_t{2} << 20;  // bytes of one tag, comment or instruction as it stands in the file
constexpr size_t longestReference = 6;         // how many bytes export may write for one: &apos;
constexpr size_t blockSize = size_t{1} << 16;

constexpr char nameSeparator = '\n'; // in no URI, since white space in a value becomes blanks

std::string Quoted(std::string_view name) {
    const size_t uri = name.find(nameSeparator);
    const std::string_view local = uri == std::string_view::npos ? name : name.substr(uri + 1);
    return "<" + std::string(local.substr(0, local.find(nameSeparator))) + ">";
}

/** In UTF-16, which of a character's two bytes has the ASCII; `start` begins with a byte-order mark or a tag. */
std::optional<size_t> AsciiByte(std::string_view start) {
    if (start.size() < 2) {
        return std::nullopt;
    }
    if (start.starts_with("\xFF\xFE") || start[1] == '\0') {
        return 0;
    }
    return start.starts_with("\xFE\xFF") || start[0] == '\0' ? std::optional<size_t>(1) : std::nullopt;
}

/** The ASCII of whole characters, other ones in other bytes. */
std::string AsciiOf(std::string_view text, std::optional<size_t> asciiByte) {
    if (!asciiByte) {
        return std::string(text);
    }
    std::string ascii;
    for (size_t at = 0; at + 1 < text.size(); at += 2) {
        ascii += text[at + 1 - *asciiByte] == '\0' ? text[at + *asciiByte] : '\xFF';
    }
    return ascii;
}

/** Where the nodes of one piece are. What is big stands apart, so that it is not copied while it grows. */
class Arena {
public:
    template<typename T>
    T* Make(size_t count = 1) {
        T* made = static_cast<T*>(memory_.allocate(count * sizeof(T), alignof(T)));
        std::uninitialized_default_construct_n(made, count);
        size_ += count * sizeof(T);
        return made;
    }
    std::string_view Copy(std::string_view text) {
        char* copy = static_cast<char*>(memory_.allocate(text.size() + 1, 1));
        std::memcpy(copy, text.data(), text.size());
        size_ += text.size();
        return {copy, text.size()};
    }
    std::string_view Take(std::string&& text) {
        constexpr size_t big = size_t{1} << 16;
        if (text.size() < big) {
            return Copy(text);
        }
        size_ += text.size();
        return big_.emplace_back(std::move(text));
    }
    void Clear() {
        memory_.release();
        big_.clear();
        size_ = 0;
    }
    [[nodiscard]] size_t Size() const noexcept { return size_; }

private:
    std::vector<std::byte> first_ = std::vector<std::byte>(size_t{1} << 18); // enough for most notes
    std::pmr::monotonic_buffer_resource memory_{first_.data(), first_.size()};
    std::list<std::string> big_;
    size_t size_ = 0;
};

/** One pass over the file. */
class Pass {
public:
    Pass(DxlSource& source, const DxlSource::Visitor& visitor)
        : source_(source), visitor_(visitor), parser_(XML_ParserCreateNS(nullptr, nameSeparator)) {
        if (!parser_) {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser_.get(), this);
        XML_SetReturnNSTriplet(parser_.get(), 1);
        XML_SetElementHandler(parser_.get(), Guarded<&Pass::Start, const char*, const char**>,
                              Guarded<&Pass::End, const char*>);
        XML_SetCharacterDataHandler(parser_.get(), Guarded<&Pass::Text, const char*, int>);
        XML_SetCommentHandler(parser_.get(), Guarded<&Pass::Comment, const char*>);
        XML_SetProcessingInstructionHandler(parser_.get(), Guarded<&Pass::Instruction, const char*, const char*>);
        XML_SetStartDoctypeDeclHandler(parser_.get(),
                                       Guarded<&Pass::DocumentType, const char*, const char*, const char*, int>);
        XML_SetEndDoctypeDeclHandler(parser_.get(), Guarded<&Pass::EndOfDocumentType>);
        XML_SetDefaultHandler(parser_.get(), Guarded<&Pass::Other, const char*, int>);
        XML_SetSkippedEntityHandler(parser_.get(), Guarded<&Pass::Entity, const char*, int>);
    }

    /** Room for the next part of the file, which Parse() takes. */
    char* Room() {
        void* room = XML_GetBuffer(parser_.get(), blockSize);
        if (!room) {
            throw std::bad_alloc();
        }
        return static_cast<char*>(room);
    }

    void Parse(size_t size, bool last) {
        const XML_Status status = XML_ParseBuffer(parser_.get(), static_cast<int>(size), last);
        read_ += size;
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        if (status != XML_STATUS_OK) {
            Malformed();
        }
        if (read_ - seen_ > maxMarkup) {
            source_.Fail(seen_, InElement() + "a tag, comment or instruction is longer than " +
                                    std::to_string(maxMarkup >> 20) + " MiB");
        }
    }

private:
    struct Open {
        DxlNode* node;
        DxlNode* lastChild;
    };

    /** A handler of expat, from which no exception may come. */
    template<auto handler, typename... Arguments>
    static void Guarded(void* self, Arguments... arguments) noexcept {
        auto& pass = *static_cast<Pass*>(self);
        if (pass.failure_) {
            return;
        }
        try {
            pass.seen_ = pass.Here();
            (pass.*handler)(arguments...);
        } catch (...) {
            pass.failure_ = std::current_exception();
            XML_StopParser(pass.parser_.get(), XML_FALSE);
        }
    }

    [[nodiscard]] uint64_t Here() const { return static_cast<uint64_t>(XML_GetCurrentByteIndex(parser_.get())); }

    [[noreturn]] void Malformed() {
        const XML_Error error = XML_GetErrorCode(parser_.get());
        if (error == XML_ERROR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        source_.Fail(Here(), InElement() + "not well-formed XML: " + XML_ErrorString(error));
    }

    /** The start of a message. */
    [[nodiscard]] std::string InElement() const {
        return open_.empty() ? std::string() : "in " + Quoted(open_.back().node->name) + ": ";
    }

    void Start(const char* name, const char** attributes) {
        if (hasDocumentType_) {
            CheckReferences();
        }
        AddText();
        if (open_.size() >= maxDepth + (isDatabase_ ? 1 : 0)) {
            source_.Fail(Here(), Quoted(name) + ": elements are nested deeper than " + std::to_string(maxDepth));
        }
        DxlNode* node = arena_.Make<DxlNode>();
        node->name = ElementName(name);
        node->attributes = Attributes(attributes);
        node->offset = Here();
        CheckTag(*node);
        if (open_.empty()) {
            visitor_.root(*node);
            isDatabase_ = node->name == "database";
        }
        Append(node);
        open_.push_back({node, nullptr});
    }

    void End(const char*) {
        AddText();
        DxlNode* node = open_.back().node;
        open_.pop_back();
        if (open_.size() == (isDatabase_ ? 1 : 0)) {
            Deliver(*node);
        }
    }

    void Text(const char* text, int size) {
        text_.append(text, static_cast<size_t>(size));
        CheckSize();
    }

    void Comment(const char*) {}
    void Instruction(const char*, const char*) {}

    void DocumentType(const char*, const char*, const char*, int declares) {
        hasDocumentType_ = true;
        isDeclaring_ = declares != 0;
    }

    void EndOfDocumentType() { isDeclaring_ = false; }

    /** What has no handler of its own. Within a DOCTYPE's brackets these are declarations. */
    void Other(const char* text, int size) {
        if (isDeclaring_ && !IsBlank({text, static_cast<size_t>(size)})) {
            source_.Fail(Here(), "<!DOCTYPE> with declarations of its own is not taken");
        }
    }

    void Entity(const char* name, int) { RefuseReference(name); }

    [[noreturn]] void RefuseReference(std::string_view name) {
        const std::string shown(IsXmlText(name) ? CutUtf8(name, 64) : "?"); // a tag is in the file's character set
        source_.Fail(Here(), InElement() + "the reference '&" + shown + ";' is not taken");
    }

    /** Behind a DOCTYPE expat leaves a reference that it does not know out of an attribute without a word. */
    void CheckReferences() {
        int offset = 0, size = 0;
        const char* input = XML_GetInputContext(parser_.get(), &offset, &size);
        const std::string_view tag(input + offset, static_cast<size_t>(XML_GetCurrentByteCount(parser_.get())));
        if (tag.find('&') == std::string_view::npos) {
            return;
        }
        const std::string ascii = AsciiOf(tag, AsciiByte(tag));
        for (size_t at = 0; (at = ascii.find('&', at)) != std::string::npos; ++at) {
            const std::string_view name = std::string_view(ascii).substr(at + 1, ascii.find(';', at) - at - 1);
            constexpr std::string_view predefined[] = {"amp", "lt", "gt", "quot", "apos"};
            if (!name.starts_with('#') && std::ranges::find(predefined, name) == std::end(predefined)) {
                RefuseReference(name);
            }
        }
    }

    // ---- Nodes

    std::string_view ElementName(std::string_view name) {
        const size_t uri = name.find(nameSeparator);
        if (uri == std::string_view::npos) {
            return arena_.Copy(nameSeparator + std::string(name)); // of no namespace
        }
        const std::string_view local = name.substr(uri + 1, name.find(nameSeparator, uri + 1) - uri - 1);
        if (name.substr(0, uri) == dxl::namespaceUri) {
            return arena_.Copy(local);
        }
        return OwnOrForeign(name, uri, local);
    }

    std::string_view AttributeName(std::string_view name) {
        const size_t uri = name.find(nameSeparator);
        if (uri == std::string_view::npos) {
            return arena_.Copy(name);
        }
        return OwnOrForeign(name, uri, name.substr(uri + 1, name.find(nameSeparator, uri + 1) - uri - 1));
    }

    std::string_view OwnOrForeign(std::string_view name, size_t uri, std::string_view local) {
        return arena_.Copy(name.substr(0, uri) == dxl::extensionUri ? "krx:" + std::string(local) : std::string(name));
    }

    std::span<const DxlAttribute> Attributes(const char** given) {
        size_t count = 0;
        while (given[2 * count]) {
            ++count;
        }
        if (count == 0) {
            return {};
        }
        auto* attributes = arena_.Make<DxlAttribute>(count);
        for (size_t i = 0; i < count; ++i) {
            attributes[i] = {AttributeName(given[2 * i]), arena_.Copy(given[2 * i + 1])};
        }
        return {attributes, count};
    }

    void Append(DxlNode* node) {
        if (open_.empty() || (isDatabase_ && open_.size() == 1)) {
            return; // stands alone
        }
        Open& parent = open_.back();
        CheckSize();
        (parent.lastChild ? parent.lastChild->next : parent.node->firstChild) = node;
        parent.lastChild = node;
    }

    /** Most tags are far from the limit, and need not be written to be measured. */
    void CheckTag(const DxlNode& node) {
        size_t size = node.name.size();
        for (const DxlAttribute& attribute : node.attributes) {
            size += attribute.name.size() + attribute.value.size();
        }
        if (size < maxTag / (2 * longestReference)) {
            return;
        }
        std::vector<DxlAttribute> counted;
        std::ranges::remove_copy_if(node.attributes, std::back_inserter(counted), MayBeExports);
        if (node.name.size() + AttributesText(counted).size() > maxTag) {
            source_.Fail(node, "the tag is longer than " + std::to_string(maxTag >> 20) + " MiB");
        }
    }

    /** Whether export could add the attribute to a tag, which must not take it over the limit. */
    static bool MayBeExports(const DxlAttribute& attribute) {
        constexpr std::string_view added[] = {"class",     "default",  "noteid",  "private",
                                              "replicaid", "sequence", "summary", "unid"};
        return attribute.value.size() <= 32 &&
               (attribute.name.starts_with("krx:") || std::ranges::find(added, attribute.name) != std::end(added));
    }

    void CheckSize() {
        if (arena_.Size() + text_.size() > maxPiece) {
            source_.Fail(*open_.back().node, "a note of more than " + std::to_string(maxPiece >> 20) + " MiB");
        }
    }

    /** The text since the last tag. */
    void AddText() {
        if (text_.empty() || open_.empty()) {
            return;
        }
        if (isDatabase_ && open_.size() == 1 && IsBlank(text_)) {
            return text_.clear();
        }
        DxlNode* node = arena_.Make<DxlNode>();
        node->offset = Here();
        node->text = arena_.Take(std::move(text_));
        text_.clear();
        Append(node);
        if (isDatabase_ && open_.size() == 1) {
            Deliver(*node);
        }
    }

    void Deliver(const DxlNode& piece) {
        visitor_.piece(piece);
        // The root of a database stays, for its name in messages.
        rootName_ = isDatabase_ ? "database" : std::string();
        arena_.Clear();
        if (isDatabase_) {
            DxlNode* root = arena_.Make<DxlNode>();
            root->name = rootName_;
            open_.front() = {root, nullptr};
        }
    }

    struct ParserCloser {
        void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
    };

    DxlSource& source_;
    const DxlSource::Visitor& visitor_;
    std::unique_ptr<XML_ParserStruct, ParserCloser> parser_;
    std::exception_ptr failure_;
    uint64_t read_ = 0;
    uint64_t seen_ = 0; // where expat last told of something
    bool hasDocumentType_ = false;
    bool isDeclaring_ = false;
    bool isDatabase_ = false;
    std::string rootName_;
    Arena arena_;
    std::vector<Open> open_;
    std::string text_;
};

} // namespace

bool IsBlank(std::string_view text) noexcept {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

DxlSource::DxlSource(const std::filesystem::path& file) : name_(PathForCaller(file)) {
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) {
        throw StatusError(ERR_NOEXIST, name_ + ": no such file");
    }
    if (!std::filesystem::is_directory(file, ignored)) {
        file_.reset(std::fopen(file.c_str(), "rbe"));
    }
    if (!file_) {
        throw StatusError(EMB_ERR_DISK, name_ + ": cannot be read");
    }
    if (std::filesystem::is_regular_file(file, ignored)) {
        size_ = std::filesystem::file_size(file, ignored);
        return;
    }
    // What comes out of a pipe comes once.
    std::unique_ptr<std::FILE, Closer> copy(std::tmpfile());
    std::array<char, blockSize> block;
    while (const size_t size = ReadBlock(block.data(), block.size())) {
        if (!copy || std::fwrite(block.data(), 1, size, copy.get()) != size) {
            throw StatusError(EMB_ERR_DISK, name_ + ": cannot be copied");
        }
        size_ += size;
    }
    file_ = std::move(copy);
}

size_t DxlSource::ReadBlock(char* block, size_t size) {
    const size_t read = std::fread(block, 1, size, file_.get());
    if (std::ferror(file_.get())) {
        throw StatusError(EMB_ERR_DISK, name_ + ": cannot be read");
    }
    return read;
}

void DxlSource::Rewind() {
    if (std::fseek(file_.get(), 0, SEEK_SET) != 0) {
        throw StatusError(EMB_ERR_DISK, name_ + ": cannot be read");
    }
}

void DxlSource::Read(const Visitor& visitor, const DxlProgress& progress) {
    Rewind();
    Pass pass(*this, visitor);
    uint64_t done = 0;
    for (bool more = true; more;) {
        const size_t size = ReadBlock(pass.Room(), blockSize);
        more = size == blockSize;
        pass.Parse(size, !more);
        done += size;
        if (progress && !progress(done, size_)) {
            throw StatusError(EMB_ERR_CANCELLED, name_ + ": interrupted");
        }
    }
}

uint64_t DxlSource::HashOfText() {
    const long place = std::ftell(file_.get());
    Rewind();
    Hash hash;
    std::array<char, blockSize> block;
    while (const size_t size = ReadBlock(block.data(), block.size())) {
        hash.Add({block.data(), size});
    }
    if (std::fseek(file_.get(), place, SEEK_SET) != 0) {
        throw StatusError(EMB_ERR_DISK, name_ + ": cannot be read");
    }
    return hash.Value();
}

void DxlSource::Fail(uint64_t offset, const std::string& cause) {
    Rewind();
    int64_t line = 1;
    std::array<char, blockSize> block;
    const std::optional<size_t> asciiByte = AsciiByte({block.data(), ReadBlock(block.data(), 2)});
    Rewind();
    for (uint64_t left = offset; left > 0;) {
        const size_t size = ReadBlock(block.data(), static_cast<size_t>(std::min<uint64_t>(left, block.size())));
        if (size == 0) {
            break;
        }
        line += std::ranges::count(AsciiOf({block.data(), size}, asciiByte), '\n');
        left -= size;
    }
    throw StatusError(EMB_ERR_DXL, name_ + ":" + std::to_string(line) + ": " + cause);
}

void DxlSource::Fail(const DxlNode& node, const std::string& cause) {
    Fail(node.offset, node.name.empty() ? cause : Quoted(node.name) + ": " + cause);
}

} // namespace embedded
