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
const TIMEDATE undated = timedateFromHundredths(int64_t{10957} * 24 * 60 * 60 * 100);

// ---- Texts and times

std::string plainText(const DxlElement& element) {
    DxlAttributes(element).finish();
    return element.text();
}

[[noreturn]] void failText(const DxlElement& element, const std::string& what) {
    const std::string text = element.trimmedText();
    element.fail("'" + std::string(cutUtf8(text, 64)) + "' is not " + what);
}

TIMEDATE readDatetime(const DxlElement& element) {
    if (element.name() != "datetime")
        element.failUnknown();
    DxlAttributes attributes(element);
    const bool dst = attributes.takeBoolean("dst").value_or(false);
    attributes.finish();
    const auto time = timedateFromDxl(element.trimmedText(), dst);
    if (!time)
        failText(element, "a date or time");
    return *time;
}

/** A date of noteinfo. */
TIMEDATE readNoteTime(const DxlElement& element) {
    DxlAttributes(element).finish();
    const DxlElement value = element.child();
    if (value.name() != "krx:time")
        return readDatetime(value);
    DxlAttributes(value).finish();
    const auto time = parseId(value.trimmedText());
    if (!time)
        failText(value, "a time of 16 hexadecimal digits");
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
void put(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof(T));
}

Value readText(const DxlElement& element) {
    DxlAttributes(element).finish();
    return {TYPE_TEXT, lmbcsFromUtf8(element.textWithBreaks())};
}

/** A text list of entries in the Notes character set. */
std::string textList(const DxlElement& element, const std::vector<std::string>& entries) {
    size_t size = sizeof(WORD);
    for (const std::string& entry : entries)
        size += sizeof(WORD) + entry.size();
    if (size > maxItemValue)
        element.fail("the list is too long");
    return encodeTextList(std::vector<std::string_view>(entries.begin(), entries.end()));
}

Value readTextList(const DxlElement& element) {
    DxlAttributes(element).finish();
    std::vector<std::string> entries;
    for (const DxlElement& entry : element.children()) {
        if (entry.name() != "text")
            entry.failUnknown();
        entries.push_back(readText(entry).bytes);
    }
    return {TYPE_TEXT_LIST, textList(element, entries)};
}

