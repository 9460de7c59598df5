// The database grows under another name and takes its place when it is whole. A note that leaves out its note ID is
// put off until the ones that state theirs are in, so that it does not take the ID of a later one.
//
// Not kept, because they are facts of the file that was exported and not of its content: databaseinfo but for the
// replica ID, the database's path, and a note's dates of last access and of being added to that file. A note's
// creation date is not kept either: it says in another form what the UNID says.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>
#include <span>

#include "engine/dxl/dxl.h"
#include "engine/dxl/dxl_source.h"
#include "engine/dxl/dxl_vocabulary.h"
#include "engine/formula/formula.h"
#include "engine/store/store.h"
#include "engine/system/caller_system.h"
#include "engine/system/file_lock.h"
#include "engine/system/replacement_file.h"
#include "engine/values/acl.h"
#include "engine/values/base64.h"
#include "engine/values/bytes.h"
#include "engine/values/charset.h"
#include "engine/values/timedate.h"

namespace embedded {
namespace {

constexpr WORD maxWord = 0xFFFF;
constexpr NOTEID maxNoteId = RRV_DELETED - 1;

/** Stands in where a note has no times: 2000-01-01. A fixed one, so that two imports of a file are equal. */
const TIMEDATE undated = TimedateFromHundredths(int64_t{10957} * 24 * 60 * 60 * 100);

// ---- Texts and times

std::string PlainText(const DxlElement& element) {
    DxlAttributes(element).Finish();
    return element.Text();
}

[[noreturn]] void FailText(const DxlElement& element, const std::string& what) {
    const std::string text = element.TrimmedText();
    element.Fail("'" + std::string(CutUtf8(text, 64)) + "' is not " + what);
}

TIMEDATE ReadDatetime(const DxlElement& element) {
    if (element.Name() != "datetime") {
        element.FailUnknown();
    }
    DxlAttributes attributes(element);
    const bool dst = attributes.TakeBoolean("dst").value_or(false);
    attributes.Finish();
    const auto time = TimedateFromDxl(element.TrimmedText(), dst);
    if (!time) {
        FailText(element, "a date or time");
    }
    return *time;
}

/** A date of noteinfo. */
TIMEDATE ReadNoteTime(const DxlElement& element) {
    DxlAttributes(element).Finish();
    const DxlElement value = element.Child();
    if (value.Name() != "krx:time") {
        return ReadDatetime(value);
    }
    DxlAttributes(value).Finish();
    const auto time = ParseId(value.TrimmedText());
    if (!time) {
        FailText(value, "a time of 16 hexadecimal digits");
    }
    return *time;
}

// ---- Values

/** A value without type word. */
struct Value {
    WORD type;
    std::string bytes;
    /** Whether an item has it in the summary unless the item says otherwise. */
    bool summary = true;
};

template<typename T>
void Put(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof(T));
}

Value ReadText(const DxlElement& element) {
    DxlAttributes(element).Finish();
    return {TYPE_TEXT, LmbcsFromUtf8(element.TextWithBreaks())};
}

/** A text list of entries in the Notes character set. */
std::string TextList(const DxlElement& element, const std::vector<std::string>& entries) {
    size_t size = sizeof(WORD);
    for (const std::string& entry : entries) {
        size += sizeof(WORD) + entry.size();
    }
    if (size > maxItemValue) {
        element.Fail("the list is too long");
    }
    return EncodeTextList(std::vector<std::string_view>(entries.begin(), entries.end()));
}

Value ReadTextList(const DxlElement& element) {
    DxlAttributes(element).Finish();
    std::vector<std::string> entries;
    for (const DxlElement& entry : element.Children()) {
        if (entry.Name() != "text") {
            entry.FailUnknown();
        }
        entries.push_back(ReadText(entry).bytes);
    }
    return {TYPE_TEXT_LIST, TextList(element, entries)};
}

double ReadDouble(const DxlElement& element) {
    if (element.Name() != "number") {
        element.FailUnknown();
    }
    DxlAttributes(element).Finish();
    const std::string text = element.TrimmedText();
    double number = 0;
    const char* start = text.data() + (text.starts_with('+') ? 1 : 0);
    const auto [end, error] = std::from_chars(start, text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) {
        FailText(element, "a number");
    }
    return number;
}

Value ReadNumber(const DxlElement& element) {
    Value value{TYPE_NUMBER, {}};
    Put(value.bytes, ReadDouble(element));
    return value;
}

/** A range's head: how many single values and how many pairs follow. */
std::string RangeOf(const DxlElement& element, size_t singles, size_t pairs, const std::string& values) {
    if (singles > maxWord || pairs > maxWord) {
        element.Fail("the list is too long");
    }
    std::string out;
    Put(out, static_cast<WORD>(singles));
    Put(out, static_cast<WORD>(pairs));
    return out + values;
}

Value ReadNumberList(const DxlElement& element) {
    DxlAttributes(element).Finish();
    const auto children = element.Children();
    std::string numbers;
    for (const DxlElement& child : children) {
        Put(numbers, ReadDouble(child));
    }
    return {TYPE_NUMBER_RANGE, RangeOf(element, children.size(), 0, numbers)};
}

Value ReadTime(const DxlElement& element) {
    Value value{TYPE_TIME, {}};
    Put(value.bytes, ReadDatetime(element));
    return value;
}

std::string TimeRange(const DxlElement& element) {
    std::string times;
    size_t singles = 0, pairs = 0;
    for (const DxlElement& child : element.Children()) {
        if (child.Name() != "datetimepair") {
            if (pairs > 0) {
                child.Fail("a single time after a pair: the platform keeps pairs last");
            }
            Put(times, ReadDatetime(child));
            ++singles;
            continue;
        }
        DxlAttributes(child).Finish();
        const auto ends = child.Children();
        if (ends.size() != 2) {
            child.Fail("needs two times");
        }
        for (const DxlElement& end : ends) {
            Put(times, ReadDatetime(end));
        }
        ++pairs;
    }
    return RangeOf(element, singles, pairs, times);
}

Value ReadTimeList(const DxlElement& element) {
    DxlAttributes(element).Finish();
    return {TYPE_TIME_RANGE, TimeRange(element)};
}

std::string ReadBase64(const DxlElement& element) {
    auto bytes = BytesFromBase64(element.Text());
    if (!bytes) {
        FailText(element, "Base64");
    }
    return *std::move(bytes);
}

Value ReadFormula(const DxlElement& element) {
    DxlAttributes attributes(element);
    const bool compiled = attributes.TakeBoolean("compiled").value_or(false);
    attributes.Finish();
    if (compiled) {
        return {TYPE_FORMULA, ReadBase64(element)};
    }
    auto result = CompileFormula(LmbcsFromUtf8(element.Text()));
    if (const auto* error = std::get_if<FormulaError>(&result)) {
        element.Fail("the formula does not compile: " + error->message + " (line " + std::to_string(error->line) +
                     ", column " + std::to_string(error->column) + " of it)");
    }
    return {TYPE_FORMULA, std::get<std::string>(std::move(result))};
}

Value ReadRaw(const DxlElement& element) {
    DxlAttributes attributes(element);
    const auto type = attributes.TakeNumber("type", 16, maxWord);
    if (!type) {
        element.Fail("the attribute 'type' is missing");
    }
    attributes.Finish();
    return {static_cast<WORD>(*type), ReadBase64(element), false};
}

struct ValueForm {
    std::string_view name;
    Value (*read)(const DxlElement& element);
};
constexpr ValueForm valueForms[] = {
    {"text", ReadText},     {"textlist", ReadTextList},     {"number", ReadNumber},   {"numberlist", ReadNumberList},
    {"datetime", ReadTime}, {"datetimelist", ReadTimeList}, {"formula", ReadFormula}, {"rawitemdata", ReadRaw},
    {"itemdata", ReadRaw},
};

Value ReadValue(const DxlElement& element) {
    const std::string name = element.Name();
    for (const ValueForm& form : valueForms) {
        if (form.name == name) {
            return form.read(element);
        }
    }
    element.FailUnknown();
}

// ---- Items

std::string ReadItemName(const DxlElement& element, DxlAttributes& attributes) {
    const auto coded = attributes.Take("krx:name");
    if (!coded) {
        return LmbcsFromUtf8(attributes.Require("name"));
    }
    auto name = BytesFromBase64(*coded);
    if (!name) {
        element.Fail("the attribute 'krx:name' is not Base64");
    }
    return *std::move(name);
}

void CheckSizes(const DxlElement& element, const Item& item) {
    const size_t limit = item.flags & ITEM_SUMMARY ? maxSummaryValue : maxItemValue;
    if (item.name.size() > maxItemName) {
        element.Fail("the item's name is too long");
    }
    if (item.value.size() > limit) {
        element.Fail("the value is longer than " + std::to_string(limit) + " bytes");
    }
}

Item ReadItem(const DxlElement& element) {
    DxlAttributes attributes(element);
    Item item;
    item.name = ReadItemName(element, attributes);
    item.flags = static_cast<WORD>(attributes.TakeNumber("krx:flags", 16, maxWord).value_or(0));
    for (const dxl::FlagName& flag : dxl::flagNames) {
        if (attributes.TakeBoolean(flag.name).value_or(false)) {
            item.flags |= flag.flag;
        }
    }
    const auto summary = attributes.TakeBoolean("summary");
    if (attributes.TakeBoolean("sealed").value_or(false)) {
        element.Fail("an encrypted item is not taken");
    }
    attributes.Finish();

    Value value = ReadValue(element.Child());
    item.type = value.type;
    item.value = std::move(value.bytes);
    if (summary.value_or(value.summary)) {
        item.flags |= ITEM_SUMMARY;
    }
    CheckSizes(element, item);
    return item;
}

Item ReadUpdatedBy(const DxlElement& element) {
    DxlAttributes(element).Finish();
    std::vector<std::string> names;
    for (const DxlElement& name : element.Children()) {
        if (name.Name() != "name") {
            name.FailUnknown();
        }
        names.push_back(LmbcsFromUtf8(PlainText(name)));
    }
    return {"$UpdatedBy", TYPE_TEXT_LIST, ITEM_SUMMARY | ITEM_NAMES, TextList(element, names)};
}

Item ReadRevisions(const DxlElement& element) {
    return {"$Revisions", TYPE_TIME_RANGE, ITEM_SUMMARY, ReadTimeList(element).bytes};
}

// ---- Notes

/** What a note says of itself; what it leaves out is made up later. */
struct Note {
    NoteHead head;
    std::vector<Item> items;
    bool hasUnid = false;
};

void ReadNoteInfo(const DxlElement& element, Note& note) {
    NoteHead& head = note.head;
    DxlAttributes attributes(element);
    if (const auto id = attributes.TakeNumber("noteid", 16, maxNoteId)) {
        if (*id == 0) {
            element.Fail("the attribute 'noteid' cannot be '0'");
        }
        head.id = *id;
    }
    if (const auto text = attributes.Take("unid")) {
        const auto unid = ParseUnid(*text);
        if (!unid) {
            element.Fail("the attribute 'unid' cannot be '" + *text + "'");
        }
        head.oid.File = unid->File;
        head.oid.Note = unid->Note;
        note.hasUnid = true;
    }
    head.oid.Sequence = attributes.TakeNumber("sequence", 10, maxWord).value_or(1);
    head.oid.Sequence |= attributes.TakeNumber("krx:sequenceflags", 16, maxWord).value_or(0) << 16;
    attributes.Finish();

    std::optional<TIMEDATE> modified, revised;
    for (const DxlElement& child : element.Children()) {
        const std::string name = child.Name();
        const TIMEDATE time = ReadNoteTime(child);
        if (name == "modified" && !modified) {
            modified = time;
        } else if (name == "revised" && !revised) {
            revised = time;
        } else if (name != "created" && name != "lastaccessed" && name != "addedtofile") {
            child.FailUnknown();
        }
    }
    head.oid.SequenceTime = revised.value_or(modified.value_or(undated));
    head.modified = modified.value_or(head.oid.SequenceTime);
}

WORD ReadClass(const DxlElement& element, DxlAttributes& attributes) {
    WORD noteClass = 0;
    if (const auto bits = attributes.TakeNumber("krx:class", 16, maxWord)) {
        noteClass = static_cast<WORD>(*bits);
    } else {
        const std::string name = attributes.Require("class");
        const auto* found = std::ranges::find(dxl::classNames, name, &dxl::ClassName::name);
        if (found == std::end(dxl::classNames)) {
            element.Fail("the class '" + name + "' is not known");
        }
        noteClass = found->noteClass;
    }
    if (attributes.TakeBoolean("default").value_or(false)) {
        noteClass |= NOTE_CLASS_DEFAULT;
    }
    if (attributes.TakeBoolean("private").value_or(false)) {
        noteClass |= NOTE_CLASS_PRIVATE;
    }
    return noteClass;
}

/** The items that stand in attributes of <document>. */
void ReadDocumentAttributes(const DxlElement& element, DxlAttributes& attributes, std::vector<Item>& items) {
    if (const auto form = attributes.Take("form")) {
        items.push_back({"Form", TYPE_TEXT, ITEM_SUMMARY, LmbcsFromUtf8(*form)});
    }
    const auto parent = attributes.Take("parent");
    if (attributes.TakeBoolean("response").value_or(parent.has_value()) != parent.has_value()) {
        element.Fail("the attributes 'response' and 'parent' contradict each other");
    }
    if (parent) {
        const auto unid = ParseUnid(*parent);
        if (!unid) {
            element.Fail("the attribute 'parent' cannot be '" + *parent + "'");
        }
        std::string reference;
        Put(reference, WORD{1});
        Put(reference, *unid);
        items.push_back({"$REF", TYPE_NOTEREF_LIST, ITEM_SUMMARY, reference});
    }
    if (attributes.TakeBoolean("conflict").value_or(false)) {
        items.push_back({"$Conflict", TYPE_TEXT, ITEM_SUMMARY, {}});
    }
    if (attributes.TakeBoolean("truncated").value_or(false)) {
        element.Fail("a truncated document is not taken");
    }
    for (const Item& item : items) {
        CheckSizes(element, item);
    }
}

Note ReadNote(const DxlElement& element) {
    const std::string kind = element.Name();
    Note note;
    note.head.oid.Sequence = 1;
    note.head.oid.SequenceTime = undated;
    note.head.modified = undated;
    const bool stub = kind == "krx:stub";
    note.head.soft = kind == "krx:deleted";
    note.head.deleted = stub || note.head.soft;
    DxlAttributes attributes(element);
    if (kind == "document") {
        ReadDocumentAttributes(element, attributes, note.items);
    } else if (kind == "note" || note.head.deleted) {
        note.head.noteClass = ReadClass(element, attributes);
    } else {
        element.FailUnknown();
    }
    attributes.Finish();

    bool hasInfo = false;
    for (const DxlElement& child : element.Children()) {
        const std::string name = child.Name();
        if (name == "noteinfo" && !hasInfo) {
            ReadNoteInfo(child, note);
            hasInfo = true;
        } else if (name == "item" && !stub) {
            note.items.push_back(ReadItem(child));
        } else if (name == "updatedby" && !stub) {
            note.items.push_back(ReadUpdatedBy(child));
        } else if (name == "revisions" && !stub) {
            note.items.push_back(ReadRevisions(child));
        } else {
            child.FailUnknown();
        }
    }
    return note;
}

// ---- The database

/** Adds to a list in which nothing stands twice; `known` holds what is in it. */
void AddOnce(const DxlElement& element, const std::string& text, std::set<std::string>& known) {
    if (!known.insert(text).second) {
        element.Fail("'" + text + "' stands twice");
    }
}

template<size_t N>
std::map<std::string, std::string> ReadAclAttributes(const DxlElement& element, DxlAttributes& attributes,
                                                     const dxl::AclAttribute (&known)[N]) {
    std::map<std::string, std::string> values;
    for (const auto& [name, kind] : known) {
        const auto value = attributes.Take(name);
        if (!value) {
            continue;
        }
        if (!dxl::IsAclValue(kind, *value)) {
            element.Fail("the attribute '" + std::string(name) + "' cannot be '" + *value + "'");
        }
        values[std::string(name)] = *value;
    }
    attributes.Finish();
    return values;
}

AclEntry ReadAclEntry(const DxlElement& element, const std::set<std::string>& roles) {
    DxlAttributes attributes(element);
    AclEntry entry;
    entry.name = attributes.Require("name");
    entry.attributes = ReadAclAttributes(element, attributes, dxl::aclEntryAttributes);
    if (!entry.attributes.contains("level")) {
        element.Fail("the attribute 'level' is missing");
    }
    std::set<std::string> known;
    for (const DxlElement& child : element.Children()) {
        if (child.Name() != "role") {
            child.FailUnknown();
        }
        entry.roles.push_back(PlainText(child));
        AddOnce(child, entry.roles.back(), known);
        if (!roles.contains(entry.roles.back())) {
            child.Fail("the list has no role '" + entry.roles.back() + "'");
        }
    }
    return entry;
}

Acl ReadAcl(const DxlElement& element) {
    DxlAttributes attributes(element);
    Acl acl;
    acl.attributes = ReadAclAttributes(element, attributes, dxl::aclAttributes);
    std::set<std::string> roles, names;
    for (const DxlElement& child : element.Children()) {
        const std::string kind = child.Name();
        if (kind == "role" && acl.entries.empty()) {
            acl.roles.push_back(PlainText(child));
            AddOnce(child, acl.roles.back(), roles);
        } else if (kind == "aclentry") {
            acl.entries.push_back(ReadAclEntry(child, roles));
            AddOnce(child, acl.entries.back().name, names);
        } else if (kind == "logentry") {
            acl.log.push_back(PlainText(child));
        } else {
            child.FailUnknown();
        }
    }
    return acl;
}

/** For a file that states none: a hash of it, so that two imports of a file are replicas. */
TIMEDATE ReplicaIdOfText(std::string_view text) {
    Hash hash;
    hash.Add(text);
    return TIMEDATE{{static_cast<DWORD>(hash.Value()), static_cast<DWORD>(hash.Value() >> 32)}};
}

/** Everything in front of the notes. */
struct Head {
    DBREPLICAINFO replicaInfo{};
    bool hasReplicaId = false;
    std::map<std::string, std::string> properties;
};

void SetReplicaId(const DxlElement& element, const std::string& text, Head& head) {
    const auto id = ParseId(text);
    if (!id) {
        element.Fail("the attribute 'replicaid' cannot be '" + text + "'");
    }
    if (head.hasReplicaId && !(head.replicaInfo.ID == *id)) {
        element.Fail("the attribute 'replicaid' is another one than that of <database>");
    }
    head.replicaInfo.ID = *id;
    head.hasReplicaId = true;
}

Head ReadDatabase(const DxlElement& element) {
    if (element.Name() != "database") {
        element.Fail("the root is not <database> of the namespace " + std::string(dxl::namespaceUri));
    }
    Head head;
    DxlAttributes attributes(element);
    if (const auto id = attributes.Take("replicaid")) {
        SetReplicaId(element, *id, head);
    }
    head.replicaInfo.Flags = static_cast<WORD>(attributes.TakeNumber("krx:replicationflags", 16, maxWord).value_or(0));
    head.replicaInfo.CutoffInterval =
        static_cast<WORD>(attributes.TakeNumber("krx:cutoffinterval", 10, maxWord).value_or(0));
    if (const auto text = attributes.Take("krx:cutoff")) {
        const auto cutoff = ParseId(*text);
        if (!cutoff) {
            element.Fail("the attribute 'krx:cutoff' cannot be '" + *text + "'");
        }
        head.replicaInfo.Cutoff = *cutoff;
    }
    if (auto title = attributes.Take("title")) {
        head.properties[property::title] = *std::move(title);
    }
    (void)attributes.Take("path");
    for (const auto& [name, value, written] : attributes.Left()) {
        if (name != written) {
            attributes.Finish(); // of another namespace
        }
        head.properties[property::attributePrefix + name] = value;
    }
    return head;
}

/** Its children are dates, its other attributes sizes and counts of the file that was exported. */
void ReadDatabaseInfo(const DxlElement& element, Head& head) {
    DxlAttributes attributes(element);
    if (const auto id = attributes.Take("replicaid")) {
        SetReplicaId(element, *id, head);
    }
    for (const std::string_view name : {"dbid", "odsversion", "diskspace", "percentused", "numberofdocuments"}) {
        (void)attributes.Take(name);
    }
    attributes.Finish();
    for (const DxlElement& child : element.Children()) {
        const std::string name = child.Name();
        if (name != "datamodified" && name != "designmodified" && name != "created" && name != "modified") {
            child.FailUnknown();
        }
        (void)ReadNoteTime(child);
    }
}

class Importer {
public:
    explicit Importer(const std::filesystem::path& dxlFile) : source_(dxlFile), root_(source_) {}

