#include "engine/system/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"

namespace embedded {

// flock and not fcntl: SQLite locks the same file with fcntl, and those locks of a process end when it closes any
// descriptor of the file.
std::optional<FileLock> FileLock::Take(const std::filesystem::path& file, Kind kind) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        throw StatusError(errno == ENOENT ? ERR_NOEXIST : EMB_ERR_DISK,
                          PathForCaller(file) + ": " + std::strerror(errno));
    }
    FileLock lock(descriptor);
    if (::flock(descriptor, (kind == Kind::shared ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0) {
        return std::nullopt;
    }
    return lock;
}

FileLock::FileLock(FileLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

FileLock::~FileLock() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

} // namespace embedded
