// An open database, shared by all handles and notes that stand on it.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/database/behaviours.h"
#include "engine/store/store.h"
#include "engine/system/file_lock.h"
#include "engine/values/clock.h"
#include "engine/values/items.h"

namespace embedded {

class Database;

/** A note in memory; nothing in it is stored before UpdateNote(). */
struct OpenNote {
    std::shared_ptr<Database> database;
    NoteHead head;
    /** The stored sequence when the note was read: a different one later means that somebody else has saved it. */
    DWORD storedSequence = 0;
    Items items;
    /** Where the objects stand that the items refer to: a note that is saved elsewhere gets copies of them. NULL when
     *  there are none, so that no note keeps a database open for nothing. */
    std::shared_ptr<Database> objectsIn;
    NOTEID objectsOf = 0;
};

class Database : public std::enable_shared_from_this<Database> {
public:
    /** Throws as Store::Open does, or EMB_ERR_BUSY when another process is about to take the file offline. */
    static std::shared_ptr<Database> Open(const std::filesystem::path& file, StoreAccess access, Clock& clock,
                                          const Behaviours& behaviours);
    /** Takes over a store whose file is at its place. */
    Database(const std::filesystem::path& file, std::unique_ptr<Store> store, FileLock lock, Clock& clock,
             const Behaviours& behaviours);

    [[nodiscard]] const std::filesystem::path& File() const noexcept { return file_; }
    Store& GetStore() noexcept { return *store_; }

    DBREPLICAINFO ReplicaInfo();
    void SetReplicaInfo(const DBREPLICAINFO& info);

    // ---- Notes. IDs that no live note has throw ERR_NOTE_DELETED or ERR_INVALID_NOTE.

    NoteHead LiveHead(NOTEID id);
    NOTEID IdOfUnid(const UNID& unid);
    void ReadNote(NOTEID id, OpenNote& note);
    /** An empty document with a UNID of its own. */
    OpenNote NewNote();
    /**
     * Stores the note and gives it its next sequence number and the present time. A note without an ID is created
     * under its UNID: over a deletion stub, unless those keep their UNIDs, but not beside another note
     * (ERR_DUPLICATE_UNID). Without `force` a note that somebody else has saved meanwhile is ERR_CONFLICT.
     */
    void UpdateNote(OpenNote& note, bool force);
    /** Without `leaveStub`, of a stub too. */
    void DeleteNote(NOTEID id, bool leaveStub);
    /** Adds a note as it stands in another database, sequence, times and objects included; returns its new ID. In a
     *  replica of that database it keeps its UNID, in another one that is a behaviour. */
    NOTEID AdoptNote(const OpenNote& note, bool replicas);

    /** What a search delivers. */
    struct Match {
        NoteHead head;
        bool selected;
    };
    /** Delivers a match; a status other than NOERROR ends the search. */
    using Deliver = std::function<STATUS(const Match&)>;

    struct SearchRequest {
        std::string formula; // compiled; empty selects all
        WORD classMask = 0;
        bool stubs = false;            // deliver deletion stubs too
        bool onlyMatches = true;       // no notes that the formula does not select
        std::optional<TIMEDATE> since; // notes modified at or after this moment only
    };
    /** The notes that exist when the search begins, in ID order unless another is a behaviour in force. Notes may be
     *  saved and deleted meanwhile; a deleted one is not delivered any more. */
    STATUS Search(const SearchRequest& request, const Deliver& deliver);

private:
    /** Nothing for a note that the request does not concern, whatever its formula says. */
    std::optional<Match> Examine(const SearchRequest& request, const NoteHead& head, std::string_view items) const;
    /** Delivers matches, as their notes are by then. Adds those that the step has saved to `saved`, if there is one. */
    STATUS DeliverChunk(const SearchRequest& request, const std::vector<Match>& chunk, uint64_t changesAtRead,
                        const Deliver& deliver, std::vector<NOTEID>* saved);
    struct Version {
        NoteHead head;
        bool unidChanged;
    };
    /** What a stored note is to be stored as when it is saved. Its UNID, if that is another one, is free then. */
    Version NextVersion(const OpenNote& note, bool force);
    [[nodiscard]] bool IsLive(const UNID& unid);
    /** Makes a stub of this UNID go away. Throws ERR_DUPLICATE_UNID when it is a note, `stubStatus` when stubs keep
     *  their UNIDs. */
    void ClearWayForUnid(const OID& oid, STATUS stubStatus);
    NOTEID InsertNew(const NoteHead& head, std::string_view items, STATUS stubStatus);
    /** The note's items with copies of their objects, put for the note `id`; nothing when the objects are its own. */
    std::optional<std::string> CopyObjects(const OpenNote& note, NOTEID id);
    /** The identity of a note that comes from a database which is no replica of this one. */
    OID OidOfCopy(const OID& oid);

    std::filesystem::path file_;
    // Declared before the store: SQLite's locks on the file end when the process closes any descriptor of it, so
    // the store closes first.
    FileLock lock_;
    std::unique_ptr<Store> store_;
    Clock& clock_;
    const Behaviours& behaviours_;
    std::optional<TIMEDATE> replicaId_; // once it is known: every new note needs it
};

/**
 * Makes a database at `destination` from the notes of `classMask` in `source`, with its access control list, title
 * and settings; deletion stubs go only into a replica. A copy that is no replica gets `newReplicaId`. The file
 * takes its place whole or not at all. Throws ERR_EXISTS when there is one.
 */
void CopyDatabase(Database& source, const std::filesystem::path& destination, WORD classMask,
                  std::optional<TIMEDATE> newReplicaId);

} // namespace embedded
