// The one seam to the operating system: os_<system>.cpp implements it and the build picks one of them.
//
// Paths are native text with Windows separators and drive letters as the product writes them; turning one into what
// the host system opens happens behind this header only. Where the host separates with "/", "\" separates as well.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace updkrx::os {

[[nodiscard]] int32_t ProcessId() noexcept;
/** Of the calling thread. */
[[nodiscard]] int32_t ThreadId() noexcept;

/** The present moment in local time; false, with `local` unspecified, when the system cannot tell. */
[[nodiscard]] bool LocalTime(std::tm& local) noexcept;

struct DirectoryEntry {
    std::string name;
    bool isDirectory; // also through a link
};

/** The entries of a directory in the order in which the system lists them, "." and ".." left out, and so is one whose
 *  name is not to be had as native text. A directory that cannot be read has none. */
[[nodiscard]] std::vector<DirectoryEntry> ListDirectory(const std::string& directory);

/** Closes a file whose last bytes do not matter: it was only read, or nobody is to learn that a write has failed. */
struct CloseFile {
    void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};

using OwnedFile = std::unique_ptr<std::FILE, CloseFile>;

/** Closes a file; false when some of what was written to it is lost. */
[[nodiscard]] inline bool Close(OwnedFile file) noexcept {
    return std::fclose(file.release()) == 0;
}

/** Opens a text file to add to its end, creating it if need be; its lines get the system's line ends. Null when that
 *  fails. */
[[nodiscard]] OwnedFile OpenForAppend(const char* path) noexcept;

/** Opens a file to read its bytes as they are. Null when that fails; a directory fails here or at the first read. */
[[nodiscard]] OwnedFile OpenForReading(const char* path) noexcept;

/** Creates a file to write bytes as they are. Null when that fails, also when the path leads to something already. */
[[nodiscard]] OwnedFile OpenNew(const char* path) noexcept;

/** Opens an existing file to write its bytes anew, from nothing, while others may have it open. Null when that fails;
 *  the file is as it was then. */
[[nodiscard]] OwnedFile OpenToOverwrite(const char* path) noexcept;

/** Sets disk space aside for a new file that is going to hold the bytes of `content`, so that they lie together. A
 *  hint: where it is not to be had, writing goes on as without it. */
void ReserveSpace(std::FILE* file, std::FILE* content) noexcept;

/** Has the system put on the disk what was written to a file, without waiting for that: the disk works while a copy
 *  goes on, which takes a tenth off its time. A hint as well, for which not every system has a means. */
void StartFlush(std::FILE* file) noexcept;

/** Waits until what was written to a file is on the disk; false when some of it cannot get there. */
[[nodiscard]] bool FlushToDisk(std::FILE* file) noexcept;

enum class PathKind { missing, file, directory };

/** What a path leads to; everything that is not a directory counts as a file, also what cannot be looked at. */
[[nodiscard]] PathKind KindOf(const char* path) noexcept;
[[nodiscard]] inline bool IsFile(const std::string& path) noexcept {
    return KindOf(path.c_str()) == PathKind::file;
}

/** Whether this process may write to an existing file. */
[[nodiscard]] bool IsWritable(const char* path) noexcept;

/** Makes a directory and those above it that are missing; false when it is not there afterwards. */
[[nodiscard]] bool CreateDirectories(const char* directory);

/** Gives a file the place and the access rights of another one in the same directory, in one step: whoever opens
 *  `target` meets the old file or the new one. The place may be empty. On failure both are as they were. May wait, two
 *  seconds at most, where the system refuses this while another process has one of the two open. */
[[nodiscard]] bool MoveOver(const char* file, const char* target) noexcept;

/** Gives a file the access rights of another one, as far as this process may. */
void CopyAccessRights(const char* from, const char* to) noexcept;

/** Removes a file; nothing happens when there is none. */
void RemoveFile(const char* path) noexcept;

/** Sets a variable of the process's environment, which processes started from here inherit. It stays when the module is
 *  unloaded. A failure is passed over. */
void PutEnvironment(const char* name, const char* value) noexcept;

// ---- What threads wait on. None of these objects has a name, so no other process can open them by one.

/** Who may use an object and whether started processes inherit it, in the system's own form. Where the system has such
 *  a notion, null stands for the default: anyone may use the object and started processes inherit it. */
struct SecurityAttributes;

struct Mutex;
struct Semaphore;

struct CloseObject {
    void operator()(Mutex* mutex) const noexcept;
    void operator()(Semaphore* semaphore) const noexcept;
};

using OwnedMutex = std::unique_ptr<Mutex, CloseObject>;
using OwnedSemaphore = std::unique_ptr<Semaphore, CloseObject>;

/** A mutex that nobody holds; null when the system has none to give. */
[[nodiscard]] OwnedMutex MakeMutex(const SecurityAttributes* security) noexcept;
void Lock(Mutex& mutex) noexcept;
void Unlock(Mutex& mutex) noexcept;

/** A counting semaphore with a count of 0, whose count its users never take above `maximum`; null when the system has
 *  none to give. */
[[nodiscard]] OwnedSemaphore MakeSemaphore(int32_t maximum, const SecurityAttributes* security) noexcept;
/** Takes 1 from the count, waiting without a time limit until there is 1 to take. */
void Wait(Semaphore& semaphore) noexcept;
/** Adds `count` to the count at once, and so lets as many waiting threads go. */
void Release(Semaphore& semaphore, int32_t count) noexcept;

} // namespace updkrx::os
