#include "os/os.h"

#include <atomic>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace updkrx::os {
namespace {

/** A path as this system takes it. A buffer of the system's own limit keeps it usable when memory has run out. */
class HostPath {
public:
    explicit HostPath(const char* path) noexcept {
        const size_t length = std::strlen(path);
        if (length >= sizeof text_) {
            return; // the empty path opens nothing, as the whole one would
        }
        for (size_t i = 0; i < length; ++i) {
            text_[i] = path[i] == '\\' ? '/' : path[i];
        }
    }

    [[nodiscard]] const char* Text() const noexcept { return text_; }

private:
    char text_[PATH_MAX] = {};
};

bool IsDirectory(int directory, const char* name) noexcept {
    struct stat information = {};
    return fstatat(directory, name, &information, 0) == 0 && S_ISDIR(information.st_mode);
}

/** A server that runs as another user must still be able to open the file. */
void TakeAccessRights(const char* file, const struct stat& from) noexcept {
    [[maybe_unused]] const int owner = chown(file, from.st_uid, from.st_gid); // only some processes may
    [[maybe_unused]] const int mode = chmod(file, from.st_mode & 07777);
}

} // namespace

int32_t ProcessId() noexcept {
    return getpid();
}

int32_t ThreadId() noexcept {
    return gettid();
}

bool LocalTime(std::tm& local) noexcept {
    const std::time_t now = std::time(nullptr);
    return localtime_r(&now, &local) != nullptr;
}

std::vector<DirectoryEntry> ListDirectory(const std::string& directory) {
    const auto close = [](DIR* stream) { (void)closedir(stream); }; // only read: nothing can be lost
    const std::unique_ptr<DIR, decltype(close)> stream(opendir(HostPath(directory.c_str()).Text()), close);
    std::vector<DirectoryEntry> entries;
    while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            entries.push_back({entry->d_name, IsDirectory(dirfd(stream.get()), entry->d_name)});
        }
    }
    return entries;
}

OwnedFile OpenForAppend(const char* path) noexcept {
    return OwnedFile(std::fopen(HostPath(path).Text(), "a"));
}

OwnedFile OpenForReading(const char* path) noexcept {
    return OwnedFile(std::fopen(HostPath(path).Text(), "r"));
}

OwnedFile OpenNew(const char* path) noexcept {
    return OwnedFile(std::fopen(HostPath(path).Text(), "wx"));
}

OwnedFile OpenToOverwrite(const char* path) noexcept {
    const HostPath host(path);
    return OwnedFile(access(host.Text(), F_OK) == 0 ? std::fopen(host.Text(), "w") : nullptr);
}

void ReserveSpace(std::FILE* file, std::FILE* content) noexcept {
    struct stat information = {};
    if (fstat(fileno(content), &information) == 0) {
        // Space and not size: the file ends where its last byte was written.
        (void)fallocate(fileno(file), FALLOC_FL_KEEP_SIZE, 0, information.st_size);
    }
}

void StartFlush(std::FILE* file) noexcept {
    (void)sync_file_range(fileno(file), 0, 0, SYNC_FILE_RANGE_WRITE); // from the start to the end
}

bool FlushToDisk(std::FILE* file) noexcept {
    return std::fflush(file) == 0 && fsync(fileno(file)) == 0;
}

PathKind KindOf(const char* path) noexcept {
    struct stat information = {};
    if (stat(HostPath(path).Text(), &information) != 0) {
        return errno == EACCES ? PathKind::file : PathKind::missing;
    }
    return S_ISDIR(information.st_mode) ? PathKind::directory : PathKind::file;
}

bool IsWritable(const char* path) noexcept {
    // Asked rather than tried: closing the file would end the locks that this process may hold on it.
    return faccessat(AT_FDCWD, HostPath(path).Text(), W_OK, AT_EACCESS) == 0;
}

bool CreateDirectories(const char* directory) {
    std::error_code failed;
    (void)std::filesystem::create_directories(HostPath(directory).Text(),
                                              failed); // false also for one that is there
    return !failed;
}

bool MoveOver(const char* file, const char* target) noexcept {
    const HostPath from(file);
    const HostPath to(target);
    struct stat old = {};
    if (stat(to.Text(), &old) == 0) {
        TakeAccessRights(from.Text(), old);
    }
    return std::rename(from.Text(), to.Text()) == 0;
}

