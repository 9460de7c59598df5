#include "engine/server/session.h"

#include <algorithm>
#include <utility>

#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr const char* offlineFile = "offline.lst";
constexpr const char* defaultIdName = "CN=Local/O=Embedded";

/** Both separators separate in the paths of the Notes API. */
std::filesystem::path FromNotes(std::string text) {
    std::replace(text.begin(), text.end(), '\\', '/');
    return PathFromCaller(text);
}

std::filesystem::path FolderOf(const std::filesystem::path& file) {
    return std::filesystem::absolute(file).lexically_normal().parent_path();
}

} // namespace

Session::Session(const std::filesystem::path& iniFile, bool readOnly)
    : environment(Environment::Load(iniFile)), readOnly_(readOnly), folder_(FolderOf(iniFile)),
      offline_(folder_ / offlineFile) {
    const auto directory = environment.Find("Directory");
    if (!directory || directory->empty()) {
        throw StatusError(EMB_ERR_ARGUMENT, PathForCaller(iniFile) + ": no line Directory=");
    }
    if (directory->size() >= MAXPATH) {
        throw StatusError(EMB_ERR_TOO_LONG, PathForCaller(iniFile) + ": the path in Directory= is longer than " +
                                                std::to_string(MAXPATH - 1) + " bytes");
    }
    dataDirectory_ = *directory;
    try {
        behaviours.SetAll(environment.Find("EmbeddedBehaviour").value_or(""));
    } catch (const StatusError& error) {
        throw StatusError(error.Status(), PathForCaller(iniFile) + ": EmbeddedBehaviour=: " + error.what());
    }
    if (std::error_code ignored; !std::filesystem::is_directory(HostPath({}), ignored)) {
        throw StatusError(ERR_NOEXIST,
                          PathForCaller(iniFile) + ": the data directory " + dataDirectory_ + " does not exist");
    }
}

Session::~Session() {
    // Open notes hold their databases; what was saved is stored as the databases close.
}

std::string Session::IdName() const {
    return environment.Find("EmbeddedIDName").value_or(defaultIdName);
}

std::filesystem::path Session::HostPath(std::string_view notesPath) const {
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

std::filesystem::path Session::DatabasePath(std::string_view notesPath) const {
    std::filesystem::path path = HostPath(notesPath);
    std::error_code ignored;
    if (path.has_extension() || std::filesystem::exists(path, ignored)) {
        return path;
    }
    std::filesystem::path withExtension = path;
    withExtension += ".nsf";
    return withExtension;
}

std::filesystem::path Session::FullPathOnly(std::string_view notesPath) const {
    if (behaviours.Has(Deviation::offlinePathFull) && !FromNotes(std::string(notesPath)).is_absolute()) {
        throw StatusError(ERR_NOEXIST);
    }
    return DatabasePath(notesPath);
}

std::shared_ptr<Database> Session::Open(const std::filesystem::path& file) {
    if (auto database = open_[file].lock()) {
        return database;
    }
    if (IsOffline(file)) {
        throw StatusError(ERR_DBOFFLINE);
    }
    auto database = Database::Open(file, readOnly_ ? StoreAccess::readOnly : StoreAccess::readWrite, clock, behaviours);
    open_[file] = database;
    return database;
}

void Session::Close(const std::shared_ptr<OpenDatabase>& entry) {
    if (!entry->database) {
        return;
    }
    bool lastHandle = true;
    databases.ForEach([&](const OpenDatabase& other) { lastHandle &= other.database != entry->database; });
    if (lastHandle) {
        entry->database->GetStore().Commit();
    }
}

DHANDLE Session::Allocate(std::string_view bytes, bool ownedByNote) {
    auto block = std::make_shared<MemoryBlock>();
    block->bytes = std::make_unique<char[]>(bytes.size() + 1);
    std::copy(bytes.begin(), bytes.end(), block->bytes.get());
    block->size = bytes.size();
    block->ownedByNote = ownedByNote;
    return memory.Add(std::move(block));
}

} // namespace embedded
