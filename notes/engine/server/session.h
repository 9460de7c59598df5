// A process's session on a server: what its handles stand for, how often it called, and what it used wrongly. A process
// has at most one.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include "engine/server/faults.h"
#include "engine/server/handles.h"
#include "engine/server/server.h"

namespace embedded {

/** A handle that is not open, or not of the kind that an operation takes, is a misuse: it is counted and throws
 *  EMB_ERR_HANDLE. */
class Session {
public:
    /** Throws as Server does. What was saved is stored as the session's databases close with it. */
    Session(const std::filesystem::path& iniFile, bool readOnly) : server_(iniFile, readOnly) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] Server& GetServer() noexcept { return server_; }
    [[nodiscard]] const Server& GetServer() const noexcept { return server_; }
    [[nodiscard]] CallLedger& GetCalls() noexcept { return calls_; }
    [[nodiscard]] DWORD Misuses() const noexcept { return misuses_; }
    /** Of a kind EMB_HANDLE_...; blocks that belong to a note do not count. */
    [[nodiscard]] DWORD OpenHandles(DWORD kind) const;

    /** Opens a database, or a directory, which has a handle and no content. Throws as Server::Open. */
    DBHANDLE OpenDatabase(const std::filesystem::path& file);
    /** Writes are stored when a database's last handle is closed, whatever notes are still open. */
    void CloseDatabase(DBHANDLE handle);
    /** Throws ERR_NOT_NSF for a directory. The database lives on when a search's step closes its handle. */
    std::shared_ptr<Database> DatabaseOf(DBHANDLE handle);
    /** A handle of the database; a note outlives its database's handles, so there may be none. */
    [[nodiscard]] DBHANDLE HandleOf(const std::shared_ptr<Database>& database) const;

    NOTEHANDLE AddNote(OpenNote note);
    OpenNote& NoteOf(NOTEHANDLE handle) { return Require(notes_, handle); }
    /** Frees the blocks that were lent for the note, too. */
    void CloseNote(NOTEHANDLE handle);

    /** A block of memory with a copy of the bytes. */
    DHANDLE Allocate(std::string_view bytes) { return AddBlock(bytes, false); }
    /** A block that belongs to the note: it is freed with it, and not by the caller. */
    DHANDLE Lend(NOTEHANDLE note, std::string_view bytes);
    std::string_view BytesOf(DHANDLE block);
    /** The block's address, which does not move. */
    void* Lock(DHANDLE block);
    /** A block that is not locked is a misuse and throws EMB_ERR_HANDLE. */
    void Unlock(DHANDLE block);
    /** A block that is locked or belongs to a note is a misuse and throws EMB_ERR_LOCKED. */
    void Free(DHANDLE block);

private:
    struct DatabaseEntry {
        std::shared_ptr<Database> database; // NULL for a directory
    };
    struct NoteEntry : OpenNote {
        std::vector<DHANDLE> lent;
    };
    struct Block {
        std::unique_ptr<char[]> bytes;
        size_t size = 0;
        DWORD locks = 0;
        bool lent = false;
    };

    [[noreturn]] void Misuse(STATUS status);
    template<typename T>
    T& Require(const HandleTable<T>& table, DHANDLE handle) {
        T* object = table.Find(handle);
        if (!object) {
            Misuse(EMB_ERR_HANDLE);
        }
        return *object;
    }
    DHANDLE AddBlock(std::string_view bytes, bool lent);

    Server server_; // outlives the databases, which use its clock and behaviours
    CallLedger calls_;
    HandleTable<DatabaseEntry> databases_{EMB_HANDLE_DATABASE};
    HandleTable<NoteEntry> notes_{EMB_HANDLE_NOTE};
    HandleTable<Block> memory_{EMB_HANDLE_MEMORY};
    DWORD misuses_ = 0;
};

} // namespace embedded
