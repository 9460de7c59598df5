// One database file: an SQLite file of notes, objects and properties. The store knows rows; what a note means is above
// it.
//
// All writes of one store stand in one open transaction, which Commit() or Close() ends (and the store itself now
// and then, to bound the journal). A process that dies leaves the last committed state, which the next writing
// store restores; a closed database has no other file beside it.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/values/item_codec.h"
#include "engine/values/unid.h"

struct sqlite3;
struct sqlite3_stmt;

namespace embedded {

/** Everything about a stored note but its items. A deletion stub has no items. */
struct NoteHead {
    NOTEID id = 0;
    OID oid{};
    WORD noteClass = NOTE_CLASS_DOCUMENT;
    TIMEDATE modified{};
    bool deleted = false;
    bool soft = false; // deleted, but its items are kept for a while
};

enum class StoreAccess { readOnly, readWrite };

/** Properties of a database that are not notes; names and values as UTF-8 or as bytes, see properties below. */
namespace property {
constexpr const char* title = "title";                // UTF-8
constexpr const char* replicaInfo = "replicainfo";    // DBREPLICAINFO
constexpr const char* acl = "acl";                    // EncodeAcl() of acl.h
constexpr const char* attributePrefix = "attribute:"; // further attributes of DXL's <database>, UTF-8
// What else stands in <database>, as XML for DXL's export
constexpr const char* foreignAttributes = "foreignattributes"; // its attributes of other namespaces
constexpr const char* aclElement = "aclelement";               // <acl>, behind the hash of the acl that it stands for
constexpr const char* partPrefix = "part:";                    // elements that are no notes, behind their place
} // namespace property

/** The places of parts, the first byte of each. */
constexpr char partBeforeAcl = '1';
constexpr char partBehindAcl = '2';
constexpr char partBehindNotes = '3';

/** Which notes a scan visits, and what it reads of them. */
struct ScanFilter {
    WORD classes = 0xFFFF;       // notes of these
    NOTEID before = 0xFFFFFFFFu; // with IDs below this one
    bool withItems = true;       // without, the visitor gets no items, and they are not read
};

class Store {
public:
    /** Makes an empty database. Throws ERR_EXISTS when the file exists. */
    static std::unique_ptr<Store> Create(const std::filesystem::path& file, const DBREPLICAINFO& replicaInfo);
    /** A file of an older format is read as it is, and upgraded to be written: with the first commit, or it stays as it
     *  was. (After a rollback of that the store is of no further use.) Throws ERR_NOEXIST, ERR_NOT_NSF, EMB_ERR_NEWER,
     *  EMB_ERR_DAMAGED, EMB_ERR_RECOVERY (read only, and a writer died). */
    static std::unique_ptr<Store> Open(const std::filesystem::path& file, StoreAccess access);

    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    /** Commits what it can; use Close() to learn of a failure. */
    ~Store();

    /** Commits and closes; throws when that failed, and is closed all the same. */
    void Close();
    void Commit();
    /** Takes back what has been written since the last commit. */
    void Rollback() noexcept;

    // ---- Notes. All throw EMB_ERR_DISK, EMB_ERR_BUSY, EMB_ERR_DAMAGED or EMB_ERR_READ_ONLY.

    /** False when there is no such note. Stubs are found too. */
    bool ReadHead(NOTEID id, NoteHead& head);
    /** Reads the head and the encoded items. */
    bool Read(NOTEID id, NoteHead& head, std::string& items);
    /** The note or stub that has this UNID, or 0. */
    NOTEID FindUnid(const UNID& unid);
    /** Above the ID of every note. */
    [[nodiscard]] NOTEID NextId() const noexcept { return nextId_; }
    /** A number that this database gives out once, for GeneratedUnidFile(). */
    uint32_t TakeSerial();
    /** Keeps numbers up to this one from being given out. */
    void SkipSerials(uint32_t last) noexcept { nextSerial_ = std::max(nextSerial_, last + 1); }
    [[nodiscard]] uint32_t LastSerial() const noexcept { return nextSerial_ - 1; }
    /** Adds the note under head.id, or under the next free ID when that is 0; returns the ID. */
    NOTEID Insert(const NoteHead& head, std::string_view items);
    /** Without `unidChanged` the stored UNID stays, and its index need not be written. */
    void Replace(const NoteHead& head, std::string_view items, bool unidChanged);
    void Remove(NOTEID id);

