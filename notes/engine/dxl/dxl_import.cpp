// The database grows under another name and takes its place when it is whole. The file is read once more for the notes
// that leave out their note ID or UNID, should there be any: they come behind those that state theirs, so that they do
// not take the one of a later note.
//
// What the platform has bytes for becomes bytes; every other element and attribute is kept as XML, in a note as an item
// of a type of its own, in the database as a property. Comments and the white space between elements are not kept.
#include <algorithm>
#include <charconv>
#include <set>

#include "engine/dxl/dxl.h"
#include "engine/dxl/dxl_items.h"
#include "engine/dxl/dxl_note_element.h"
#include "engine/dxl/dxl_source.h"
#include "engine/dxl/dxl_values.h"
#include "engine/dxl/dxl_vocabulary.h"
#include "engine/dxl/xml_text.h"
#include "engine/store/store.h"
#include "engine/system/caller_system.h"
#include "engine/system/file_lock.h"
#include "engine/system/replacement_file.h"
#include "engine/values/acl.h"
#include "engine/values/ascii.h"
#include "engine/values/bytes.h"
#include "engine/values/charset.h"
#include "engine/values/timedate.h"

namespace embedded {
namespace {

using dxl::AttributesLeft;

constexpr WORD maxWord = 0xFFFF;
constexpr NOTEID maxNoteId = RRV_DELETED - 1;
constexpr size_t maxParts = size_t{64} << 20; // memory of what a database holds beside notes

/** Stands in where a note has no times: 2000-01-01. A fixed one, so that two imports of a file are equal. */
const TIMEDATE undated = TimedateFromHundredths(int64_t{10957} * 24 * 60 * 60 * 100);

/** The text of an element that holds nothing else; nothing otherwise. */
std::optional<std::string> PlainText(const DxlNode& node) {
    std::string text;
    for (const DxlNode& child : DxlChildren(node)) {
        if (!child.name.empty()) {
            return std::nullopt;
        }
        text += child.text;
    }
    return text;
}

/** A date of noteinfo. */
std::optional<TIMEDATE> ReadNoteTime(const DxlNode& node) {
    const DxlNode* value = dxl::OnlyElementOf(node);
    if (!value) {
        return std::nullopt;
    }
    return value->name == "krx:time" ? ParseId(Trimmed(PlainText(*value).value_or(std::string())))
                                     : dxl::ReadDatetime(*value);
}

/** Whether export writes the date of noteinfo in these words. */
bool IsAsExported(const DxlNode& node, const TIMEDATE& time) {
    return node.attributes.empty() && DenseXmlOf(*dxl::OnlyElementOf(node)) == dxl::NoteTimeElement(time);
}

/** A node as XML that stands in a line of its own. */
std::string PieceOf(const DxlNode& node) {
    return node.name.empty() ? Escaped(Trimmed(node.text), XmlPlace::kept) : XmlOf(node);
}

[[noreturn]] void FailAttribute(DxlSource& source, const DxlNode& node, std::string_view name, std::string_view value) {
    source.Fail(node, "the attribute '" + std::string(name) + "' cannot be '" + std::string(value) + "'");
}

/** A whole number in the given base. */
std::optional<uint32_t> NumberOf(std::string_view text, int base, uint32_t most) {
    uint32_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    const bool whole = error == std::errc() && stop == text.data() + text.size();
    return whole && number <= most ? std::optional(number) : std::nullopt;
}

/** The value of a word of this project, or 0. */
WORD TakeWord(DxlSource& source, const DxlNode& node, AttributesLeft& attributes, std::string_view name, int base) {
    const auto value = attributes.Take(name);
    const auto number = value ? NumberOf(*value, base, maxWord) : 0;
    if (!number) {
        FailAttribute(source, node, name, *value);
    }
    return static_cast<WORD>(*number);
}

/** Words of this project's own namespace that are not known: a later version may lose what they mean. */
void RefuseUnknownWords(DxlSource& source, const DxlNode& node, const AttributesLeft& attributes,
                        std::span<const std::string_view> known = {}) {
    for (const DxlAttribute& attribute : attributes.Left()) {
        if (attribute.name.starts_with("krx:") && std::ranges::find(known, attribute.name) == known.end()) {
            source.Fail(node, "the attribute '" + std::string(attribute.name) + "' has no place here");
        }
    }
}

// ---- Notes

/** What a note says of itself; what it leaves out is made up later. */
struct Note {
    NoteHead head;
    bool hasUnid = false;
    std::string items;
};

bool IsNote(const DxlNode& node) {
    return node.name == "note" || node.name == "krx:stub" || node.name == "krx:deleted" ||
           dxl::FindNoteElement(node.name);
}

/** Tells once of each element that nobody knows. */
class UnknownElements {
public:
    void Look(const DxlNode& node, std::string_view parent) {
        if (node.name.empty() || node.name.find_first_of("\n:") != std::string_view::npos) {
            return; // a text, or of another namespace
        }
        constexpr size_t most = 1000, longest = 64; // more than this nobody reads
        if (known_.size() < most && !dxl::IsKnownElement(node.name) &&
            known_.emplace(CutUtf8(node.name, longest)).second) {
            remarks.push_back("<" + std::string(CutUtf8(node.name, longest)) + "> in <" +
                              std::string(CutUtf8(parent, longest)) + ">: not known, kept as it is");
        }
        for (const DxlNode& child : DxlChildren(node)) {
            Look(child, node.name);
        }
    }