double readDouble(const DxlElement& element) {
    if (element.name() != "number")
        element.failUnknown();
    DxlAttributes(element).finish();
    const std::string text = element.trimmedText();
    double number = 0;
    const char* start = text.data() + (text.starts_with('+') ? 1 : 0);
    const auto [end, error] = std::from_chars(start, text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        failText(element, "a number");
    return number;
}

Value readNumber(const DxlElement& element) {
    Value value{TYPE_NUMBER, {}};
    put(value.bytes, readDouble(element));
    return value;
}

/** A range's head: how many single values and how many pairs follow. */
std::string rangeOf(const DxlElement& element, size_t singles, size_t pairs, const std::string& values) {
    if (singles > maxWord || pairs > maxWord)
        element.fail("the list is too long");
    std::string out;
    put(out, static_cast<WORD>(singles));
    put(out, static_cast<WORD>(pairs));
    return out + values;
}

Value readNumberList(const DxlElement& element) {
    DxlAttributes(element).finish();
    const auto children = element.children();
    std::string numbers;
    for (const DxlElement& child : children)
        put(numbers, readDouble(child));
    return {TYPE_NUMBER_RANGE, rangeOf(element, children.size(), 0, numbers)};
}

Value readTime(const DxlElement& element) {
    Value value{TYPE_TIME, {}};
    put(value.bytes, readDatetime(element));
    return value;
}

std::string timeRange(const DxlElement& element) {
    std::string times;
    size_t singles = 0, pairs = 0;
    for (const DxlElement& child : element.children()) {
        if (child.name() != "datetimepair") {
            if (pairs > 0)
                child.fail("a single time after a pair: the platform keeps pairs last");
            put(times, readDatetime(child));
            ++singles;
            continue;
        }
        DxlAttributes(child).finish();
        const auto ends = child.children();
        if (ends.size() != 2)
            child.fail("needs two times");
        for (const DxlElement& end : ends)
            put(times, readDatetime(end));
        ++pairs;
    }
    return rangeOf(element, singles, pairs, times);
}

Value readTimeList(const DxlElement& element) {
    DxlAttributes(element).finish();
    return {TYPE_TIME_RANGE, timeRange(element)};
}

std::string readBase64(const DxlElement& element) {
    auto bytes = bytesFromBase64(element.text());
    if (!bytes)
        failText(element, "Base64");
    return *std::move(bytes);
}

Value readFormula(const DxlElement& element) {
    DxlAttributes attributes(element);
    const bool compiled = attributes.takeBoolean("compiled").value_or(false);
    attributes.finish();
    if (compiled)
        return {TYPE_FORMULA, readBase64(element)};
    auto result = compileFormula(lmbcsFromUtf8(element.text()));
    if (const auto* error = std::get_if<FormulaError>(&result))
        element.fail("the formula does not compile: " + error->message + " (line " + std::to_string(error->line) +
                     ", column " + std::to_string(error->column) + " of it)");
    return {TYPE_FORMULA, std::get<std::string>(std::move(result))};
}

Value readRaw(const DxlElement& element) {
    DxlAttributes attributes(element);
    const auto type = attributes.takeNumber("type", 16, maxWord);
    if (!type)
        element.fail("the attribute 'type' is missing");
    attributes.finish();
    return {static_cast<WORD>(*type), readBase64(element), false};
}

struct ValueForm {
    std::string_view name;
    Value (*read)(const DxlElement& element);
};
constexpr ValueForm valueForms[] = {
    {"text", readText},     {"textlist", readTextList},     {"number", readNumber},   {"numberlist", readNumberList},
    {"datetime", readTime}, {"datetimelist", readTimeList}, {"formula", readFormula}, {"rawitemdata", readRaw},
    {"itemdata", readRaw},
};

Value readValue(const DxlElement& element) {
    const std::string name = element.name();
    for (const ValueForm& form : valueForms)
        if (form.name == name)
            return form.read(element);
    element.failUnknown();
}

// ---- Items

std::string readItemName(const DxlElement& element, DxlAttributes& attributes) {
    const auto coded = attributes.take("krx:name");
    if (!coded)
        return lmbcsFromUtf8(attributes.require("name"));
    auto name = bytesFromBase64(*coded);
    if (!name)
        element.fail("the attribute 'krx:name' is not Base64");
    return *std::move(name);
}

void checkSizes(const DxlElement& element, const Item& item) {
    const size_t limit = item.flags & ITEM_SUMMARY ? maxSummaryValue : maxItemValue;
    if (item.name.size() > maxItemName)
        element.fail("the item's name is too long");
    if (item.value.size() > limit)
        element.fail("the value is longer than " + std::to_string(limit) + " bytes");
}

Item readItem(const DxlElement& element) {
    DxlAttributes attributes(element);
    Item item;
    item.name = readItemName(element, attributes);
    item.flags = static_cast<WORD>(attributes.takeNumber("krx:flags", 16, maxWord).value_or(0));
    for (const dxl::FlagName& flag : dxl::flagNames)
        if (attributes.takeBoolean(flag.name).value_or(false))
            item.flags |= flag.flag;
    const auto summary = attributes.takeBoolean("summary");
    if (attributes.takeBoolean("sealed").value_or(false))
        element.fail("an encrypted item is not taken");
    attributes.finish();

    Value value = readValue(element.child());
    item.type = value.type;
    item.value = std::move(value.bytes);
    if (summary.value_or(value.summary))
        item.flags |= ITEM_SUMMARY;
    checkSizes(element, item);
    return item;
}

Item readUpdatedBy(const DxlElement& element) {
    DxlAttributes(element).finish();
    std::vector<std::string> names;
    for (const DxlElement& name : element.children()) {
        if (name.name() != "name")
            name.failUnknown();
        names.push_back(lmbcsFromUtf8(plainText(name)));
    }
    return {"$UpdatedBy", TYPE_TEXT_LIST, ITEM_SUMMARY | ITEM_NAMES, textList(element, names)};
}

Item readRevisions(const DxlElement& element) {
    return {"$Revisions", TYPE_TIME_RANGE, ITEM_SUMMARY, readTimeList(element).bytes};
}

// ---- Notes

/** What a note says of itself; what it leaves out is made up later. */
struct Note {
    NoteHead head;
    std::vector<Item> items;
    bool hasUnid = false;
};

void readNoteInfo(const DxlElement& element, Note& note) {
    NoteHead& head = note.head;
    DxlAttributes attributes(element);
    if (const auto id = attributes.takeNumber("noteid", 16, maxNoteId)) {
        if (*id == 0)
            element.fail("the attribute 'noteid' cannot be '0'");
        head.id = *id;
    }
    if (const auto text = attributes.take("unid")) {
        const auto unid = parseUnid(*text);
        if (!unid)
            element.fail("the attribute 'unid' cannot be '" + *text + "'");
        head.oid.File = unid->File;
        head.oid.Note = unid->Note;
        note.hasUnid = true;
    }
    head.oid.Sequence = attributes.takeNumber("sequence", 10, maxWord).value_or(1);
    head.oid.Sequence |= attributes.takeNumber("krx:sequenceflags", 16, maxWord).value_or(0) << 16;
    attributes.finish();

    std::optional<TIMEDATE> modified, revised;
    for (const DxlElement& child : element.children()) {
        const std::string name = child.name();
        const TIMEDATE time = readNoteTime(child);
        if (name == "modified" && !modified)
            modified = time;
        else if (name == "revised" && !revised)
            revised = time;
        else if (name != "created" && name != "lastaccessed" && name != "addedtofile")
            child.failUnknown();
    }
    head.oid.SequenceTime = revised.value_or(modified.value_or(undated));
    head.modified = modified.value_or(head.oid.SequenceTime);
}

WORD readClass(const DxlElement& element, DxlAttributes& attributes) {
    WORD noteClass = 0;
    if (const auto bits = attributes.takeNumber("krx:class", 16, maxWord)) {
        noteClass = static_cast<WORD>(*bits);
    } else {
        const std::string name = attributes.require("class");
        const auto* found = std::ranges::find(dxl::classNames, name, &dxl::ClassName::name);
        if (found == std::end(dxl::classNames))
            element.fail("the class '" + name + "' is not known");
        noteClass = found->noteClass;
    }
    if (attributes.takeBoolean("default").value_or(false))
        noteClass |= NOTE_CLASS_DEFAULT;
    if (attributes.takeBoolean("private").value_or(false))
        noteClass |= NOTE_CLASS_PRIVATE;
    return noteClass;
}

/** The items that stand in attributes of <document>. */
void readDocumentAttributes(const DxlElement& element, DxlAttributes& attributes, std::vector<Item>& items) {
    if (const auto form = attributes.take("form"))
        items.push_back({"Form", TYPE_TEXT, ITEM_SUMMARY, lmbcsFromUtf8(*form)});
    const auto parent = attributes.take("parent");
    if (attributes.takeBoolean("response").value_or(parent.has_value()) != parent.has_value())
        element.fail("the attributes 'response' and 'parent' contradict each other");
    if (parent) {
        const auto unid = parseUnid(*parent);
        if (!unid)
            element.fail("the attribute 'parent' cannot be '" + *parent + "'");
        std::string reference;
        put(reference, WORD{1});
        put(reference, *unid);
        items.push_back({"$REF", TYPE_NOTEREF_LIST, ITEM_SUMMARY, reference});
    }
    if (attributes.takeBoolean("conflict").value_or(false))
        items.push_back({"$Conflict", TYPE_TEXT, ITEM_SUMMARY, {}});
    if (attributes.takeBoolean("truncated").value_or(false))
        element.fail("a truncated document is not taken");
    for (const Item& item : items)
        checkSizes(element, item);
}

Note readNote(const DxlElement& element) {
    const std::string kind = element.name();
    Note note;
    note.head.oid.Sequence = 1;
    note.head.oid.SequenceTime = undated;
    note.head.modified = undated;
    const bool stub = kind == "krx:stub";
    note.head.soft = kind == "krx:deleted";
    note.head.deleted = stub || note.head.soft;
    DxlAttributes attributes(element);
    if (kind == "document")
        readDocumentAttributes(element, attributes, note.items);
    else if (kind == "note" || note.head.deleted)
        note.head.noteClass = readClass(element, attributes);
    else
        element.failUnknown();
    attributes.finish();

    bool hasInfo = false;
    for (const DxlElement& child : element.children()) {
        const std::string name = child.name();
        if (name == "noteinfo" && !hasInfo) {
            readNoteInfo(child, note);
            hasInfo = true;
        } else if (name == "item" && !stub) {
            note.items.push_back(readItem(child));
        } else if (name == "updatedby" && !stub) {
            note.items.push_back(readUpdatedBy(child));
        } else if (name == "revisions" && !stub) {
            note.items.push_back(readRevisions(child));
        } else {
            child.failUnknown();
        }
    }
    return note;
}

// ---- The database

/** Adds to a list in which nothing stands twice; `known` holds what is in it. */
void addOnce(const DxlElement& element, const std::string& text, std::set<std::string>& known) {
    if (!known.insert(text).second)
        element.fail("'" + text + "' stands twice");
}

template<size_t N>
std::map<std::string, std::string> readAclAttributes(const DxlElement& element, DxlAttributes& attributes,
                                                     const dxl::AclAttribute (&known)[N]) {
    std::map<std::string, std::string> values;
    for (const auto& [name, kind] : known) {
        const auto value = attributes.take(name);
        if (!value)
            continue;
        if (!dxl::isAclValue(kind, *value))
            element.fail("the attribute '" + std::string(name) + "' cannot be '" + *value + "'");
        values[std::string(name)] = *value;
    }
    attributes.finish();
    return values;
}

AclEntry readAclEntry(const DxlElement& element, const std::set<std::string>& roles) {
    DxlAttributes attributes(element);
    AclEntry entry;
    entry.name = attributes.require("name");
    entry.attributes = readAclAttributes(element, attributes, dxl::aclEntryAttributes);
    if (!entry.attributes.contains("level"))
        element.fail("the attribute 'level' is missing");
    std::set<std::string> known;
    for (const DxlElement& child : element.children()) {
        if (child.name() != "role")
            child.failUnknown();
        entry.roles.push_back(plainText(child));
        addOnce(child, entry.roles.back(), known);
        if (!roles.contains(entry.roles.back()))
            child.fail("the list has no role '" + entry.roles.back() + "'");
    }
    return entry;
}

Acl readAcl(const DxlElement& element) {
    DxlAttributes attributes(element);
    Acl acl;
    acl.attributes = readAclAttributes(element, attributes, dxl::aclAttributes);
    std::set<std::string> roles, names;
    for (const DxlElement& child : element.children()) {
        const std::string kind = child.name();
        if (kind == "role" && acl.entries.empty()) {
            acl.roles.push_back(plainText(child));
            addOnce(child, acl.roles.back(), roles);
        } else if (kind == "aclentry") {
            acl.entries.push_back(readAclEntry(child, roles));
            addOnce(child, acl.entries.back().name, names);
        } else if (kind == "logentry") {
            acl.log.push_back(plainText(child));
        } else {
            child.failUnknown();
        }
    }
    return acl;
}

/** For a file that states none: a hash of it, so that two imports of a file are replicas. */
TIMEDATE replicaIdOfText(std::string_view text) {
    Hash hash;
    hash.add(text);
    return TIMEDATE{{static_cast<DWORD>(hash.value()), static_cast<DWORD>(hash.value() >> 32)}};
}

/** Everything in front of the notes. */
struct Head {
    DBREPLICAINFO replicaInfo{};
    bool hasReplicaId = false;
    std::map<std::string, std::string> properties;
};

void setReplicaId(const DxlElement& element, const std::string& text, Head& head) {
    const auto id = parseId(text);
    if (!id)
        element.fail("the attribute 'replicaid' cannot be '" + text + "'");
    if (head.hasReplicaId && !(head.replicaInfo.ID == *id))
        element.fail("the attribute 'replicaid' is another one than that of <database>");
    head.replicaInfo.ID = *id;
    head.hasReplicaId = true;
}

Head readDatabase(const DxlElement& element) {
    if (element.name() != "database")
        element.fail("the root is not <database> of the namespace " + std::string(dxl::namespaceUri));
    Head head;
    DxlAttributes attributes(element);
    if (const auto id = attributes.take("replicaid"))
        setReplicaId(element, *id, head);
    head.replicaInfo.Flags = static_cast<WORD>(attributes.takeNumber("krx:replicationflags", 16, maxWord).value_or(0));
    head.replicaInfo.CutoffInterval =
        static_cast<WORD>(attributes.takeNumber("krx:cutoffinterval", 10, maxWord).value_or(0));
    if (const auto text = attributes.take("krx:cutoff")) {
        const auto cutoff = parseId(*text);
        if (!cutoff)
            element.fail("the attribute 'krx:cutoff' cannot be '" + *text + "'");
        head.replicaInfo.Cutoff = *cutoff;
    }
    if (auto title = attributes.take("title"))
        head.properties[property::title] = *std::move(title);
    (void)attributes.take("path");
    for (const auto& [name, value, written] : attributes.left()) {
        if (name != written)
            attributes.finish(); // of another namespace
        head.properties[property::attributePrefix + name] = value;
    }
    return head;
}

/** Its children are dates, its other attributes sizes and counts of the file that was exported. */
void readDatabaseInfo(const DxlElement& element, Head& head) {
    DxlAttributes attributes(element);
    if (const auto id = attributes.take("replicaid"))
        setReplicaId(element, *id, head);
    for (const std::string_view name : {"dbid", "odsversion", "diskspace", "percentused", "numberofdocuments"})
        (void)attributes.take(name);
    attributes.finish();
    for (const DxlElement& child : element.children()) {
        const std::string name = child.name();
        if (name != "datamodified" && name != "designmodified" && name != "created" && name != "modified")
            child.failUnknown();
        (void)readNoteTime(child);
    }
}

class Importer {
public:
    explicit Importer(const std::filesystem::path& dxlFile) : source_(dxlFile), root_(source_) {}

    void run(const std::filesystem::path& file) {
        const std::span<const DxlSource::Piece> notes = readHead();
        store_ = Store::create(file, head_.replicaInfo);
        for (const auto& [name, value] : head_.properties)
            store_->setProperty(name, value);
        insertNotes(notes);
        store_->close();
    }

private:
    /** Returns the pieces behind it. */
    std::span<const DxlSource::Piece> readHead() {
        head_ = readDatabase(root_.element());
        head_.properties[property::acl] = encodeAcl(defaultAcl());
        std::span<const DxlSource::Piece> pieces = source_.pieces();
        bool hasInfo = false, hasAcl = false;
        for (; !pieces.empty(); pieces = pieces.subspan(1)) {
            const DxlTree tree(source_, pieces.front(), root_);
            const std::string name = tree.element().name();
            if (name == "databaseinfo" && !hasInfo && !hasAcl) {
                readDatabaseInfo(tree.element(), head_);
                hasInfo = true;
            } else if (name == "acl" && !hasAcl) {
                head_.properties[property::acl] = encodeAcl(readAcl(tree.element()));
                hasAcl = true;
            } else {
                break;
            }
        }
        if (!head_.hasReplicaId)
            head_.replicaInfo.ID = replicaIdOfText(source_.text());
        return pieces;
    }

    void insertNotes(std::span<const DxlSource::Piece> pieces) {
        std::vector<DxlSource::Piece> withoutId;
        for (const DxlSource::Piece piece : pieces) {
            const DxlTree tree(source_, piece, root_);
            Note note = readNote(tree.element());
            if (note.head.id == 0)
                withoutId.push_back(piece);
            else
                insert(tree.element(), std::move(note));
        }
        for (const DxlSource::Piece piece : withoutId) {
            const DxlTree tree(source_, piece, root_);
            insert(tree.element(), readNote(tree.element()));
        }
    }

    void insert(const DxlElement& element, Note note) {
        NoteHead& head = note.head;
        if (!note.hasUnid)
            makeUnid(head.oid);
        if (NoteHead other; head.id != 0 && store_->readHead(head.id, other))
            element.fail("another note of the file has this note ID");
        if (store_->findUnid(unidOf(head.oid)) != 0)
            element.fail("another note of the file has the UNID " + unidText(unidOf(head.oid)));
        if (head.id == 0 && store_->nextId() > maxNoteId)
            element.fail("no note ID is left");
        if (isGeneratedUnid(unidOf(head.oid), head_.replicaInfo.ID))
            store_->skipSerials(head.oid.File.Innards[0]);
        store_->insert(head, encodeItems(note.items));
    }

    void makeUnid(OID& oid) {
        oid.Note = undated;
        do
            oid.File = generatedUnidFile(head_.replicaInfo.ID, store_->takeSerial());
        while (store_->findUnid(unidOf(oid)) != 0);
    }

    DxlSource source_;
    DxlTree root_;
    Head head_;
    std::unique_ptr<Store> store_;
};

bool isThere(const std::filesystem::path& file) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(file, ignored));
}

