// A server as its notes.ini describes it: where its databases are, which of them are open, offline or in use, and what
// its console and log show.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "engine/database/behaviours.h"
#include "engine/database/database.h"
#include "engine/server/environment.h"
#include "engine/server/offline_registry.h"
#include "engine/values/clock.h"

namespace embedded {

class Server {
public:
    /** Reads notes.ini. Throws StatusError with the file and the cause. */
    Server(const std::filesystem::path& iniFile, bool readOnly);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /** Whether nothing may be changed. */
    [[nodiscard]] bool ReadOnly() const noexcept { return readOnly_; }
    /** As notes.ini has it, UTF-8. */
    [[nodiscard]] const std::string& DataDirectory() const noexcept { return dataDirectory_; }
    /** The name of the ID in use, UTF-8. */
    [[nodiscard]] std::string IdName() const;
    [[nodiscard]] Environment& GetEnvironment() noexcept { return environment_; }
    [[nodiscard]] Behaviours& GetBehaviours() noexcept { return behaviours_; }
    [[nodiscard]] bool Has(Deviation deviation) const noexcept { return behaviours_.Has(deviation); }
    [[nodiscard]] Clock& GetClock() noexcept { return clock_; }

    /** The host path of a path as the Notes API takes it (UTF-8): "\" and "/" separate, a "server!!" of our own
     *  is taken off (another one throws EMB_ERR_NO_SERVER), and a relative path stands below the data directory. */
    [[nodiscard]] std::filesystem::path HostPath(std::string_view notesPath) const;
    /** As HostPath, for a database that is there or is to be there: ".nsf" may be left out. */
    [[nodiscard]] std::filesystem::path DatabasePath(std::string_view notesPath) const;
    /** As DatabasePath, for an operation that may want full paths: throws ERR_NOEXIST for another one then. */
    [[nodiscard]] std::filesystem::path FullPathOnly(std::string_view notesPath) const;

    /** The database of a file, the same one for all who have it open. Throws ERR_DBOFFLINE besides what Database::Open
     *  throws. */
    std::shared_ptr<Database> Open(const std::filesystem::path& file);
    /** Waits up to `waitMs` for the database's users. Throws ERR_DBINUSE when there still are some, ERR_NOEXIST. */
    void TakeOffline(const std::filesystem::path& file, DWORD waitMs, bool deleteIt);
    /** Throws ERR_NOEXIST when there is no such file. */
    void BringOnline(const std::filesystem::path& file);
    [[nodiscard]] bool IsOffline(const std::filesystem::path& file) const { return offline_.Contains(file); }
    /** So many attempts to take the database offline will find users. */
    void SetInUse(const std::filesystem::path& file, DWORD attempts) { inUse_[file] = attempts; }

    /** Carries out a console command (UTF-8); the reply, which may be empty. */
    std::string Console(std::string_view command);
    /** Adds a line (UTF-8) to the server's log. */
    void Log(std::string_view text);
    /** The console's commands and what became of them, a line each. */
    [[nodiscard]] const std::string& Transcript() const noexcept { return transcript_; }
    [[nodiscard]] const std::string& ServerLog() const noexcept { return serverLog_; }

private:
    [[nodiscard]] bool HasUsers(const std::filesystem::path& file) const;
    void AppendToConsoleFile(std::string_view line) const;

    Environment environment_;
    Behaviours behaviours_;
    Clock clock_;
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