    DxlRemarks remarks;

private:
    std::set<std::string> known_;
};

class NoteReader {
public:
    NoteReader(DxlSource& source, UnknownElements& unknown) : source_(source), unknown_(unknown) {}

    /** Which notes come first: those that state their UNID, and of them those that state their note ID. */
    static constexpr int turns = 4;

    /** Nothing when it is another turn of the file that takes the note; `turn` is then which. */
    std::optional<Note> Read(const DxlNode& node, int& turn) {
        Note note;
        note.head.oid.Sequence = 1;
        note.head.oid.SequenceTime = undated;
        note.head.modified = undated;
        const DxlNode* info = nullptr;
        std::string restOfInfo;
        for (const DxlNode& child : DxlChildren(node)) {
            if (child.name == "noteinfo") {
                info = &child;
                restOfInfo = ReadInfo(child, note);
                break;
            }
        }
        if (const int own = (note.hasUnid ? 0 : 2) + (note.head.id == 0 ? 1 : 0); own != turn) {
            turn = own;
            return std::nullopt;
        }
        const bool stub = node.name == "krx:stub";
        note.head.soft = node.name == "krx:deleted";
        note.head.deleted = stub || note.head.soft;
        ReadElement(node, restOfInfo, note);
        for (const DxlNode& child : DxlChildren(node)) {
            if (&child != info && !(child.name.empty() && IsBlank(child.text))) {
                if (stub || child.name.starts_with("krx:")) {
                    source_.Fail(child, "the element has no place here");
                }
                ReadChild(child, node.name, note);
            }
        }
        return note;
    }

    /** The highest note ID that a note so far states, 0 for none. */
    [[nodiscard]] NOTEID HighestId() const noexcept { return highestId_; }

private:
    void ReadChild(const DxlNode& child, std::string_view parent, Note& note) {
        const bool item = child.name == "item" || child.name == "updatedby" || child.name == "revisions";
        if (!item || !dxl::AppendItem(child, note.items)) {
            dxl::AppendKept(child, note.items);
            unknown_.Look(child, parent);
        }
    }

