#include "engine/server/server.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "engine/server/console.h"
#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"
#include "engine/values/timedate.h"

namespace embedded {
namespace {

constexpr const char* offlineFile = "offline.lst";
constexpr const char* defaultIdName = "CN=Local/O=Embedded";
// The console's output stands in the server folder as on a server, for the administrator who reads it later.
constexpr const char* consoleFile = "console.log";
constexpr DWORD offlinePollMs = 100;

/** Both separators separate in the paths of the Notes API. */
std::filesystem::path FromNotes(std::string text) {
    std::replace(text.begin(), text.end(), '\\', '/');
    return PathFromCaller(text);
}

std::filesystem::path FolderOf(const std::filesystem::path& file) {
    return std::filesystem::absolute(file).lexically_normal().parent_path();
}

} // namespace

Server::Server(const std::filesystem::path& iniFile, bool readOnly)
    : environment_(Environment::Load(iniFile)), readOnly_(readOnly), folder_(FolderOf(iniFile)),
      offline_(folder_ / offlineFile) {
    const auto directory = environment_.Find("Directory");
    if (!directory || directory->empty()) {
        throw StatusError(EMB_ERR_ARGUMENT, PathForCaller(iniFile) + ": no line Directory=");
    }
    if (directory->size() >= MAXPATH) {
        throw StatusError(EMB_ERR_TOO_LONG, PathForCaller(iniFile) + ": the path in Directory= is longer than " +
                                                std::to_string(MAXPATH - 1) + " bytes");
    }
    dataDirectory_ = *directory;
    try {
        behaviours_.SetAll(environment_.Find("EmbeddedBehaviour").value_or(""));
    } catch (const StatusError& error) {
        throw StatusError(error.Status(), PathForCaller(iniFile) + ": EmbeddedBehaviour=: " + error.what());
    }
    if (std::error_code ignored; !std::filesystem::is_directory(HostPath({}), ignored)) {
        throw StatusError(ERR_NOEXIST,
                          PathForCaller(iniFile) + ": the data directory " + dataDirectory_ + " does not exist");
    }
}

std::string Server::IdName() const {
    return environment_.Find("EmbeddedIDName").value_or(defaultIdName);
}

std::filesystem::path Server::HostPath(std::string_view notesPath) const {
    std::string text(notesPath);
    if (const size_t server = text.find("!!"); server != std::string::npos) {
        if (server != 0 && text.substr(0, server) != IdName()) {
            throw StatusError(EMB_ERR_NO_SERVER, text + ": no such server");
        }
        text.erase(0, server + 2);
    }
    std::filesystem::path path = (folder_ / FromNotes(dataDirectory_) / FromNotes(std::move(text))).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

std::filesystem::path Server::DatabasePath(std::string_view notesPath) const {
    std::filesystem::path path = HostPath(notesPath);
    std::error_code ignored;
    if (path.has_extension() || std::filesystem::exists(path, ignored)) {
        return path;
    }
    std::filesystem::path withExtension = path;
    withExtension += ".nsf";
    return withExtension;
}

std::filesystem::path Server::FullPathOnly(std::string_view notesPath) const {
    if (Has(Deviation::offlinePathFull) && !FromNotes(std::string(notesPath)).is_absolute()) {
        throw StatusError(ERR_NOEXIST);
    }
    return DatabasePath(notesPath);
}

std::shared_ptr<Database> Server::Open(const std::filesystem::path& file) {
    if (auto database = open_[file].lock()) {
        return database;
    }
    if (IsOffline(file)) {
        throw StatusError(ERR_DBOFFLINE);
    }
    auto database =
        Database::Open(file, readOnly_ ? StoreAccess::readOnly : StoreAccess::readWrite, clock_, behaviours_);
    open_[file] = database;
    return database;
}

bool Server::HasUsers(const std::filesystem::path& file) const {
    const auto found = open_.find(file);
    if (found != open_.end() && !found->second.expired()) {
        return true;
    }
    return !FileLock::Take(file, FileLock::Kind::exclusive);
}

void Server::TakeOffline(const std::filesystem::path& file, DWORD waitMs, bool deleteIt) {
    if (readOnly_) {
        throw StatusError(EMB_ERR_READ_ONLY);
    }
    std::error_code failed;
    if (!std::filesystem::is_regular_file(file, failed)) {
        throw StatusError(ERR_NOEXIST);
    }
    if (DWORD& attempts = inUse_[file]; attempts > 0) {
        --attempts;
        clock_.Wait(waitMs);
        throw StatusError(ERR_DBINUSE);
    }
    for (DWORD waited = 0; HasUsers(file); waited += offlinePollMs) {
        if (waited >= waitMs) {
            throw StatusError(ERR_DBINUSE);
        }
        clock_.Wait(std::min(offlinePollMs, waitMs - waited));
    }
    try {
        // Opening plays back the journal of a process that died, which must not meet another file of this name.
        Store::Open(file, StoreAccess::readWrite)->Close();
    } catch (const StatusError&) {
        // A damaged file can be taken offline all the same: it is going to be replaced.
    }
    if (!deleteIt) {
        return offline_.Add(file);
    }
    if (!std::filesystem::remove(file, failed) || failed) {
        throw StatusError(EMB_ERR_DISK, PathForCaller(file) + ": cannot be deleted");
    }
    if (Has(Deviation::deletedPathOffline)) {
        offline_.Add(file);
    } else {
        offline_.Remove(file);
    }
}

void Server::BringOnline(const std::filesystem::path& file) {
    if (readOnly_) {
        throw StatusError(EMB_ERR_READ_ONLY);
    }
    std::error_code ignored;
    const bool isOfDeleted = Has(Deviation::deletedPathOffline) && offline_.Contains(file);
    if (!isOfDeleted && !std::filesystem::is_regular_file(file, ignored)) {
        throw StatusError(ERR_NOEXIST);
    }
    offline_.Remove(file);
}

std::string Server::Console(std::string_view command) {
    const Outcome outcome = CarryOut(*this, command);
    const std::string line =
        TextFromHundredths(clock_.Now()) + "\t" + outcome.transcript + "\t" + std::string(command) + "\n";
    transcript_ += line;
    AppendToConsoleFile(line);
    return outcome.reply;
}

void Server::Log(std::string_view text) {
    const std::string line = TextFromHundredths(clock_.Now()) + "\t" + std::string(text) + "\n";
    serverLog_ += line;
    AppendToConsoleFile(line);
}

void Server::AppendToConsoleFile(std::string_view line) const {
    if (readOnly_) {
        return;
    }
    // A log that cannot be written stops nobody.
    std::ofstream(folder_ / consoleFile, std::ios::app) << line;
}

} // namespace embedded
