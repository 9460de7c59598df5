#include "foundation/file_copy.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t bufferSize = 262144;
constexpr int buffersPerFlush = 32;
constexpr const char* separators = "/\\";
constexpr const char* keptSuffix = ".updkrx-kept";
constexpr const char* writingSuffix = ".updkrx-writing";

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
        file_.reset(); // some systems remove no open file
        os::RemoveFile(path_.c_str());
    }

    /** Null when there is no place for it beside the target. */
    [[nodiscard]] std::FILE* File() const noexcept { return file_.get(); }

    [[nodiscard]] CopyResult TakePlace() noexcept {
        const bool onDisk = os::FlushToDisk(file_.get());
        if (!os::Close(std::move(file_)) || !onDisk) {
            return copyWriteFailed;
        }
        return os::MoveOver(path_.c_str(), target_.c_str()) ? copied : copyTargetUnwritable;
    }

private:
    std::string target_;
    std::string path_;
    os::OwnedFile file_;
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
    if (!overwrite && os::IsFile(destination)) {
        return copyTargetExists;
    }
    const os::OwnedFile from = os::OpenForReading(source.c_str());
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

/** Puts the bytes of a file into another one, without making a new one of it. */
CopyResult WriteInPlace(const std::string& source, const std::string& destination) {
    const os::OwnedFile from = os::OpenForReading(source.c_str());
    if (!from) {
        return copySourceUnreadable;
    }
    os::OwnedFile to = os::OpenToOverwrite(destination.c_str());
    if (!to) {
        return copyTargetUnwritable;
    }
    const CopyResult result = CopyBytes(from.get(), to.get());
    const bool onDisk = result == copied && os::FlushToDisk(to.get());
    const bool closed = os::Close(std::move(to));
    return result != copied ? result : onDisk && closed ? copied : copyWriteFailed;
}

/** Whether a file is being written in place, or a run has died meanwhile: only then its kept content is the old one. */
bool IsBeingWritten(const std::string& file) {
    return os::IsFile(file + writingSuffix);
}

bool MarkWriting(const std::string& file) {
    const os::OwnedFile mark = os::OpenNew((file + writingSuffix).c_str());
    return mark && os::FlushToDisk(mark.get());
}

/** The file is whole: nothing that stays of this may be taken for its old content any more. */
void Discard(const std::string& kept, const std::string& destination) {
    const std::string mark = destination + writingSuffix;
    os::RemoveFile(mark.c_str());
    if (os::IsFile(mark)) {
        (void)os::MoveOver(mark.c_str(), kept.c_str()); // without the mark no run takes the rest for anything
    }
    os::RemoveFile(kept.c_str());
    for (const std::string& file : {mark, kept}) {
        if (os::IsFile(file)) {
            DebugLog(level::progress, "Error: A kept content cannot be removed. (%s)", file.c_str());
        }
    }
}

/** Writes a file in place, once its old content is kept. What a run that died has kept is the old content still. */
CopyResult OverwriteKeepingOld(const std::string& source, const std::string& destination, const std::string& kept) {
    const bool hasOld = IsBeingWritten(destination) && os::IsFile(kept);
    if (!hasOld &&
        (CopyPath(destination, kept, true) != copied || !(IsBeingWritten(destination) || MarkWriting(destination)))) {
        return copyTargetUnwritable;
    }
    const CopyResult result = WriteInPlace(source, destination);
    if (!hasOld && (result == copyTargetUnwritable || result == copySourceUnreadable)) {
        Discard(kept, destination); // nothing was written
    }
    return result;
}

/** Puts a kept content back where it was. */
void PutBack(const std::string& kept, const std::string& destination) {
    if (CopyPath(kept, destination, true) == copied || WriteInPlace(kept, destination) == copied) {
        Discard(kept, destination);
    } else {
        DebugLog(level::progress, "Error: %s is damaged. Its old content is kept. (%s)", destination.c_str(),
                 kept.c_str());
    }
}

CopyResult CopyKeepingOld(const std::string& source, const std::string& destination) {
    const std::string kept = destination + keptSuffix;
    CopyResult result = CopyPath(source, destination, true);
    if (result == copyTargetUnwritable && os::IsFile(destination) && os::IsWritable(destination.c_str())) {
        result = WithoutExceptions("CopyPath", copyWriteFailed,
                                   [&] { return OverwriteKeepingOld(source, destination, kept); });
    }
    if (result == copied || !IsBeingWritten(destination)) {
        Discard(kept, destination);
    } else if (os::IsFile(kept)) {
        PutBack(kept, destination);
    }
    return result;
}

} // namespace

CopyResult CopyPath(const std::string& source, const std::string& destination, bool overwrite) noexcept {
    return WithoutExceptions("CopyPath", copyWriteFailed, [&] { return CopyOver(source, destination, overwrite); });
}

CopyResult CopyUnderReaders(const std::string& source, const std::string& destination) noexcept {
    return WithoutExceptions("CopyPath", copyWriteFailed, [&] { return CopyKeepingOld(source, destination); });
}

void FinishCopiesOfDeadRun(const std::string& folder, std::string_view name) {
    for (const os::DirectoryEntry& entry : os::ListDirectory(folder)) {
        const std::string_view file = entry.name;
        const std::string kept = folder + "/" + entry.name;
        if (entry.isDirectory || !file.ends_with(keptSuffix) || file.find(name) == std::string_view::npos) {
            continue;
        }
        const std::string destination = kept.substr(0, kept.size() - std::strlen(keptSuffix));
        if (!IsBeingWritten(destination)) {
            Discard(kept, destination);
            continue;
        }
        DebugLog(level::progress, "A file may be damaged. Its old content is put back. (%s)", destination.c_str());
        PutBack(kept, destination);
    }
}

} // namespace updkrx