    /** Returns what the head has no place for, empty for none. */
    std::string ReadInfo(const DxlNode& node, Note& note) {
        NoteHead& head = note.head;
        AttributesLeft attributes(node);
        const std::string odd = TakeIdentity(node, attributes, note);
        head.oid.Sequence |= DWORD{TakeWord(source_, node, attributes, "krx:sequenceflags", 16)} << 16;
        constexpr std::string_view known[] = {"krx:noteid", "krx:unid", "krx:sequence"};
        RefuseUnknownWords(source_, node, attributes, known);

        std::optional<TIMEDATE> modified, revised;
        std::vector<std::string> pieces;
        size_t datesPlace = 0; // where the dates stand that the note does not have
        for (const DxlNode& child : DxlChildren(node)) {
            if (child.name.empty() && IsBlank(child.text)) {
                continue;
            }
            std::optional<TIMEDATE>* date = child.name == "modified"  ? &modified
                                            : child.name == "revised" ? &revised
                                                                      : nullptr;
            if (date && !*date && (*date = ReadNoteTime(child))) {
                const std::string own = IsAsExported(child, **date) ? std::string() : IdText(**date) + XmlOf(child);
                pieces.push_back(std::string(child.name.substr(0, 1)) + own);
                datesPlace = pieces.size() - (date == &revised ? 1 : 0);
                continue;
            }
            pieces.push_back("-" + PieceOf(child));
            unknown_.Look(child, node.name);
            if (child.name == "created" && !modified && !revised) {
                datesPlace = pieces.size();
            }
        }
        head.oid.SequenceTime = revised.value_or(modified.value_or(undated));
        head.modified = modified.value_or(head.oid.SequenceTime);
        const auto place = pieces.begin() + static_cast<ptrdiff_t>(datesPlace);
        if (!modified && !revised) {
            pieces.insert(place, {"m", "r"});
        } else if (!modified || !revised) {
            pieces.insert(place, revised ? "m" : "r");
        }
        std::string kept = odd + AttributesText(attributes.Left());
        if (kept.empty() && pieces == std::vector<std::string>{"m", "r"}) {
            return {};
        }
        for (const std::string& piece : pieces) {
            kept += '\0' + piece;
        }
        return kept;
    }

    /** Returns, as attributes, what should say which note it is and cannot. */
    std::string TakeIdentity(const DxlNode& node, AttributesLeft& attributes, Note& note) {
        std::string odd;
        const auto take = [&](const char* name, const auto& read) {
            const auto value = attributes.Take(name);
            if (!value || read(*value)) {
                return;
            }
            const std::string own = std::string("krx:") + name;
            if (dxl::FindAttribute(node.attributes, own)) {
                FailAttribute(source_, node, name, *value);
            }
            odd += AttributeText(own, *value);
        };
        take("noteid", [&](std::string_view text) {
            note.head.id = NumberOf(text, 16, maxNoteId).value_or(0);
            highestId_ = std::max(highestId_, note.head.id);
            return note.head.id != 0;
        });
        take("unid", [&](std::string_view text) {
            const auto unid = ParseUnid(text);
            note.hasUnid = unid.has_value();
            note.head.oid.File = unid.value_or(UNID{}).File;
            note.head.oid.Note = unid.value_or(UNID{}).Note;
            return note.hasUnid;
        });
        take("sequence", [&](std::string_view text) {
            const auto number = NumberOf(text, 10, maxWord);
            note.head.oid.Sequence = number.value_or(note.head.oid.Sequence);
            return number.has_value();
        });
        return odd;
    }

    /** The note's own element: its class, the items that follow from it, and its attributes. */
    void ReadElement(const DxlNode& node, const std::string& restOfInfo, Note& note) {
        AttributesLeft attributes(node);
        dxl::KeptHead head;
        head.element = "note";
        std::string implied;
        if (const auto* element = note.head.deleted ? nullptr : dxl::FindNoteElement(node.name)) {
            head.element = element->name;
            note.head.noteClass = dxl::ClassOf(*element, node.attributes);
            implied = ImpliedItems(*element, node, attributes, head);
        } else {
            note.head.noteClass = ReadClass(node, attributes);
        }
        RefuseUnknownWords(source_, node, attributes);
        head.otherAttributes = AttributesText(attributes.Left());
        if (head.element != "note" || !head.otherAttributes.empty()) {
            AppendEncoded(note.items, {{}, keptHead, 0, dxl::EncodeHead(head)});
        }
        if (!restOfInfo.empty()) {
            AppendEncoded(note.items, {{}, keptInfo, 0, restOfInfo});
        }
        note.items += implied;
    }

    /** The encoded items that follow from the attributes; these are taken. */
    static std::string ImpliedItems(const dxl::NoteElement& element, const DxlNode& node, AttributesLeft& attributes,
                                    dxl::KeptHead& head) {
        const bool all = attributes.TakeIf("krx:items", "all");
        std::string items;
        for (const Item& item : all ? std::vector<Item>() : dxl::ItemsOf(element, node.attributes)) {
            if (HasItem(node, item.name)) {
                head.implied.reset(); // it could go, and the other one would follow again
                continue;
            }
            AppendEncoded(items, {item.name, item.type, item.flags, item.value});
            if (head.implied) {
                ++*head.implied;
            }
        }
        if (all) {
            head.implied.reset();
        }
        head.hash = HashOf(items);
        for (const std::string_view name : dxl::ImplyingAttributes(element)) {
            if (const auto value = attributes.Take(name)) {
                head.attributes += AttributeText(name, *value);
            }
        }
        return items;
    }

