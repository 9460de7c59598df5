#include "engine/system/replacement_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "engine/system/caller_system.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

std::string NextSuffix() {
    static std::atomic<unsigned> made{0};
    return ".new-" + std::to_string(getpid()) + "-" + std::to_string(++made);
}

/** A file or a folder; false with errno when the disk does not have it. */
bool Flush(const std::filesystem::path& path) noexcept {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool flushed = ::fsync(descriptor) == 0;
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return flushed;
}

} // namespace

std::filesystem::path JournalOf(std::filesystem::path database) {
    return database += "-journal";
}

ReplacementFile::ReplacementFile(std::filesystem::path target) : ReplacementFile(std::move(target), NextSuffix()) {}

ReplacementFile::ReplacementFile(std::filesystem::path target, std::string_view suffix)
    : target_(std::move(target)), file_(target_) {
    file_ += suffix;
    Remove(); // a process may have died over it
}

void ReplacementFile::Commit() {
    const std::filesystem::path folder = target_.has_parent_path() ? target_.parent_path() : ".";
    // A new name for bytes that the disk does not have yet would be, after a power failure, the name of an empty file.
    if (!Flush(file_) || ::rename(file_.c_str(), target_.c_str()) != 0 || !Flush(folder)) {
        throw StatusError(EMB_ERR_DISK, PathForCaller(target_) + ": cannot be put into place: " + std::strerror(errno));
    }
}

void ReplacementFile::Remove() noexcept {
    std::error_code ignored;
    std::filesystem::remove(JournalOf(file_), ignored);
    std::filesystem::remove(file_, ignored);
}

} // namespace embedded