void CopyAccessRights(const char* from, const char* to) noexcept {
    struct stat rights = {};
    if (stat(HostPath(from).Text(), &rights) == 0) {
        TakeAccessRights(HostPath(to).Text(), rights);
    }
}

void RemoveFile(const char* path) noexcept {
    (void)unlink(HostPath(path).Text()); // a file that cannot be removed stays
}

void PutEnvironment(const char* name, const char* value) noexcept {
    (void)setenv(name, value, 1);
}

// ---- Mutex and semaphore, over the kernel's futex. The library's own mutex costs twice as much while nobody contends
// for it; its semaphore lets waiting threads go by one kernel call each, and lets a thread that has only just come take
// the place of one that has been let go but is not awake yet. Security attributes mean nothing here, as the objects
// live in the process's own memory; nor does the maximum, as the count has room for any number of threads.

namespace {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);

/** Sleeps if `word` still is `value`, until it is woken by one of `bits`. May return for no reason. */
void Sleep(const std::atomic<uint32_t>& word, uint32_t value, uint32_t bits) noexcept {
    (void)syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, value, nullptr, nullptr, bits);
}

/** Wakes up to `threads` of those that sleep at `word` for one of `bits`. Only the address counts: there may be no
 *  object any more by the time of the call. */
void Wake(const std::atomic<uint32_t>* word, int32_t threads, uint32_t bits) noexcept {
    (void)syscall(SYS_futex, word, FUTEX_WAKE_BITSET_PRIVATE, threads, nullptr, nullptr, bits);
}

constexpr uint32_t allBits = FUTEX_BITSET_MATCH_ANY;

constexpr uint32_t freeMutex = 0;
constexpr uint32_t heldMutex = 1;
constexpr uint32_t contendedMutex = 2; // held, and someone may sleep

} // namespace

struct Mutex {
    std::atomic<uint32_t> state = freeMutex;
};

struct Semaphore {
    std::atomic<uint32_t> tickets = 0; // drawn by threads as they come to wait
    std::atomic<uint32_t> served = 0;  // the tickets before this one may go
};

void CloseObject::operator()(Mutex* mutex) const noexcept {
    delete mutex;
}

void CloseObject::operator()(Semaphore* semaphore) const noexcept {
    delete semaphore;
}

OwnedMutex MakeMutex(const SecurityAttributes* /*security*/) noexcept {
    return OwnedMutex(new (std::nothrow) Mutex);
}

void Lock(Mutex& mutex) noexcept {
    uint32_t expected = freeMutex;
    if (mutex.state.compare_exchange_strong(expected, heldMutex, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
        return;
    }
    // Who has slept cannot tell whether others still do, and takes the mutex as contended.
    while (mutex.state.exchange(contendedMutex, std::memory_order_acquire) != freeMutex) {
        Sleep(mutex.state, contendedMutex, allBits);
    }
}

void Unlock(Mutex& mutex) noexcept {
    const auto* state = &mutex.state;
    if (mutex.state.exchange(freeMutex, std::memory_order_release) == contendedMutex) {
        Wake(state, 1, allBits);
    }
}

OwnedSemaphore MakeSemaphore(int32_t /*maximum*/, const SecurityAttributes* /*security*/) noexcept {
    return OwnedSemaphore(new (std::nothrow) Semaphore);
}

void Wait(Semaphore& semaphore) noexcept {
    const uint32_t ticket = semaphore.tickets.fetch_add(1, std::memory_order_relaxed);
    uint32_t served = semaphore.served.load(std::memory_order_acquire);
    while (static_cast<int32_t>(served - ticket) <= 0) { // both wrap around
        Sleep(semaphore.served, served, uint32_t{1} << ticket % 32);
        served = semaphore.served.load(std::memory_order_acquire);
    }
}

void Release(Semaphore& semaphore, int32_t count) noexcept {
    const auto* word = &semaphore.served;
    const uint32_t first = semaphore.served.fetch_add(static_cast<uint32_t>(count), std::memory_order_release);
    const uint32_t bits = count < 32 ? (uint32_t{1} << count) - 1 : allBits;
    // All with these bits: where more than 32 threads wait, a later ticket with the same bit sleeps on by itself.
    Wake(word, INT_MAX, std::rotl(bits, static_cast<int>(first % 32)));
}

} // namespace updkrx::os