    WORD ReadClass(const DxlNode& node, AttributesLeft& attributes) {
        WORD noteClass = dxl::unknownClass;
        if (const auto bits = dxl::FindAttribute(node.attributes, "krx:class")) {
            noteClass = TakeWord(source_, node, attributes, "krx:class", 16);
            const auto* named = std::ranges::find(dxl::classNames, noteClass, &dxl::ClassName::noteClass);
            if (named != std::end(dxl::classNames) || (noteClass & dxl::classModifiers) != 0) {
                FailAttribute(source_, node, "krx:class", *bits); // of a class that DXL has words for
            }
        } else {
            for (const dxl::ClassName& named : dxl::classNames) {
                if (attributes.TakeIf("class", named.name)) {
                    noteClass = named.noteClass;
                }
            }
        }
        if (attributes.TakeIf("default", "true")) {
            noteClass |= NOTE_CLASS_DEFAULT;
        }
        if (attributes.TakeIf("private", "true")) {
            noteClass |= NOTE_CLASS_PRIVATE;
        }
        return noteClass;
    }

    static bool HasItem(const DxlNode& note, std::string_view name) {
        for (const DxlNode& child : DxlChildren(note)) {
            const auto own = child.name == "item" ? dxl::FindAttribute(child.attributes, "name") : std::nullopt;
            if (own && SameItemName(*own, name)) {
                return true;
            }
        }
        return false;
    }

    DxlSource& source_;
    UnknownElements& unknown_;
    NOTEID highestId_ = 0;
};

// ---- The database

std::map<std::string, std::string> ReadAclAttributes(const AttributesLeft& attributes, bool& whole) {
    std::map<std::string, std::string> values;
    for (const DxlAttribute& attribute : attributes.Left()) {
        if (IsXmlName(attribute.name) && attribute.name != "name") {
            values.emplace(attribute.name, attribute.value);
        } else {
            whole = false;
        }
    }
    return values;
}

/** Adds the text of a role or log entry. */
void AddText(const DxlNode& node, std::vector<std::string>& texts, bool& whole) {
    const auto text = PlainText(node);
    whole = whole && text && node.attributes.empty();
    texts.push_back(text.value_or(std::string()));
}

AclEntry ReadAclEntry(const DxlNode& node, bool& whole) {
    AttributesLeft attributes(node);
    AclEntry entry;
    const auto name = attributes.Take("name");
    whole = whole && name;
    entry.name = name.value_or(std::string_view());
    entry.attributes = ReadAclAttributes(attributes, whole);
    for (const DxlNode& child : DxlChildren(node)) {
        if (child.name == "role") {
            AddText(child, entry.roles, whole);
        } else {
            whole = whole && child.name.empty() && IsBlank(child.text);
        }
    }
    return entry;
}

/** `whole` becomes false when something in it is not in the result. */
Acl ReadAcl(const DxlNode& node, bool& whole) {
    Acl acl;
    acl.attributes = ReadAclAttributes(AttributesLeft(node), whole);
    for (const DxlNode& child : DxlChildren(node)) {
        if (child.name == "role") {
            whole = whole && acl.entries.empty() && acl.log.empty();
            AddText(child, acl.roles, whole);
        } else if (child.name == "aclentry") {
            whole = whole && acl.log.empty();
            acl.entries.push_back(ReadAclEntry(child, whole));
        } else if (child.name == "logentry") {
            AddText(child, acl.log, whole);
        } else {
            whole = whole && child.name.empty() && IsBlank(child.text);
        }
    }
    return acl;
}

/** Everything of a database but its notes. */
class DatabaseReader {
public:
    DatabaseReader(DxlSource& source, UnknownElements& unknown) : source_(source), unknown_(unknown) {}

    DBREPLICAINFO replicaInfo{};
    bool hasReplicaId = false;
    std::map<std::string, std::string> properties;

