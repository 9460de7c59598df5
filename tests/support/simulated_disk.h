// A disk that loses what was not synced when the power fails, and that can be full. While one lives, every database
// that the process opens stands on it.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>

namespace updkrx::test {

class SimulatedDisk {
public:
    SimulatedDisk();
    SimulatedDisk(const SimulatedDisk&) = delete;
    SimulatedDisk& operator=(const SimulatedDisk&) = delete;
    ~SimulatedDisk();

    /** What the disk has for certain: whole files, as they were when they were last synced. New files are there once
     *  they are synced; deleted ones are gone at once, as on a file system with a journal. */
    using Files = std::map<std::string, std::string>;
    [[nodiscard]] const Files& Synced() const noexcept { return synced_; }
    /** Lays out what `files` has of a database, and of its journal, under another name, and gives that. */
    static std::filesystem::path LayOut(const Files& files, const std::filesystem::path& database,
                                        const std::filesystem::path& name);

    /** Called before each write, sync and deletion. */
    std::function<void()> beforeEach;
    /** The bytes that were read since the disk was made. */
    [[nodiscard]] size_t BytesRead() const noexcept { return bytesRead_; }
    /** So many writes go well; the one behind them finds the disk full. */
    void FailWriteAfter(int writes) noexcept { writesLeft_ = writes; }

private:
    static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags);
    static int Delete(sqlite3_vfs* vfs, const char* name, int syncFolder);
    static int Close(sqlite3_file* file);
    static int Read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset);
    static int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset);
    static int Sync(sqlite3_file* file, int flags);
    void Happens() const;

    struct OpenFile {
        std::string name;
        const sqlite3_io_methods* real;
        sqlite3_io_methods methods; // the real ones but for those of this class
    };

    static SimulatedDisk* current_;

    sqlite3_vfs* real_;
    sqlite3_vfs vfs_;
    Files synced_;
    std::map<sqlite3_file*, OpenFile> open_;
    int writesLeft_ = -1; // never full
    size_t bytesRead_ = 0;
};

} // namespace updkrx::test
