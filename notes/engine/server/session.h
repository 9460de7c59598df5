// A Notes session: the settings of one server folder, the databases that are open, and everything that handles
// stand for. A process has at most one.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "engine/database/behaviours.h"
#include "engine/database/database.h"
#include "engine/server/environment.h"
#include "engine/server/faults.h"
#include "engine/server/handles.h"
#include "engine/server/offline_registry.h"
#include "engine/values/clock.h"

namespace embedded {

/** A block of memory with an address that does not move. */
struct MemoryBlock {
    std::unique_ptr<char[]> bytes;
    size_t size = 0;
    int locks = 0;
    bool ownedByNote = false; // freed with its note, not by the caller
};

/** What a database handle stands for: a database, or a directory, which can be opened too. */
struct OpenDatabase {
    std::shared_ptr<Database> database; // NULL for a directory
};

/** What a note handle stands for. */
struct NoteEntry : OpenNote {
    std::vector<DHANDLE> blocks; // handed out by NSFItemInfo
};

class Session {
public:
    /** Reads notes.ini. Throws StatusError with the file and the cause. */
    Session(const std::filesystem::path& iniFile, bool readOnly);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Environment environment;
    Behaviours behaviours;
    Clock clock;
    CallLedger calls;
    HandleTable<OpenDatabase> databases{EMB_HANDLE_DATABASE};
    HandleTable<NoteEntry> notes{EMB_HANDLE_NOTE};
    HandleTable<MemoryBlock> memory{EMB_HANDLE_MEMORY};
    DWORD misuses = 0;

    [[nodiscard]] bool ReadOnly() const noexcept { return readOnly_; }
    [[nodiscard]] const std::string& dataDirectory() const noexcept { return dataDirectory_; } // UTF-8
    /** The name of the ID in use, UTF-8. */
    [[nodiscard]] std::string IdName() const;

    /** The host path of a path as the Notes API takes it (UTF-8): "\" and "/" separate, a "server!!" of our own
     *  is taken off (another one throws EMB_ERR_NO_SERVER), and a relative path stands below the data directory. */
    [[nodiscard]] std::filesystem::path HostPath(std::string_view notesPath) const;
    /** As HostPath, for a database that is there or is to be there: ".nsf" may be left out. */
    [[nodiscard]] std::filesystem::path DatabasePath(std::string_view notesPath) const;
    /** As DatabasePath, for an operation that may want full paths: throws ERR_NOEXIST for another one then. */
    [[nodiscard]] std::filesystem::path FullPathOnly(std::string_view notesPath) const;

    /** Throws ERR_DBOFFLINE besides what Database::Open throws. */
    std::shared_ptr<Database> Open(const std::filesystem::path& file);
    /** Writes are stored when the last handle is closed, whatever notes are still open. */
    void Close(const std::shared_ptr<OpenDatabase>& entry);

    DHANDLE Allocate(std::string_view bytes, bool ownedByNote = false);

    // ---- Server

    /** Waits up to `waitMs` for the database's users. Throws ERR_DBINUSE when there still are some, ERR_NOEXIST. */
    void TakeOffline(const std::filesystem::path& file, DWORD waitMs, bool deleteIt);
    void BringOnline(const std::filesystem::path& file);
    [[nodiscard]] bool IsOffline(const std::filesystem::path& file) const { return offline_.Contains(file); }
    void SetInUse(const std::filesystem::path& file, DWORD attempts) { inUse_[file] = attempts; }

    /** Carries out a console command (UTF-8); the reply, which may be empty. */
    std::string Console(std::string_view command);
    /** Adds a line (UTF-8) to the server's log. */
    void Log(std::string_view text);
    [[nodiscard]] const std::string& Transcript() const noexcept { return transcript_; }
    [[nodiscard]] const std::string& ServerLog() const noexcept { return serverLog_; }

private:
    [[nodiscard]] bool HasUsers(const std::filesystem::path& file) const;
    void appendToConsoleFile(std::string_view line) const;

    bool readOnly_;
    std::filesystem::path folder_; // of notes.ini
    std::string dataDirectory_;
    OfflineRegistry offline_;
    std::map<std::filesystem::path, std::weak_ptr<Database>> open_;
    std::map<std::filesystem::path, DWORD> inUse_; // attempts to come that find the database in use
    std::string transcript_;
    std::string serverLog_;
};

} // namespace embedded