    void ReadRoot(const DxlNode& node) {
        AttributesLeft attributes(node);
        constexpr std::string_view oddId[] = {"krx:replicaid"};
        if (const auto id = attributes.Take("replicaid"); id && !SetReplicaId(*id)) {
            if (dxl::FindAttribute(node.attributes, oddId[0])) {
                FailAttribute(source_, node, "replicaid", *id);
            }
            properties[property::attributePrefix + std::string(oddId[0])] = *id;
        }
        replicaInfo.Flags = TakeWord(source_, node, attributes, "krx:replicationflags", 16);
        replicaInfo.CutoffInterval = TakeWord(source_, node, attributes, "krx:cutoffinterval", 10);
        if (const auto text = attributes.Take("krx:cutoff")) {
            const auto cutoff = ParseId(*text);
            if (!cutoff) {
                FailAttribute(source_, node, "krx:cutoff", *text);
            }
            replicaInfo.Cutoff = *cutoff;
        }
        if (const auto title = attributes.Take("title")) {
            properties[property::title] = *title;
        }
        RefuseUnknownWords(source_, node, attributes, oddId);
        std::vector<DxlAttribute> foreign;
        for (const DxlAttribute& attribute : attributes.Left()) {
            if (attribute.name.find('\n') != std::string_view::npos) {
                foreign.push_back(attribute);
            } else {
                properties[property::attributePrefix + std::string(attribute.name)] = attribute.value;
            }
        }
        if (!foreign.empty()) {
            properties[property::foreignAttributes] = AttributesText(foreign);
        }
    }

    /** An element or a text below the root that is no note. */
    void ReadPart(const DxlNode& node, bool behindNotes) {
        if (node.name.starts_with("krx:")) {
            source_.Fail(node, "the element has no place here");
        }
        if (node.name == "acl" && !hasAcl_) {
            return ReadAccessList(node);
        }
        if (node.name == "databaseinfo" && !hasReplicaId) {
            (void)SetReplicaId(dxl::FindAttribute(node.attributes, "replicaid").value_or(std::string_view()));
        }
        const std::string xml = PieceOf(node);
        constexpr size_t costOfPart = 160; // memory beside the text
        partsSize_ += xml.size() + costOfPart;
        if (partsSize_ > maxParts) {
            source_.Fail(node, "more than " + std::to_string(maxParts >> 20) +
                                   " MiB beside the notes, each element counted with " + std::to_string(costOfPart) +
                                   " bytes more");
        }
        const char place = behindNotes ? partBehindNotes : hasAcl_ ? partBehindAcl : partBeforeAcl;
        char number[16];
        std::snprintf(number, sizeof number, "%08zu", parts_++);
        properties[std::string(property::partPrefix) + number] = place + xml;
        unknown_.Look(node, "database");
    }

    bool SetReplicaId(std::string_view text) {
        const auto id = ParseId(text);
        if (id) {
            replicaInfo.ID = *id;
            hasReplicaId = true;
        }
        return id.has_value();
    }

private:
    void ReadAccessList(const DxlNode& node) {
        bool whole = true;
        const std::string encoded = EncodeAcl(ReadAcl(node, whole));
        properties[property::acl] = encoded;
        if (!whole) {
            AppendValue(properties[property::aclElement], HashOf(encoded));
            properties[property::aclElement] += XmlOf(node);
            unknown_.Look(node, "database");
        }
        hasAcl_ = true;
    }

    DxlSource& source_;
    UnknownElements& unknown_;
    bool hasAcl_ = false;
    size_t parts_ = 0;
    size_t partsSize_ = 0;
};

class Importer {
public:
    Importer(const std::filesystem::path& dxlFile, const DxlProgress& progress)
        : source_(dxlFile), progress_(progress), notes_(source_, unknown_), database_(source_, unknown_) {}

    DxlRemarks MakeDatabase(const std::filesystem::path& file) {
        const DxlSource::Visitor visitor{[&](const DxlNode& root) { ReadRoot(root); },
                                         [&](const DxlNode& node) {
                                             if (IsNote(node)) {
                                                 return TakeNote(file, node);
                                             }
                                             if (turn_ == 0) {
                                                 database_.ReadPart(node, hasNotes_);
                                             }
                                         }};
        for (turn_ = 0; turn_ < NoteReader::turns; ++turn_) {
            if (turn_ == 0 || isWanted_[turn_]) {
                source_.Read(visitor, progress_);
            }
        }
        MakeStore(file);
        database_.properties.emplace(property::acl, EncodeAcl(DefaultAcl()));
        for (const auto& [name, value] : database_.properties) {
            store_->SetProperty(name, value);
        }
        store_->Close();
        return Remarks();
    }

