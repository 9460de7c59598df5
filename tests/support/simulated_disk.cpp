#include "support/simulated_disk.h"

#include "support/temporary_folder.h"

namespace updkrx::test {

SimulatedDisk* SimulatedDisk::current_ = nullptr;

SimulatedDisk::SimulatedDisk() : real_(sqlite3_vfs_find(nullptr)), vfs_(*real_) {
    current_ = this;
    vfs_.zName = "simulated";
    vfs_.pNext = nullptr;
    vfs_.xOpen = Open;
    vfs_.xDelete = Delete;
    sqlite3_vfs_register(&vfs_, 1);
}

SimulatedDisk::~SimulatedDisk() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(real_, 1);
    current_ = nullptr;
}

std::filesystem::path SimulatedDisk::LayOut(const Files& files, const std::filesystem::path& database,
                                            const std::filesystem::path& name) {
    for (const char* suffix : {"", "-journal"}) {
        const auto found = files.find(database.string() + suffix);
        const std::filesystem::path target = name.string() + suffix;
        std::filesystem::remove(target);
        if (found != files.end()) {
            WriteFile(target, found->second);
        }
    }
    return name;
}

void SimulatedDisk::Happens() const {
    if (beforeEach) {
        beforeEach();
    }
}

int SimulatedDisk::Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    SimulatedDisk& disk = *current_;
    const bool kept = name && std::filesystem::exists(name) && !disk.synced_.contains(name);
    const int code = disk.real_->xOpen(disk.real_, name, file, flags, outFlags);
    if (code != SQLITE_OK || !name) {
        return code;
    }
    if (kept) {
        disk.synced_[name] = ReadFile(name);
    }
    OpenFile& opened = disk.open_[file] = {name, file->pMethods, *file->pMethods};
    opened.methods.xClose = Close;
    opened.methods.xRead = Read;
    opened.methods.xWrite = Write;
    opened.methods.xSync = Sync;
    file->pMethods = &opened.methods;
    return SQLITE_OK;
}

int SimulatedDisk::Delete(sqlite3_vfs*, const char* name, int syncFolder) {
    current_->Happens();
    current_->synced_.erase(name);
    return current_->real_->xDelete(current_->real_, name, syncFolder);
}

int SimulatedDisk::Close(sqlite3_file* file) {
    const int code = current_->open_.at(file).real->xClose(file);
    current_->open_.erase(file);
    return code;
}

int SimulatedDisk::Read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    current_->bytesRead_ += static_cast<size_t>(size);
    return current_->open_.at(file).real->xRead(file, bytes, size, offset);
}

int SimulatedDisk::Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    current_->Happens();
    if (current_->writesLeft_ >= 0 && current_->writesLeft_-- == 0) {
        return SQLITE_FULL;
    }
    return current_->open_.at(file).real->xWrite(file, bytes, size, offset);
}

int SimulatedDisk::Sync(sqlite3_file* file, int flags) {
    current_->Happens();
    const OpenFile& synced = current_->open_.at(file);
    current_->synced_[synced.name] = ReadFile(synced.name);
    return synced.real->xSync(file, flags);
}

} // namespace updkrx::test
