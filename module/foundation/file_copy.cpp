#include "foundation/file_copy.h"

#include <cstdio>
#include <memory>
#include <utility>

#include "foundation/exception_barrier.h"
#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t bufferSize = 262144;
/** How many buffers are written between two nudges to the disk: it works while the copy goes on, not all at the end. */
constexpr int buffersPerFlush = 32;
constexpr const char* separators = "/\\";

/** The bytes that are to take a file's place, in a file beside it. They go away unless they have taken it. */
class Successor {
public:
    explicit Successor(const std::string& target) : target_(target), path_(target + ".$$$") {
        os::RemoveFile(path_.c_str()); // left by a run that was killed
        file_ = os::OpenNew(path_.c_str());
    }
    Successor(const Successor&) = delete;
    Successor& operator=(const Successor&) = delete;
    ~Successor() {
        (void)Close();
        os::RemoveFile(path_.c_str());
    }

    /** Null when there is no place for it beside the target. */
    [[nodiscard]] std::FILE* File() const noexcept { return file_; }

    [[nodiscard]] CopyResult TakePlace() noexcept {
        const bool onDisk = os::FlushToDisk(file_);
        if (!Close() || !onDisk) {
            return copyWriteFailed;
        }
        return os::MoveOver(path_.c_str(), target_.c_str()) ? copied : copyTargetUnwritable;
    }

private:
    bool Close() noexcept {
        std::FILE* closing = std::exchange(file_, nullptr);
        return closing == nullptr || std::fclose(closing) == 0;
    }

    std::string target_;
    std::string path_;
    std::FILE* file_ = nullptr;
};

bool IsFile(const std::string& source) {
    return !source.empty() && source.find_first_of("*?") == std::string::npos &&
           source.find_last_of(separators) != source.size() - 1 &&
           os::KindOf(source.c_str()) != os::PathKind::directory;
}

bool MakeFolderOf(const std::string& file) {
    const size_t end = file.find_last_of(separators);
    return end == std::string::npos || end == 0 || os::CreateDirectories(file.substr(0, end).c_str());
}

bool CanReplace(const std::string& file) noexcept {
    const os::PathKind kind = os::KindOf(file.c_str());
    return kind == os::PathKind::missing || (kind == os::PathKind::file && os::IsWritable(file.c_str()));
}

CopyResult CopyBytes(std::FILE* from, std::FILE* to) {
    os::ReserveSpace(to, from);
    const auto buffer = std::make_unique<char[]>(bufferSize);
    for (int written = 1;; ++written) {
        const size_t count = std::fread(buffer.get(), 1, bufferSize, from);
        if (count < bufferSize && std::ferror(from) != 0) {
            return copyReadFailed;
        }
        if (count == 0) {
            return copied;
        }
        if (std::fwrite(buffer.get(), 1, count, to) < count) {
            return copyWriteFailed;
        }
        if (written % buffersPerFlush == 0) {
            os::StartFlush(to);
        }
    }
}

CopyResult CopyOver(const std::string& source, const std::string& destination, bool overwrite) {
    if (!IsFile(source) || destination.empty()) {
        return copyPathInvalid;
    }
    if (!MakeFolderOf(destination)) {
        return copyTargetUnwritable;
    }
    if (!overwrite && os::KindOf(destination.c_str()) == os::PathKind::file) {
        return copyTargetExists;
    }
    const auto close = [](std::FILE* file) { (void)std::fclose(file); }; // only read: nothing can be lost
    const std::unique_ptr<std::FILE, decltype(close)> from(os::OpenForReading(source.c_str()), close);
    if (!from) {
        return copySourceUnreadable;
    }
    if (!CanReplace(destination)) {
        return copyTargetUnwritable;
    }
    Successor successor(destination);
    if (successor.File() == nullptr) {
        return copyTargetUnwritable;
    }
    const CopyResult result = CopyBytes(from.get(), successor.File());
    return result == copied ? successor.TakePlace() : result;
}

} // namespace

CopyResult CopyPath(const std::string& source, const std::string& destination, bool overwrite) noexcept {
    return WithoutExceptions("CopyPath", copyWriteFailed, [&] { return CopyOver(source, destination, overwrite); });
}

} // namespace updkrx