    /** The database is not touched before the file is known to be good to its end. */
    DxlRemarks AddTo(const std::filesystem::path& file) {
        std::optional<Note> note;
        std::string name;
        DxlNode place; // for messages
        const DxlSource::Visitor visitor{[&](const DxlNode& root) {
                                             RequireRoot(root);
                                             if (!IsNote(root)) {
                                                 source_.Fail(root, "only a note can become one of a database");
                                             }
                                         },
                                         [&](const DxlNode& node) {
                                             for (int turn = 0; !note;) {
                                                 note = notes_.Read(node, turn);
                                             }
                                             name = node.name;
                                             place.offset = node.offset;
                                         }};
        source_.Read(visitor, progress_);
        place.name = name;
        store_ = Store::Open(file, StoreAccess::readWrite);
        try {
            AddNote(place, *std::move(note));
            store_->Close();
        } catch (...) {
            store_->Rollback();
            throw;
        }
        return Remarks();
    }

private:
    DxlRemarks Remarks() {
        DxlRemarks all = std::move(remarks_);
        all.insert(all.end(), unknown_.remarks.begin(), unknown_.remarks.end());
        return all;
    }

    void RequireRoot(const DxlNode& root) {
        if (root.name != "database" && root.name != "acl" && !IsNote(root)) {
            source_.Fail(root, "the root is no database, note or access control list of the namespace " +
                                   std::string(dxl::namespaceUri));
        }
    }

    void ReadRoot(const DxlNode& root) {
        if (turn_ != 0) {
            return;
        }
        RequireRoot(root);
        if (root.name == "database") {
            database_.ReadRoot(root);
        } else if (const auto id = dxl::FindAttribute(root.attributes, "replicaid")) {
            (void)database_.SetReplicaId(*id);
        }
    }

    void TakeNote(const std::filesystem::path& file, const DxlNode& node) {
        hasNotes_ = true;
        int turn = turn_;
        auto note = notes_.Read(node, turn);
        if (!note) {
            isWanted_[turn] = true;
            return;
        }
        MakeStore(file);
        Insert(node, *std::move(note));
    }

    /** When the replica ID is known. A file that states none has a hash of itself, so that two imports of it are
     *  replicas. */
    void MakeStore(const std::filesystem::path& file) {
        if (store_) {
            return;
        }
        if (!database_.hasReplicaId) {
            const uint64_t hash = source_.HashOfText();
            database_.replicaInfo.ID = TIMEDATE{{static_cast<DWORD>(hash), static_cast<DWORD>(hash >> 32)}};
            database_.hasReplicaId = true;
        }
        store_ = Store::Create(file, database_.replicaInfo);
    }

    /** The items with the values that are too long for them in objects. */
    std::string WithLongValuesApart(std::string items, NOTEID id) {
        if (items.size() <= maxSummaryValue) {
            return items;
        }
        std::string apart;
        apart.reserve(items.size());
        ItemCursor cursor(items);
        for (ItemView view{}; cursor.Next(view);) {
            if (view.value.size() > (view.flags & ITEM_SUMMARY ? maxSummaryValue : maxItemValue)) {
                view.object = store_->PutObject(id, [&](const Store::ObjectSink& sink) { sink(view.value); });
            }
            AppendEncoded(apart, view);
        }
        return apart;
    }

    void Insert(const DxlNode& node, Note note) {
        NoteHead& head = note.head;
        if (!note.hasUnid) {
            MakeUnid(head.oid);
        }
        if (NoteHead other; head.id != 0 && head.id < store_->NextId() && store_->ReadHead(head.id, other)) {
            char id[9];
            std::snprintf(id, sizeof id, "%x", head.id);
            source_.Fail(node, std::string("another note of the file has the note ID ") + id);
        }
        if (head.id == 0) {
            head.id = FreeId(node, notes_.HighestId());
        }
        if (IsGeneratedUnid(UnidOf(head.oid), database_.replicaInfo.ID)) {
            store_->SkipSerials(head.oid.File.Innards[0]);
        }
        try {
            store_->Insert(head, WithLongValuesApart(std::move(note.items), head.id));
        } catch (const StatusError& error) {
            if (error.Status() == ERR_DUPLICATE_UNID) {
                source_.Fail(node, "another note of the file has the UNID " + UnidText(UnidOf(head.oid)));
            }
            throw;
        }
    }

