// The database file's tables:
//
//   note      one row a note or deletion stub: identifiers, class, times, and all items in one field
//   object    values that are too long for an item, in parts: the object, the part's number, the note that owns it
//   property  title, replica information, access control list, counters
//
// A note is one row, so that saving it is one write and reading it one read; the UNID has an index of its own.
#include "engine/store/store.h"

#include <sqlite3.h>

#include <exception>
#include <system_error>

#include "engine/store/sqlite_file.h"
#include "engine/store/store_format.h"
#include "engine/system/caller_system.h"
#include "engine/values/bytes.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

// One commit costs a flush to disk, one long transaction a long journal: this bounds the journal.
constexpr size_t pendingLimit = size_t{64} << 20;
constexpr NOTEID firstNoteId = 0x8F6;
constexpr NOTEID noteIdStep = 4;
// The store's own properties, kept out of Properties().
constexpr std::string_view counterPrefix = "counter:";
constexpr const char* nextIdProperty = "counter:noteid";
constexpr const char* nextSerialProperty = "counter:serial";

constexpr size_t objectPartSize = size_t{64} << 10;

std::string_view BlobOf(sqlite3_stmt* row, int column) {
    const void* bytes = sqlite3_column_blob(row, column);
    return {static_cast<const char*>(bytes), static_cast<size_t>(sqlite3_column_bytes(row, column))};
}

template<typename T>
void CopyBlob(sqlite3_stmt* row, int column, T& value) {
    const std::string_view blob = BlobOf(row, column);
    if (blob.size() != sizeof(T)) {
        throw StatusError(EMB_ERR_DAMAGED, "a note's row is damaged");
    }
    value = ValueAt<T>(blob.data());
}

constexpr int itemsColumn = 7;   // behind those of the head
constexpr int softlyDeleted = 2; // in the column "deleted", beside 0 and 1

void ReadHeadColumns(sqlite3_stmt* row, NoteHead& head) {
    UNID unid;
    head.id = static_cast<NOTEID>(sqlite3_column_int64(row, 0));
    head.noteClass = static_cast<WORD>(sqlite3_column_int(row, 1));
    CopyBlob(row, 2, unid);
    head.oid.File = unid.File;
    head.oid.Note = unid.Note;
    head.oid.Sequence = static_cast<DWORD>(sqlite3_column_int64(row, 3));
    CopyBlob(row, 4, head.oid.SequenceTime);
    CopyBlob(row, 5, head.modified);
    const int deleted = sqlite3_column_int(row, 6);
    head.deleted = deleted != 0;
    head.soft = deleted == softlyDeleted;
}

/** Puts a prepared statement back to its start however its use ends. */
class StatementUse {
public:
    explicit StatementUse(sqlite3_stmt* statement) : statement_(statement) {}
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;
    ~StatementUse() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }

private:
    sqlite3_stmt* statement_;
};

bool IsRegularFile(const std::filesystem::path& file) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(file, ignored);
}

} // namespace

struct Store::Statements {
    sqlite3_stmt* readHead = nullptr;
    sqlite3_stmt* read = nullptr;
    sqlite3_stmt* scanUnids = nullptr;
    sqlite3_stmt* findUnid = nullptr;
    sqlite3_stmt* insert = nullptr;
    sqlite3_stmt* replace = nullptr;
    sqlite3_stmt* replaceUnid = nullptr;
    sqlite3_stmt* remove = nullptr;
    sqlite3_stmt* scan = nullptr;
    sqlite3_stmt* getProperty = nullptr;
    sqlite3_stmt* setProperty = nullptr;
    // Only a file of an old format that is read as it is has none of these.
    sqlite3_stmt* putPart = nullptr;
    sqlite3_stmt* readObject = nullptr;
    sqlite3_stmt* objectsOfNote = nullptr;
    sqlite3_stmt* removeObject = nullptr;
    sqlite3_stmt* anyObject = nullptr;

    ~Statements() {
        for (sqlite3_stmt* statement :
             {readHead, read, scanUnids, findUnid, insert, replace, replaceUnid, remove, scan, getProperty, setProperty,
              putPart, readObject, objectsOfNote, removeObject, anyObject}) {
            sqlite3_finalize(statement);
        }
    }
};

Store::Store(sqlite3* database, std::filesystem::path file, StoreAccess access)
    : database_(database), file_(std::move(file)), access_(access), statements_(std::make_unique<Statements>()) {}

