#include "os/os.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

namespace updkrx::os {
namespace {

/** A path as this system takes it, in the form that has no limit of 260 characters. Native text is in the system's ANSI
 *  code page. Buffers of a fixed size, far beyond what the product builds, keep it usable when memory has run out. */
class HostPath {
public:
    explicit HostPath(const char* path) noexcept {
        wchar_t wide[capacity];
        wchar_t whole[capacity];
        if (MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, path, -1, wide, capacity) == 0) {
            return; // the empty path opens nothing
        }
        // Makes it absolute, with "\" only and without "." and "..": the long form takes every character as it stands.
        const DWORD length = GetFullPathNameW(wide, capacity, whole, nullptr);
        const std::wstring_view text(whole, length < capacity ? length : 0);
        if (text.starts_with(LR"(\\?\)") || text.starts_with(LR"(\\.\)")) {
            Join({}, text);
        } else if (text.starts_with(LR"(\\)")) {
            Join(LR"(\\?\UNC)", text.substr(1));
        } else if (!text.empty()) {
            Join(LR"(\\?\)", text);
        }
    }

    [[nodiscard]] const wchar_t* Text() const noexcept { return text_; }

private:
    static constexpr DWORD capacity = 4096;

    void Join(std::wstring_view prefix, std::wstring_view text) noexcept {
        if (prefix.size() + text.size() < std::size(text_)) {
            *std::copy(text.begin(), text.end(), std::copy(prefix.begin(), prefix.end(), text_)) = L'\0';
        }
    }