    /** Above those of the database and `highest`. */
    NOTEID FreeId(const DxlNode& node, NOTEID highest = 0) {
        constexpr NOTEID step = 4;
        const NOTEID id = std::max(store_->NextId(), highest + step);
        if (id > maxNoteId) {
            source_.Fail(node, "no note ID is left");
        }
        return id;
    }

    /** In the place of the note that has its UNID, or under a note ID of the database's own. */
    void AddNote(const DxlNode& node, Note note) {
        database_.replicaInfo = store_->ReplicaInfo();
        NoteHead& head = note.head;
        if (!note.hasUnid) {
            MakeUnid(head.oid);
        }
        head.id = store_->FindUnid(UnidOf(head.oid));
        if (head.id == 0) {
            head.id = FreeId(node);
            store_->Insert(head, WithLongValuesApart(std::move(note.items), head.id));
            return;
        }
        store_->Replace(head, WithLongValuesApart(std::move(note.items), head.id), false);
        remarks_.push_back("the note of the UNID " + UnidText(UnidOf(head.oid)) + " is replaced");
    }

    void MakeUnid(OID& oid) {
        oid.Note = undated;
        do {
            oid.File = GeneratedUnidFile(database_.replicaInfo.ID, store_->TakeSerial());
        } while (store_->FindUnid(UnidOf(oid)) != 0);
    }

    DxlSource source_;
    const DxlProgress& progress_;
    UnknownElements unknown_;
    NoteReader notes_;
    DatabaseReader database_;
    std::unique_ptr<Store> store_;
    DxlRemarks remarks_;
    int turn_ = 0;
    bool isWanted_[NoteReader::turns] = {};
    bool hasNotes_ = false;
};

bool IsThere(const std::filesystem::path& file) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(file, ignored));
}

void ExpectFree(const std::filesystem::path& file) {
    if (IsThere(file)) {
        throw StatusError(ERR_EXISTS, PathForCaller(file) + ": the file exists");
    }
}

/** Keeps everybody else from opening the database that is about to be replaced. */
std::optional<FileLock> LockExisting(const std::filesystem::path& file) {
    if (!IsThere(file)) {
        return std::nullopt;
    }
    auto lock = FileLock::Take(file, FileLock::Kind::exclusive);
    if (!lock) {
        throw StatusError(EMB_ERR_BUSY, PathForCaller(file) + ": the database is in use");
    }
    return lock;
}

/** A journal that a dead writer left would be played back into the file that takes this name. It is played back
 *  into the old one, which is then whole should the replacement fail. */
void SettleJournal(const std::filesystem::path& file) {
    if (!IsThere(JournalOf(file))) {
        return;
    }
    try {
        Store::Open(file, StoreAccess::readWrite)->Close();
    } catch (const StatusError&) {
        // No database, or none any more: then the journal is nobody's.
    }
    std::error_code ignored;
    std::filesystem::remove(JournalOf(file), ignored);
}

DxlRemarks AddNote(const std::filesystem::path& databaseFile, Importer& importer) {
    if (!IsThere(databaseFile)) {
        throw StatusError(ERR_NOEXIST, PathForCaller(databaseFile) + ": no such file");
    }
    const auto lock = LockExisting(databaseFile);
    return importer.AddTo(databaseFile);
}

} // namespace

DxlRemarks ImportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile,
                     DxlImportInto into, const DxlProgress& progress) {
    if (into == DxlImportInto::newDatabase) {
        ExpectFree(databaseFile);
    }
    if (std::error_code ignored; std::filesystem::equivalent(databaseFile, dxlFile, ignored)) {
        throw StatusError(EMB_ERR_ARGUMENT,
                          PathForCaller(dxlFile) + ": the database would take the place of its own DXL");
    }
    Importer importer(dxlFile, progress);
    if (into == DxlImportInto::existingDatabase) {
        return AddNote(databaseFile, importer);
    }
    const auto lock = LockExisting(databaseFile);
    ReplacementFile replacement(databaseFile);
    DxlRemarks remarks = importer.MakeDatabase(replacement.Path());
    if (into == DxlImportInto::newDatabase) {
        ExpectFree(databaseFile);
    }
    SettleJournal(databaseFile);
    replacement.Commit();
    return remarks;
}

} // namespace embedded