    void Run(const std::filesystem::path& file) {
        const std::span<const DxlSource::Piece> notes = ReadHead();
        store_ = Store::Create(file, head_.replicaInfo);
        for (const auto& [name, value] : head_.properties) {
            store_->SetProperty(name, value);
        }
        InsertNotes(notes);
        store_->Close();
    }

private:
    /** Returns the pieces behind it. */
    std::span<const DxlSource::Piece> ReadHead() {
        head_ = ReadDatabase(root_.Element());
        head_.properties[property::acl] = EncodeAcl(DefaultAcl());
        std::span<const DxlSource::Piece> pieces = source_.Pieces();
        bool hasInfo = false, hasAcl = false;
        for (; !pieces.empty(); pieces = pieces.subspan(1)) {
            const DxlTree tree(source_, pieces.front(), root_);
            const std::string name = tree.Element().Name();
            if (name == "databaseinfo" && !hasInfo && !hasAcl) {
                ReadDatabaseInfo(tree.Element(), head_);
                hasInfo = true;
            } else if (name == "acl" && !hasAcl) {
                head_.properties[property::acl] = EncodeAcl(ReadAcl(tree.Element()));
                hasAcl = true;
            } else {
                break;
            }
        }
        if (!head_.hasReplicaId) {
            head_.replicaInfo.ID = ReplicaIdOfText(source_.Text());
        }
        return pieces;
    }