    wchar_t text_[capacity] = {};
};

/** The name in the system's ANSI code page; empty when that lacks one of its characters. Such an entry has no name by
 *  which this module could open it. */
std::string NativeName(const wchar_t* name) {
    char native[4 * MAX_PATH];
    BOOL lost = FALSE;
    const bool hasAll = GetACP() == CP_UTF8; // and then the system refuses to be asked
    const int size = WideCharToMultiByte(CP_ACP, hasAll ? 0 : WC_NO_BEST_FIT_CHARS, name, -1, native, sizeof native,
                                         nullptr, hasAll ? nullptr : &lost);
    return size > 0 && lost == FALSE ? std::string(native) : std::string();
}

constexpr DWORD everyShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/** Opens a file for this process alone: what other threads start does not inherit it. INVALID_HANDLE_VALUE when that
 *  fails. */
HANDLE Open(const char* path, DWORD access, DWORD share, DWORD disposition) noexcept {
    return CreateFileW(HostPath(path).Text(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

/** The file as the C library knows files, which closes the handle. Null, with the handle closed, when that fails. */
OwnedFile AsFile(HANDLE handle, int flags, const char* mode) noexcept {
    if (handle == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), flags);
    if (descriptor < 0) {
        CloseHandle(handle);
        return nullptr;
    }
    OwnedFile file(_fdopen(descriptor, mode));
    if (file == nullptr) {
        (void)_close(descriptor); // nothing was written
    }
    return file;
}

/** A server that runs as another user must still be able to open the file. */
void TakeAccessRights(const HostPath& file, const HostPath& from) noexcept {
    constexpr DWORD largest = 0x10000 + SECURITY_DESCRIPTOR_MIN_LENGTH; // of an access list
    const std::unique_ptr<char[]> rights(new (std::nothrow) char[largest]);
    DWORD needed = 0;
    if (rights && GetFileSecurityW(from.Text(), DACL_SECURITY_INFORMATION, rights.get(), largest, &needed) != FALSE) {
        (void)SetFileSecurityW(file.Text(), DACL_SECURITY_INFORMATION, rights.get()); // only some processes may
    }
}

HANDLE HandleOf(std::FILE* file) noexcept {
    return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
}

} // namespace

int32_t ProcessId() noexcept {
    return static_cast<int32_t>(GetCurrentProcessId());
}

int32_t ThreadId() noexcept {
    return static_cast<int32_t>(GetCurrentThreadId());
}

bool LocalTime(std::tm& local) noexcept {
    const std::time_t now = std::time(nullptr);
    return localtime_s(&local, &now) == 0;
}

std::vector<DirectoryEntry> ListDirectory(const std::string& directory) {
    WIN32_FIND_DATAW found = {};
    const auto close = [](HANDLE search) { FindClose(search); };
    const HANDLE search = FindFirstFileW(HostPath((directory + "\\*").c_str()).Text(), &found);
    std::vector<DirectoryEntry> entries;
    if (search == INVALID_HANDLE_VALUE) {
        return entries;
    }
    const std::unique_ptr<void, decltype(close)> closer(search, close);
    do {
        std::string name = NativeName(found.cFileName);
        if (!name.empty() && name != "." && name != "..") {
            entries.push_back({std::move(name), (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0});
        }
    } while (FindNextFileW(search, &found) != FALSE);
    return entries;
}

OwnedFile OpenForAppend(const char* path) noexcept {
    // With this access alone the system itself adds to the end, also while another process does.
    return AsFile(Open(path, FILE_APPEND_DATA | SYNCHRONIZE, everyShare, OPEN_ALWAYS), _O_APPEND | _O_TEXT, "a");
}

OwnedFile OpenForReading(const char* path) noexcept {
    return AsFile(Open(path, GENERIC_READ, everyShare, OPEN_EXISTING), _O_RDONLY | _O_BINARY, "rb");
}

OwnedFile OpenNew(const char* path) noexcept {
    const HANDLE handle = Open(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, CREATE_NEW);
    OwnedFile file = AsFile(handle, _O_WRONLY | _O_BINARY, "wb");
    if (file == nullptr && handle != INVALID_HANDLE_VALUE) {
        RemoveFile(path);
    }
    return file;
}

OwnedFile OpenToOverwrite(const char* path) noexcept {
    OwnedFile file = AsFile(Open(path, GENERIC_WRITE, everyShare, OPEN_EXISTING), _O_WRONLY | _O_BINARY, "wb");
    if (file != nullptr && _chsize(_fileno(file.get()), 0) != 0) {
        return nullptr;
    }
    return file;
}

void ReserveSpace(std::FILE* file, std::FILE* content) noexcept {
    LARGE_INTEGER size = {};
    if (GetFileSizeEx(HandleOf(content), &size) != FALSE) {
        // Space and not size: the file ends where its last byte was written.
        FILE_ALLOCATION_INFO allocation = {};
        allocation.AllocationSize = size;
        (void)SetFileInformationByHandle(HandleOf(file), FileAllocationInfo, &allocation, sizeof allocation);
    }
}

void StartFlush(std::FILE* /*file*/) noexcept {
    // The system has no means: it only flushes while one waits.
}

bool FlushToDisk(std::FILE* file) noexcept {
    return std::fflush(file) == 0 && FlushFileBuffers(HandleOf(file)) != FALSE;
}

PathKind KindOf(const char* path) noexcept {
    const DWORD attributes = GetFileAttributesW(HostPath(path).Text());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION ? PathKind::file : PathKind::missing;
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::directory : PathKind::file;
}

bool IsWritable(const char* path) noexcept {
    const DWORD attributes = GetFileAttributesW(HostPath(path).Text());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        return false;
    }
    // The rest only trying tells: the attribute knows nothing of access lists.
    const HANDLE file = Open(path, GENERIC_WRITE, everyShare, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_SHARING_VIOLATION; // by who has it open for a while
    }
    CloseHandle(file);
    return true;
}

bool CreateDirectories(const char* directory) {
    // From the top down; where the drive or the share ends need not be known, as those exist.
    const std::wstring whole = HostPath(directory).Text();
    for (size_t at = 0; at != std::wstring::npos;) {
        at = whole.find(L'\\', at + 1);
        (void)CreateDirectoryW(whole.substr(0, at).c_str(), nullptr);
    }
    return KindOf(directory) == PathKind::directory;
}

namespace {

bool IsForAMoment(DWORD error) noexcept {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED || error == ERROR_LOCK_VIOLATION ||
           error == ERROR_USER_MAPPED_FILE;
}

} // namespace

bool MoveOver(const char* file, const char* target) noexcept {
    const HostPath from(file);
    const HostPath to(target);
    TakeAccessRights(from, to);
    // A virus scanner or a backup may have one of the two open for a moment.
    constexpr int attempts = 20;
    constexpr DWORD pause = 100; // milliseconds
    for (int attempt = 1;; ++attempt) {
        if (MoveFileExW(from.Text(), to.Text(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE) {
            return true;
        }
        const DWORD error = GetLastError();
        if (attempt == attempts || !IsForAMoment(error)) {
            return false;
        }
        Sleep(pause);
    }
}

void CopyAccessRights(const char* from, const char* to) noexcept {
    TakeAccessRights(HostPath(to), HostPath(from));
}

void RemoveFile(const char* path) noexcept {
    (void)DeleteFileW(HostPath(path).Text()); // a file that cannot be removed stays
}

void PutEnvironment(const char* name, const char* value) noexcept {
    (void)_putenv_s(name, value); // the C library's own environment and the process's
}

// ---- Mutex and semaphore are kernel objects; what callers hold are their handles.

namespace {

Mutex* AsMutex(HANDLE handle) noexcept {
    return static_cast<Mutex*>(handle);
}

Semaphore* AsSemaphore(HANDLE handle) noexcept {
    return static_cast<Semaphore*>(handle);
}

/** The attributes that the caller gave, or those by which anyone may use the object and started processes inherit it.
 *  Where these cannot be built, the object gets the system's own default. */
class ObjectSecurity {
public:
    explicit ObjectSecurity(const SecurityAttributes* given) noexcept {
        if (given != nullptr) {
            attributes_ = reinterpret_cast<const SECURITY_ATTRIBUTES*>(given);
        } else if (InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) != FALSE &&
                   SetSecurityDescriptorDacl(&descriptor_, TRUE, nullptr, FALSE) != FALSE) {
            attributes_ = &default_;
        }
    }

    /** For the functions that take it, none of which changes it. */
    [[nodiscard]] SECURITY_ATTRIBUTES* Get() const noexcept { return const_cast<SECURITY_ATTRIBUTES*>(attributes_); }

private:
    SECURITY_DESCRIPTOR descriptor_ = {};
    SECURITY_ATTRIBUTES default_ = {sizeof default_, &descriptor_, TRUE};
    const SECURITY_ATTRIBUTES* attributes_ = nullptr;
};

} // namespace

void CloseObject::operator()(Mutex* mutex) const noexcept {
    CloseHandle(mutex);
}

void CloseObject::operator()(Semaphore* semaphore) const noexcept {
    CloseHandle(semaphore);
}

OwnedMutex MakeMutex(const SecurityAttributes* security) noexcept {
    return OwnedMutex(AsMutex(CreateMutexW(ObjectSecurity(security).Get(), FALSE, nullptr)));
}

void Lock(Mutex& mutex) noexcept {
    (void)WaitForSingleObject(&mutex, INFINITE);
}

void Unlock(Mutex& mutex) noexcept {
    (void)ReleaseMutex(&mutex);
}

OwnedSemaphore MakeSemaphore(int32_t maximum, const SecurityAttributes* security) noexcept {
    return OwnedSemaphore(AsSemaphore(CreateSemaphoreW(ObjectSecurity(security).Get(), 0, maximum, nullptr)));
}

void Wait(Semaphore& semaphore) noexcept {
    (void)WaitForSingleObject(&semaphore, INFINITE);
}

void Release(Semaphore& semaphore, int32_t count) noexcept {
    (void)ReleaseSemaphore(&semaphore, count, nullptr);
}

} // namespace updkrx::os
