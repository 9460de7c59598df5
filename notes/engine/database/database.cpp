#include "engine/database/database.h"

#include <algorithm>
#include <vector>

#include "engine/formula/formula.h"
#include "engine/system/caller_system.h"
#include "engine/system/replacement_file.h"
#include "engine/values/status_error.h"
#include "engine/values/timedate.h"

namespace embedded {
namespace {

// How many notes a search looks at before it delivers: enough that reading goes on in one piece.
constexpr size_t searchChunk = 1024;

DWORD NextSequence(DWORD sequence) noexcept {
    // The low word counts, the high word holds flags.
    return (sequence & 0xFFFF0000u) | ((sequence + 1) & 0xFFFFu);
}

WORD SearchClass(WORD noteClass) noexcept {
    return noteClass & NOTE_CLASS_ALL;
}

// Servers are said to refuse a UNID that a stub keeps with either of these. Callers must know both, so both occur here.
constexpr STATUS takenOnUpdate = ERR_DUPLICATE_UNID;
constexpr STATUS takenOnCopy = ERR_NOTE_DELETED;

/** Scatters note IDs, always in the same way. */
NOTEID Scattered(NOTEID id) noexcept {
    return id / 4 * 2654435761u;
}

/** Throws for what is no live note; `read` gets the head of what there is, and says whether there is something. */
template<typename Read>
void ReadLive(NOTEID id, const NoteHead& head, Read read) {
    if (id & RRV_DELETED) {
        throw StatusError(ERR_NOTE_DELETED);
    }
    if (!read()) {
        throw StatusError(ERR_INVALID_NOTE);
    }
    if (head.deleted) {
        throw StatusError(ERR_NOTE_DELETED);
    }
}

} // namespace

std::shared_ptr<Database> Database::Open(const std::filesystem::path& file, StoreAccess access, Clock& clock,
                                         const Behaviours& behaviours) {
    auto lock = FileLock::Take(file, FileLock::Kind::shared);
    if (!lock) {
        throw StatusError(EMB_ERR_BUSY, PathForCaller(file) + ": another process is taking the database offline");
    }
    auto store = Store::Open(file, access);
    store->Commit(); // an upgrade of the file
    return std::make_shared<Database>(file, std::move(store), std::move(*lock), clock, behaviours);
}

Database::Database(const std::filesystem::path& file, std::unique_ptr<Store> store, FileLock lock, Clock& clock,
                   const Behaviours& behaviours)
    : file_(file), lock_(std::move(lock)), store_(std::move(store)), clock_(clock), behaviours_(behaviours) {}

DBREPLICAINFO Database::ReplicaInfo() {
    const DBREPLICAINFO info = store_->ReplicaInfo();
    replicaId_ = info.ID;
    return info;
}

void Database::SetReplicaInfo(const DBREPLICAINFO& info) {
    store_->SetReplicaInfo(info);
    replicaId_ = info.ID;
}

NoteHead Database::LiveHead(NOTEID id) {
    NoteHead head;
    ReadLive(id, head, [&] { return store_->ReadHead(id, head); });
    return head;
}

NOTEID Database::IdOfUnid(const UNID& unid) {
    const NOTEID id = store_->FindUnid(unid);
    if (id == 0) {
        throw StatusError(ERR_NOT_FOUND);
    }
    return id;
}

void Database::ReadNote(NOTEID id, OpenNote& note) {
    std::string items;
    ReadLive(id, note.head, [&] { return store_->Read(id, note.head, items); });
    note.storedSequence = note.head.oid.Sequence;
    note.items = Items(std::move(items));
    note.objectsIn = ObjectsOf(note.items.Encoded()).empty() ? nullptr : shared_from_this();
    note.objectsOf = id;
}

OpenNote Database::NewNote() {
    constexpr size_t usualSize = 2048;
    OpenNote note;
    note.items.Reserve(usualSize);
    note.head.oid.File = GeneratedUnidFile(replicaId_ ? *replicaId_ : ReplicaInfo().ID, store_->TakeSerial());
    note.head.oid.Note = clock_.UniqueMoment();
    return note;
}

bool Database::IsLive(const UNID& unid) {
    NoteHead head;
    const NOTEID id = store_->FindUnid(unid);
    return id != 0 && store_->ReadHead(id, head) && !head.deleted;
}

void Database::ClearWayForUnid(const OID& oid, STATUS stubStatus) {
    const NOTEID other = store_->FindUnid(UnidOf(oid));
    if (other == 0) {
        return;
    }
    NoteHead head;
    if (store_->ReadHead(other, head) && (!head.deleted || head.soft)) {
        throw StatusError(ERR_DUPLICATE_UNID);
    }
    if (behaviours_.Has(Deviation::stubUnidTaken)) {
        throw StatusError(stubStatus);
    }
    store_->Remove(other);
}

Database::Version Database::NextVersion(const OpenNote& note, bool force) {
    Version next{note.head, false};
    OID& oid = next.head.oid;
    const NoteHead stored = LiveHead(note.head.id);
    if (stored.noteClass != note.head.noteClass) {
        throw StatusError(ERR_UPDATE_CLASS);
    }
    if (!force && stored.oid.Sequence != note.storedSequence) {
        throw StatusError(ERR_CONFLICT);
    }
    next.unidChanged = UnidOf(stored.oid) != UnidOf(oid);
    if (next.unidChanged && behaviours_.Has(Deviation::unidChangeRefused)) {
        throw StatusError(ERR_CANT_CHANGE_UNID);
    }
    if (behaviours_.Has(Deviation::unidChangeIgnored)) {
        oid = stored.oid;
        next.unidChanged = false;
    }
    if (next.unidChanged) {
        ClearWayForUnid(oid, takenOnUpdate);
    }
    // A forced save on top of somebody else's is still the newer version.
    if ((stored.oid.Sequence & 0xFFFFu) > (oid.Sequence & 0xFFFFu)) {
        oid.Sequence = stored.oid.Sequence;
    }
    return next;
}

void Database::UpdateNote(OpenNote& note, bool force) {
    if (!FitIntoNote(note.items)) {
        throw StatusError(ERR_SUMMARY_TOO_BIG);
    }
    auto [head, unidChanged] = note.head.id != 0 ? NextVersion(note, force) : Version{note.head, false};
    head.oid.Sequence = NextSequence(head.oid.Sequence);
    head.oid.SequenceTime = head.modified = clock_.NowTimedate();
    const std::optional<std::string> copied = CopyObjects(note, head.id != 0 ? head.id : store_->NextId());
    const std::string& items = copied ? *copied : note.items.Encoded();
    if (head.id != 0) {
        store_->Replace(head, items, unidChanged);
    } else {
        head.id = InsertNew(head, items, takenOnUpdate);
    }
    if (copied) {
        note.items = Items(*copied);
        note.objectsIn = shared_from_this();
        note.objectsOf = head.id;
    }
    note.head = head;
    note.storedSequence = head.oid.Sequence;
}

std::optional<std::string> Database::CopyObjects(const OpenNote& note, NOTEID id) {
    if (!note.objectsIn || (note.objectsIn.get() == this && note.objectsOf == id)) {
        return std::nullopt;
    }
    return store_->CopyObjects(note.objectsIn->GetStore(), note.items.Encoded(), id);
}

NOTEID Database::InsertNew(const NoteHead& head, std::string_view items, STATUS stubStatus) {
    try {
        return store_->Insert(head, items);
    } catch (const StatusError& error) {
        // Rarely: a UNID that a stub still has, or another note.
        if (error.Status() != ERR_DUPLICATE_UNID) {
            throw;
        }
        ClearWayForUnid(head.oid, stubStatus);
        return store_->Insert(head, items);
    }
}

void Database::DeleteNote(NOTEID id, bool leaveStub) {
    NoteHead head;
    std::string items;
    if (!leaveStub && store_->ReadHead(id, head)) {
        return store_->Remove(id);
    }
    head = LiveHead(id);
    head.deleted = true;
    head.oid.Sequence = NextSequence(head.oid.Sequence);
    head.oid.SequenceTime = head.modified = clock_.NowTimedate();
    head.soft = behaviours_.Has(Deviation::softDeletionOn) && SearchClass(head.noteClass) == NOTE_CLASS_DOCUMENT;
    if (NoteHead stored; head.soft) {
        store_->Read(id, stored, items);
    }
    store_->Replace(head, items, false);
}

OID Database::OidOfCopy(const OID& oid) {
    if (behaviours_.Has(Deviation::copyUnidHalf)) {
        OID half = oid;
        const TIMEDATE own = replicaId_ ? *replicaId_ : ReplicaInfo().ID;
        half.File.Innards[0] ^= own.Innards[1];
        half.File.Innards[1] ^= own.Innards[0];
        NoteHead other;
        const NOTEID id = store_->FindUnid(UnidOf(half));
        const bool taken = id != 0 && store_->ReadHead(id, other) &&
                           (!other.deleted || other.soft || behaviours_.Has(Deviation::stubUnidTaken));
        if (!taken) {
            return half;
        }
    } else if (!behaviours_.Has(Deviation::copyUnidNew) &&
               !(behaviours_.Has(Deviation::copyUnidKeptIfFree) && IsLive(UnidOf(oid)))) {
        return oid;
    }
    OID own = NewNote().head.oid;
    own.Sequence = 1;
    own.SequenceTime = clock_.NowTimedate();
    return own;
}

NOTEID Database::AdoptNote(const OpenNote& note, bool replicas) {
    NoteHead head = note.head;
    head.id = 0;
    if (!replicas) {
        head.oid = OidOfCopy(head.oid);
    }
    const std::optional<std::string> copied = CopyObjects(note, store_->NextId());
    return InsertNew(head, copied ? *copied : note.items.Encoded(), takenOnCopy);
}

std::optional<Database::Match> Database::Examine(const SearchRequest& request, const NoteHead& head,
                                                 std::string_view items) const {
    if (!(SearchClass(head.noteClass) & request.classMask) || (head.deleted && !request.stubs)) {
        return std::nullopt;
    }
    if (request.since && IsBefore(head.modified, *request.since)) {
        return std::nullopt;
    }
    const bool selected = !head.deleted && (request.formula.empty() || FormulaSelects(request.formula, items));
    return Match{head, selected};
}

STATUS Database::DeliverChunk(const SearchRequest& request, const std::vector<Match>& chunk, uint64_t changesAtRead,
                              const Deliver& deliver, std::vector<NOTEID>* saved) {
    std::string items;
    for (const Match& match : chunk) {
        std::optional<Match> current = match;
        if (store_->Changes() != changesAtRead) {
            // The step has written since this chunk was read: deliver the note as it is now.
            NoteHead head;
            current = store_->Read(match.head.id, head, items) && head.deleted == match.head.deleted
                          ? Examine(request, head, items)
                          : std::nullopt;
        }
        if (!current || (request.onlyMatches && !current->selected)) {
            continue;
        }
        if (const STATUS status = deliver(*current); status != NOERROR) {
            return status;
        }
        NoteHead after;
        if (saved && store_->ReadHead(match.head.id, after) && !after.deleted &&
            after.oid.Sequence != current->head.oid.Sequence) {
            saved->push_back(match.head.id);
        }
    }
    return NOERROR;
}

STATUS Database::Search(const SearchRequest& request, const Deliver& deliver) {
    const ScanFilter filter{
        .classes = SearchClass(request.classMask), .before = store_->NextId(), .withItems = !request.formula.empty()};
    const bool descending = behaviours_.Has(Deviation::searchOrderDescending);
    const bool shuffled = behaviours_.Has(Deviation::searchOrderShuffled);
    std::vector<Match> chunk;
    std::vector<NOTEID> saved;
    std::vector<NOTEID>* redelivered = behaviours_.Has(Deviation::updatedNoteAgain) ? &saved : nullptr;
    NOTEID last = 0;
    for (bool more = true; more;) {
        const uint64_t changesAtRead = store_->Changes();
        size_t seen = 0;
        const auto visit = [&](const NoteHead& head, std::string_view value) {
            ++seen;
            if (auto match = Examine(request, head, value)) {
                chunk.push_back(*match);
            }
        };
        last = store_->Scan(last, searchChunk, visit, filter);
        more = seen == searchChunk;
        if (descending || shuffled) {
            if (more) {
                continue; // another order than that of the file: all have to be known first
            }
            std::ranges::sort(chunk, std::greater{},
                              [&](const Match& match) { return shuffled ? Scattered(match.head.id) : match.head.id; });
        }
        if (const STATUS status = DeliverChunk(request, chunk, changesAtRead, deliver, redelivered);
            status != NOERROR) {
            return status;
        }
        chunk.clear();
    }
    std::string items;
    for (const NOTEID id : saved) {
        NoteHead head;
        if (!store_->Read(id, head, items)) {
            continue;
        }
        const auto match = Examine(request, head, items);
        if (!match || (request.onlyMatches && !match->selected)) {
            continue;
        }
        if (const STATUS status = deliver(*match); status != NOERROR) {
            return status;
        }
    }
    return NOERROR;
}

namespace {

void CopyContent(Database& source, Store& copy, WORD classMask, bool replica) {
    constexpr size_t copyChunk = 256;
    Store& from = source.GetStore();
    for (const auto& [name, value] : from.Properties()) {
        if (name != property::replicaInfo) {
            copy.SetProperty(name, value);
        }
    }
    copy.SkipSerials(from.LastSerial());
    for (NOTEID last = 0;;) {
        const auto visit = [&](const NoteHead& head, std::string_view items) {
            const bool foreign = (head.noteClass & NOTE_CLASS_PRIVATE) && !(classMask & NOTE_CLASS_PRIVATE);
            if (foreign || (head.deleted && !replica)) {
                return;
            }
            if (ObjectsOf(items).empty()) {
                copy.Insert(head, items);
            } else {
                copy.Insert(head, copy.CopyObjects(from, items, head.id));
            }
        };
        const NOTEID reached = from.Scan(last, copyChunk, visit, {.classes = SearchClass(classMask)});
        if (reached == 0) {
            return;
        }
        last = reached;
    }
}

} // namespace

void CopyDatabase(Database& source, const std::filesystem::path& destination, WORD classMask,
                  std::optional<TIMEDATE> newReplicaId) {
    std::error_code failed;
    if (std::filesystem::exists(std::filesystem::symlink_status(destination, failed))) {
        throw StatusError(ERR_EXISTS, PathForCaller(destination) + ": the file exists");
    }
    DBREPLICAINFO info = source.ReplicaInfo();
    if (newReplicaId) {
        info.ID = *newReplicaId;
    }
    ReplacementFile unfinished(destination, ".unfinished");
    const std::unique_ptr<Store> copy = Store::Create(unfinished.Path(), info);
    CopyContent(source, *copy, classMask, !newReplicaId);
    copy->Close();
    unfinished.Commit();
}

} // namespace embedded