    // ---- Objects: values that are too long for an item. Nothing but these two operations reads their bytes.
    //
    // A note owns the objects that its items refer to. Put them first, under the ID that the note has or is going to
    // have (NextId()), then store the note with the references that putting gave: Insert and Replace keep the objects
    // that the items refer to and delete the note's others, Remove deletes them all. Items that refer to an object
    // which the note does not own are ERR_CONFLICT, and nothing is changed: somebody else has saved the note without
    // it. An object and its note are stored by the same commit.

    /** Takes the next bytes of an object, however many. */
    using ObjectSink = std::function<void(std::string_view bytes)>;
    /** Puts the bytes that `write` gives to its sink, a piece at a time. At most one part of them is in memory.
     *  `write` must not put another object; what it throws leaves an object that goes with the note's next change. */
    ObjectRef PutObject(NOTEID note, const std::function<void(const ObjectSink& sink)>& write);
    /** Gives the object's bytes to the sink in pieces of at most 64 KiB, none for an empty object. The sink must not
     *  read another object of this store. Throws EMB_ERR_DAMAGED when the object is not there whole, at the end. */
    void ReadObject(const ObjectRef& object, const ObjectSink& sink);
    /** The items with a copy of each of their objects, which stand in `from`, put for the note in this store. */
    std::string CopyObjects(Store& from, std::string_view items, NOTEID note);

    /** A note seen during a scan; `items` is valid until the visitor returns. */
    using Visitor = std::function<void(const NoteHead& head, std::string_view items)>;
    /** Visits up to `limit` notes (stubs included) with IDs above `after`, in ID order; returns the last ID
     *  visited, or 0 when there was none. The visitor may read objects of this store, and use it for nothing else. */
    NOTEID Scan(NOTEID after, size_t limit, const Visitor& visitor, const ScanFilter& filter = {});

    /** Visits notes in the order of their UNIDs' bytes, beginning behind `after` (null: with the first), until there is
     *  no further one or the visitor gives false. The file is locked for reading meanwhile. */
    void ScanUnids(const UNID* after, const std::function<bool(const NoteHead& head, std::string_view items)>& visitor);

    // ---- Properties

    std::string GetProperty(const std::string& name);
    void SetProperty(const std::string& name, std::string_view value);
    DBREPLICAINFO ReplicaInfo();
    void SetReplicaInfo(const DBREPLICAINFO& info);
    std::map<std::string, std::string> Properties();

    [[nodiscard]] bool ReadOnly() const noexcept { return access_ == StoreAccess::readOnly; }
    /** Grows with every change to a note; a scan in progress sees from it that rows may have changed. */
    [[nodiscard]] uint64_t Changes() const noexcept { return changes_; }

private:
    struct Statements;

    Store(sqlite3* database, std::filesystem::path file, StoreAccess access);
    void Prepare(int format);
    void PutPart(uint32_t object, int part, NOTEID note, std::string_view bytes);
    /** Deletes the note's objects that the items do not refer to. */
    void KeepObjects(NOTEID note, std::string_view items);
    void Begin();
    void RequireTransaction() const;
    void Changed(size_t bytes);
    /** Runs a statement that gives no row. */
    void Run(sqlite3_stmt* statement);
    /** True when the statement has a (further) row. */
    bool Fetch(sqlite3_stmt* statement);
    void WriteProperty(const std::string& name, std::string_view value);
    uint32_t Counter(const char* name);
    void SetCounter(const char* name, uint32_t value);

    sqlite3* database_;
    std::filesystem::path file_;
    StoreAccess access_;
    std::unique_ptr<Statements> statements_;
    bool pending_ = false;
    bool hasObjects_ = false; // as of the transaction: databases without objects skip the search for a note's
    size_t pendingBytes_ = 0;
    uint64_t changes_ = 0;
    NOTEID nextId_ = 0;
    uint32_t nextSerial_ = 0;
};

} // namespace embedded