    void InsertNotes(std::span<const DxlSource::Piece> pieces) {
        std::vector<DxlSource::Piece> withoutId;
        for (const DxlSource::Piece piece : pieces) {
            const DxlTree tree(source_, piece, root_);
            Note note = ReadNote(tree.Element());
            if (note.head.id == 0) {
                withoutId.push_back(piece);
            } else {
                Insert(tree.Element(), std::move(note));
            }
        }
        for (const DxlSource::Piece piece : withoutId) {
            const DxlTree tree(source_, piece, root_);
            Insert(tree.Element(), ReadNote(tree.Element()));
        }
    }

    void Insert(const DxlElement& element, Note note) {
        NoteHead& head = note.head;
        if (!note.hasUnid) {
            MakeUnid(head.oid);
        }
        if (NoteHead other; head.id != 0 && store_->ReadHead(head.id, other)) {
            element.Fail("another note of the file has this note ID");
        }
        if (store_->FindUnid(UnidOf(head.oid)) != 0) {
            element.Fail("another note of the file has the UNID " + UnidText(UnidOf(head.oid)));
        }
        if (head.id == 0 && store_->NextId() > maxNoteId) {
            element.Fail("no note ID is left");
        }
        if (IsGeneratedUnid(UnidOf(head.oid), head_.replicaInfo.ID)) {
            store_->SkipSerials(head.oid.File.Innards[0]);
        }
        store_->Insert(head, EncodeItems(note.items));
    }

    void MakeUnid(OID& oid) {
        oid.Note = undated;
        do {
            oid.File = GeneratedUnidFile(head_.replicaInfo.ID, store_->TakeSerial());
        } while (store_->FindUnid(UnidOf(oid)) != 0);
    }

    DxlSource source_;
    DxlTree root_;
    Head head_;
    std::unique_ptr<Store> store_;
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

} // namespace

void ImportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile, bool replaceExisting) {
    if (!replaceExisting) {
        ExpectFree(databaseFile);
    }
    if (std::error_code ignored; std::filesystem::equivalent(databaseFile, dxlFile, ignored)) {
        throw StatusError(EMB_ERR_ARGUMENT,
                          PathForCaller(dxlFile) + ": the database would take the place of its own DXL");
    }
    const auto lock = LockExisting(databaseFile);
    ReplacementFile replacement(databaseFile);
    Importer(dxlFile).Run(replacement.Path());
    if (!replaceExisting) {
        ExpectFree(databaseFile);
    }
    SettleJournal(databaseFile);
    replacement.Commit();
}

} // namespace embedded
