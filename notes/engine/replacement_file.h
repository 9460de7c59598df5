// A file that takes another's place whole or not at all.
#pragma once

#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>

#include <unistd.h>

#include "engine/caller_system.h"
#include "engine/status_error.h"

namespace embedded {

/** The name of a database's rollback journal, which stands beside it while a transaction is open. */
inline std::filesystem::path journalOf(std::filesystem::path database) {
    return database += "-journal";
}

/** A name of our own in the target's folder. What stands under it is removed, with its journal, unless commit() made
 *  it the target. */
class ReplacementFile {
public:
    explicit ReplacementFile(std::filesystem::path target) : target_(std::move(target)), file_(target_) {
        static std::atomic<unsigned> made{0};
        file_ += ".new-" + std::to_string(getpid()) + "-" + std::to_string(++made);
        remove(); // a process of this number may have died over it
    }
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile() { remove(); }

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return file_; }

    void commit() {
        std::error_code error;
        std::filesystem::rename(file_, target_, error);
        if (error)
            throw StatusError(EMB_ERR_DISK, pathForCaller(target_) + ": cannot be put into place: " + error.message());
    }

private:
    void remove() noexcept {
        std::error_code ignored;
        std::filesystem::remove(journalOf(file_), ignored);
        std::filesystem::remove(file_, ignored);
    }

    std::filesystem::path target_;
    std::filesystem::path file_;
};

} // namespace embedded
