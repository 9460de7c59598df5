// Who uses a database file: every process that has it open shares a lock on it, which ends with the process.
#pragma once

#include <filesystem>
#include <optional>

namespace embedded {

class FileLock {
public:
    enum class Kind { shared, exclusive };

    /** Nothing when another process holds a lock that does not go with this one. Throws ERR_NOEXIST or
     *  EMB_ERR_DISK when the file cannot be opened. Never waits. */
    static std::optional<FileLock> Take(const std::filesystem::path& file, Kind kind);

    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();

private:
    explicit FileLock(int descriptor) : descriptor_(descriptor) {}
    int descriptor_;
};

} // namespace embedded