std::unique_ptr<Store> Store::Create(const std::filesystem::path& file, const DBREPLICAINFO& replicaInfo) {
    if (std::error_code ignored; std::filesystem::exists(std::filesystem::symlink_status(file, ignored))) {
        throw StatusError(ERR_EXISTS, PathForCaller(file) + ": the file exists");
    }
    sqlite3* database = OpenFile(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    std::unique_ptr<Store> store(new Store(database, file, StoreAccess::readWrite));
    PrepareWriting(database, file);
    store->Begin();
    MakeTables(database, file);
    store->nextId_ = firstNoteId;
    store->nextSerial_ = 1;
    store->Prepare(currentFormat);
    store->SetReplicaInfo(replicaInfo);
    return store;
}

std::unique_ptr<Store> Store::Open(const std::filesystem::path& file, StoreAccess access) {
    if (!IsRegularFile(file)) {
        throw StatusError(ERR_NOEXIST, PathForCaller(file) + ": no such file");
    }
    const bool readOnly = access == StoreAccess::readOnly;
    sqlite3* database = OpenFile(file, readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE);
    std::unique_ptr<Store> store(new Store(database, file, access));
    try {
        int format = FormatOf(database, file);
        if (!readOnly) {
            PrepareWriting(database, file);
        }
        if (!readOnly && format != currentFormat) {
            store->Begin();
            UpgradeTables(database, file);
            format = currentFormat;
        }
        store->Prepare(format);
        store->nextId_ = store->Counter(nextIdProperty);
        store->nextSerial_ = store->Counter(nextSerialProperty);
    } catch (...) {
        store->Rollback();
        throw;
    }
    return store;
}

void Store::Prepare(int format) {
    const auto prepare = [&](sqlite3_stmt*& statement, const std::string& sql) {
        if (sqlite3_prepare_v3(database_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
            SQLITE_OK) {
            Fail(database_, file_);
        }
    };
    const std::string headColumns = "id, class, unid, sequence, sequencetime, modified, deleted";
    const std::string columns = headColumns + ", items"; // in the order of the table
    prepare(statements_->readHead, "SELECT " + headColumns + " FROM note WHERE id=?1");
    prepare(statements_->read, "SELECT " + columns + " FROM note WHERE id=?1");
    prepare(statements_->scanUnids, "SELECT " + columns + " FROM note WHERE unid>?1 ORDER BY unid");
    prepare(statements_->findUnid, "SELECT id FROM note WHERE unid=?1");
    prepare(statements_->insert, "INSERT INTO note (" + columns + ") VALUES (?1,?2,?3,?4,?5,?6,?7,?8)");
    prepare(statements_->replace, "UPDATE note SET class=?2, sequence=?4, sequencetime=?5, modified=?6, deleted=?7, "
                                  "items=?8 WHERE id=?1");
    prepare(statements_->replaceUnid, "UPDATE note SET class=?2, unid=?3, sequence=?4, sequencetime=?5, modified=?6, "
                                      "deleted=?7, items=?8 WHERE id=?1");
    prepare(statements_->remove, "DELETE FROM note WHERE id=?1");
    prepare(statements_->scan, "SELECT " + headColumns +
                                   ", iif(?5, items, x'') FROM note WHERE id>?1 AND id<?4 AND (class & ?3)<>0 "
                                   "ORDER BY id LIMIT ?2");
    prepare(statements_->getProperty, "SELECT value FROM property WHERE name=?1");
    prepare(statements_->setProperty, "INSERT OR REPLACE INTO property (name, value) VALUES (?1,?2)");
    if (format >= objectsFormat) {
        prepare(statements_->putPart, "INSERT INTO object (id, part, note, bytes) VALUES (?1,?2,?3,?4)");
        prepare(statements_->readObject, "SELECT bytes FROM object WHERE id=?1 ORDER BY part");
        prepare(statements_->objectsOfNote, "SELECT DISTINCT id FROM object WHERE note=?1");
        prepare(statements_->removeObject, "DELETE FROM object WHERE id=?1");
        prepare(statements_->anyObject, "SELECT 1 FROM object LIMIT 1");
    }
}

Store::~Store() {
    try {
        Close();
    } catch (const std::exception&) {
        // The owner had the chance to call Close() and learn of it; the file keeps its last committed state.
    }
}

void Store::Close() {
    if (!database_) {
        return;
    }
    std::exception_ptr failure;
    try {
        Commit();
    } catch (...) {
        failure = std::current_exception();
    }
    statements_.reset();
    sqlite3_close(database_);
    database_ = nullptr;
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void Store::RequireTransaction() const {
    // After some failures SQLite takes a whole transaction back by itself. Writes that were answered with success
    // are gone then, and everybody who still counts on them must hear of it.
    if (sqlite3_get_autocommit(database_)) {
        throw StatusError(EMB_ERR_DISK, PathForCaller(file_) + ": earlier writes were lost when the disk failed");
    }
}

void Store::Begin() {
    if (pending_) {
        return RequireTransaction();
    }
    if (ReadOnly()) {
        throw StatusError(EMB_ERR_READ_ONLY, PathForCaller(file_) + ": opened for reading only");
    }
    // IMMEDIATE: a second writer is turned away here, before it has done anything.
    Execute(database_, file_, "BEGIN IMMEDIATE");
    pending_ = true;
    if (statements_->anyObject) { // not in a database that is just being made
        const StatementUse use(statements_->anyObject);
        hasObjects_ = Fetch(statements_->anyObject);
    }
}

void Store::Commit() {
    if (!pending_) {
        return;
    }
    try {
        RequireTransaction();
        SetCounter(nextIdProperty, nextId_);
        SetCounter(nextSerialProperty, nextSerial_);
        Execute(database_, file_, "COMMIT");
    } catch (...) {
        Rollback();
        throw;
    }
    pending_ = false;
    pendingBytes_ = 0;
}

void Store::Rollback() noexcept {
    sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr); // fails only when there is nothing to take back
    // After a failed write the journal is played back by the next one who reads, which had better not be a session that
    // may only read. A disk that is still failing leaves it to a later one.
    sqlite3_exec(database_, "SELECT count(*) FROM sqlite_schema", nullptr, nullptr, nullptr);
    pending_ = false;
    pendingBytes_ = 0;
    ++changes_;
}

void Store::Changed(size_t bytes) {
    ++changes_;
    pendingBytes_ += bytes;
    if (pendingBytes_ > pendingLimit) {
        Commit();
    }
}

void Store::Run(sqlite3_stmt* statement) {
    if (sqlite3_step(statement) != SQLITE_DONE) {
        Fail(database_, file_);
    }
}

bool Store::Fetch(sqlite3_stmt* statement) {
    const int code = sqlite3_step(statement);
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
        Fail(database_, file_);
    }
    return code == SQLITE_ROW;
}

bool Store::ReadHead(NOTEID id, NoteHead& head) {
    const StatementUse use(statements_->readHead);
    sqlite3_bind_int64(statements_->readHead, 1, id);
    if (!Fetch(statements_->readHead)) {
        return false;
    }
    ReadHeadColumns(statements_->readHead, head);
    return true;
}

bool Store::Read(NOTEID id, NoteHead& head, std::string& items) {
    const StatementUse use(statements_->read);
    sqlite3_bind_int64(statements_->read, 1, id);
    if (!Fetch(statements_->read)) {
        return false;
    }
    ReadHeadColumns(statements_->read, head);
    items = BlobOf(statements_->read, itemsColumn);
    return true;
}

void Store::ScanUnids(const UNID* after,
                      const std::function<bool(const NoteHead& head, std::string_view items)>& visitor) {
    sqlite3_stmt* statement = statements_->scanUnids;
    const StatementUse use(statement);
    // An empty value comes before all UNIDs. Its address matters: none would be NULL, behind which nothing comes.
    sqlite3_bind_blob(statement, 1, after ? static_cast<const void*>(after) : "", after ? sizeof *after : 0,
                      SQLITE_STATIC);
    NoteHead head;
    do {
        if (!Fetch(statement)) {
            return;
        }
        ReadHeadColumns(statement, head);
    } while (visitor(head, BlobOf(statement, itemsColumn)));
}

NOTEID Store::FindUnid(const UNID& unid) {
    const StatementUse use(statements_->findUnid);
    sqlite3_bind_blob(statements_->findUnid, 1, &unid, sizeof unid, SQLITE_STATIC);
    return Fetch(statements_->findUnid) ? static_cast<NOTEID>(sqlite3_column_int64(statements_->findUnid, 0)) : 0;
}

uint32_t Store::TakeSerial() {
    return nextSerial_++;
}

namespace {

void BindRow(sqlite3_stmt* statement, NOTEID id, const NoteHead& head, const UNID& unid, std::string_view items) {
    sqlite3_bind_int64(statement, 1, id);
    sqlite3_bind_int(statement, 2, head.noteClass);
    sqlite3_bind_blob(statement, 3, &unid, sizeof unid, SQLITE_STATIC);
    sqlite3_bind_int64(statement, 4, head.oid.Sequence);
    sqlite3_bind_blob(statement, 5, &head.oid.SequenceTime, sizeof head.oid.SequenceTime, SQLITE_STATIC);
    sqlite3_bind_blob(statement, 6, &head.modified, sizeof head.modified, SQLITE_STATIC);
    sqlite3_bind_int(statement, 7, head.soft ? softlyDeleted : head.deleted);
    // An absent pointer would be stored as NULL, and "no items" is an empty value.
    sqlite3_bind_blob64(statement, 8, items.data() ? items.data() : "", items.size(), SQLITE_STATIC);
}

} // namespace

NOTEID Store::Insert(const NoteHead& head, std::string_view items) {
    Begin();
    const NOTEID id = head.id != 0 ? head.id : nextId_;
    const UNID unid = UnidOf(head.oid);
    KeepObjects(id, items);
    const StatementUse use(statements_->insert);
    BindRow(statements_->insert, id, head, unid, items);
    Run(statements_->insert);
    if (id >= nextId_) {
        nextId_ = id + noteIdStep;
    }
    Changed(items.size());
    return id;
}

void Store::Replace(const NoteHead& head, std::string_view items, bool unidChanged) {
    Begin();
    KeepObjects(head.id, items);
    const UNID unid = UnidOf(head.oid);
    sqlite3_stmt* statement = unidChanged ? statements_->replaceUnid : statements_->replace;
    const StatementUse use(statement);
    BindRow(statement, head.id, head, unid, items);
    Run(statement);
    Changed(items.size());
}

void Store::Remove(NOTEID id) {
    Begin();
    const StatementUse use(statements_->remove);
    sqlite3_bind_int64(statements_->remove, 1, id);
    Run(statements_->remove);
    KeepObjects(id, {});
    Changed(0);
}

void Store::PutPart(uint32_t object, int part, NOTEID note, std::string_view bytes) {
    const StatementUse use(statements_->putPart);
    sqlite3_bind_int64(statements_->putPart, 1, object);
    sqlite3_bind_int(statements_->putPart, 2, part);
    sqlite3_bind_int64(statements_->putPart, 3, note);
    sqlite3_bind_blob64(statements_->putPart, 4, bytes.data(), bytes.size(), SQLITE_STATIC);
    Run(statements_->putPart);
    hasObjects_ = true;
    pendingBytes_ += bytes.size(); // without a commit, which would store an object without its note
}

ObjectRef Store::PutObject(NOTEID note, const std::function<void(const ObjectSink& sink)>& write) {
    Begin();
    ObjectRef object{TakeSerial(), 0, 0};
    Hash hash;
    std::string part;
    int parts = 0;
    const auto flush = [&] {
        PutPart(object.id, parts++, note, part);
        part.clear();
    };
    write([&](std::string_view bytes) {
        hash.Add(bytes);
        object.size += bytes.size();
        while (!bytes.empty()) {
            const std::string_view piece = bytes.substr(0, objectPartSize - part.size());
            part += piece;
            bytes.remove_prefix(piece.size());
            if (part.size() == objectPartSize) {
                flush();
            }
        }
    });
    if (!part.empty()) {
        flush();
    }
    object.hash = hash.Value();
    return object;
}

void Store::ReadObject(const ObjectRef& object, const ObjectSink& sink) {
    uint64_t size = 0;
    if (statements_->readObject) {
        const StatementUse use(statements_->readObject);
        sqlite3_bind_int64(statements_->readObject, 1, object.id);
        while (Fetch(statements_->readObject)) {
            const std::string_view bytes = BlobOf(statements_->readObject, 0);
            size += bytes.size();
            sink(bytes);
        }
    }
    if (size != object.size) {
        throw StatusError(EMB_ERR_DAMAGED, PathForCaller(file_) + ": of the " + std::to_string(object.size) +
                                               " bytes of a large value " + std::to_string(size) + " are there");
    }
}

std::string Store::CopyObjects(Store& from, std::string_view items, NOTEID note) {
    return WithObjects(items, [&](const ObjectRef& object) {
        return PutObject(note, [&](const ObjectSink& sink) { from.ReadObject(object, sink); });
    });
}

void Store::KeepObjects(NOTEID note, std::string_view items) {
    std::vector<uint32_t> owned;
    if (hasObjects_) {
        const StatementUse use(statements_->objectsOfNote);
        sqlite3_bind_int64(statements_->objectsOfNote, 1, note);
        while (Fetch(statements_->objectsOfNote)) {
            owned.push_back(static_cast<uint32_t>(sqlite3_column_int64(statements_->objectsOfNote, 0)));
        }
    }
    const std::vector<ObjectRef> kept = ObjectsOf(items);
    for (const ObjectRef& object : kept) {
        if (object.size != 0 && std::ranges::find(owned, object.id) == owned.end()) { // an empty one has no parts
            throw StatusError(ERR_CONFLICT, PathForCaller(file_) + ": a note refers to a large value that is not its "
                                                                   "own, or is not any more");
        }
    }
    for (const uint32_t id : owned) {
        if (std::ranges::find(kept, id, &ObjectRef::id) == kept.end()) {
            const StatementUse use(statements_->removeObject);
            sqlite3_bind_int64(statements_->removeObject, 1, id);
            Run(statements_->removeObject);
        }
    }
}

NOTEID Store::Scan(NOTEID after, size_t limit, const Visitor& visitor, const ScanFilter& filter) {
    const StatementUse use(statements_->scan);
    sqlite3_bind_int64(statements_->scan, 1, after);
    sqlite3_bind_int64(statements_->scan, 2, static_cast<sqlite3_int64>(limit));
    sqlite3_bind_int(statements_->scan, 3, filter.classes);
    sqlite3_bind_int64(statements_->scan, 4, filter.before);
    sqlite3_bind_int(statements_->scan, 5, filter.withItems);
    NOTEID last = 0;
    NoteHead head;
    while (Fetch(statements_->scan)) {
        ReadHeadColumns(statements_->scan, head);
        last = head.id;
        visitor(head, BlobOf(statements_->scan, itemsColumn));
    }
    return last;
}

std::string Store::GetProperty(const std::string& name) {
    const StatementUse use(statements_->getProperty);
    sqlite3_bind_text(statements_->getProperty, 1, name.c_str(), -1, SQLITE_STATIC);
    return Fetch(statements_->getProperty) ? std::string(BlobOf(statements_->getProperty, 0)) : std::string();
}

void Store::WriteProperty(const std::string& name, std::string_view value) {
    const StatementUse use(statements_->setProperty);
    sqlite3_bind_text(statements_->setProperty, 1, name.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_blob64(statements_->setProperty, 2, value.data() ? value.data() : "", value.size(), SQLITE_STATIC);
    Run(statements_->setProperty);
}

uint32_t Store::Counter(const char* name) {
    const std::string text = GetProperty(name);
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) {
        throw StatusError(EMB_ERR_DAMAGED, PathForCaller(file_) + ": the property " + name + " is damaged");
    }
    return static_cast<uint32_t>(std::stoull(text));
}

void Store::SetCounter(const char* name, uint32_t value) {
    WriteProperty(name, std::to_string(value));
}

void Store::SetProperty(const std::string& name, std::string_view value) {
    Begin();
    WriteProperty(name, value);
}

DBREPLICAINFO Store::ReplicaInfo() {
    const std::string bytes = GetProperty(property::replicaInfo);
    if (bytes.size() != sizeof(DBREPLICAINFO)) {
        throw StatusError(EMB_ERR_DAMAGED, PathForCaller(file_) + ": the replication information is damaged");
    }
    return ValueAt<DBREPLICAINFO>(bytes.data());
}

void Store::SetReplicaInfo(const DBREPLICAINFO& info) {
    SetProperty(property::replicaInfo, {reinterpret_cast<const char*>(&info), sizeof info});
}

std::map<std::string, std::string> Store::Properties() {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database_, "SELECT name, value FROM property", -1, &statement, nullptr) != SQLITE_OK) {
        Fail(database_, file_);
    }
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owner(statement, sqlite3_finalize);
    std::map<std::string, std::string> all;
    while (Fetch(statement)) {
        const std::string name(BlobOf(statement, 0));
        if (!name.starts_with(counterPrefix)) {
            all[name] = BlobOf(statement, 1);
        }
    }
    return all;
}

} // namespace embedded