void expectFree(const std::filesystem::path& file) {
    if (isThere(file))
        throw StatusError(ERR_EXISTS, pathForCaller(file) + ": the file exists");
}

/** Keeps everybody else from opening the database that is about to be replaced. */
std::optional<FileLock> lockExisting(const std::filesystem::path& file) {
    if (!isThere(file))
        return std::nullopt;
    auto lock = FileLock::take(file, FileLock::Kind::exclusive);
    if (!lock)
        throw StatusError(EMB_ERR_BUSY, pathForCaller(file) + ": the database is in use");
    return lock;
}

/** A journal that a dead writer left would be played back into the file that takes this name. It is played back
 *  into the old one, which is then whole should the replacement fail. */
void settleJournal(const std::filesystem::path& file) {
    if (!isThere(journalOf(file)))
        return;
    try {
        Store::open(file, StoreAccess::readWrite)->close();
    } catch (const StatusError&) {
        // No database, or none any more: then the journal is nobody's.
    }
    std::error_code ignored;
    std::filesystem::remove(journalOf(file), ignored);
}

} // namespace

void importDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile, bool replaceExisting) {
    if (!replaceExisting)
        expectFree(databaseFile);
    if (std::error_code ignored; std::filesystem::equivalent(databaseFile, dxlFile, ignored))
        throw StatusError(EMB_ERR_ARGUMENT,
                          pathForCaller(dxlFile) + ": the database would take the place of its own DXL");
    const auto lock = lockExisting(databaseFile);
    ReplacementFile replacement(databaseFile);
    Importer(dxlFile).run(replacement.path());
    if (!replaceExisting)
        expectFree(databaseFile);
    settleJournal(databaseFile);
    replacement.commit();
}

} // namespace embedded
