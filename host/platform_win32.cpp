#include "platform.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <memory>
#include <system_error>

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include "failure.h"

#undef CopyFile // a macro of the system's for its own function

namespace krxpatch::platform {
namespace {

/** The system's last error; its message is the system's own. */
std::error_code LastError() {
    return {static_cast<int>(GetLastError()), std::system_category()};
}

struct Closer {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using Handle = std::unique_ptr<HANDLE, Closer>;

/** Empty when the file cannot be opened. */
Handle Open(const std::filesystem::path& file, DWORD access, DWORD share, DWORD disposition, DWORD flags = 0) {
    const HANDLE handle = CreateFileW(file.c_str(), access, share, nullptr, disposition, flags, nullptr);
    return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

std::string Utf8(const wchar_t* text) {
    return std::filesystem::path(text).string();
}

std::string Translate(UINT from, UINT to, std::string_view text) {
    const auto size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0'); // no text has more units in UTF-16
    const int units = MultiByteToWideChar(from, 0, text.data(), size, wide.data(), size);
    std::string translated(3 * static_cast<size_t>(units), '\0'); // a unit has at most 3 bytes
    translated.resize(static_cast<size_t>(WideCharToMultiByte(to, to == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS, wide.data(),
                                                              units, translated.data(),
                                                              static_cast<int>(translated.size()), nullptr, nullptr)));
    return translated;
}

std::atomic<bool> interruptSeen = false;

constexpr DWORD everyShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

} // namespace

const char* const moduleFile = "updkrx.dll";

std::filesystem::path ExecutableFolder() {
    std::wstring file(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size()))) == file.size()) {
        file.resize(2 * file.size()); // it was cut
    }
    file.resize(length);
    return std::filesystem::path(file).parent_path();
}

std::string DescribeProcess() {
    constexpr DWORD size = 256;
    wchar_t user[size + 1] = L"";
    wchar_t host[size + 1] = L"";
    DWORD length = size;
    (void)GetUserNameW(user, &length); // without a name the line has none
    length = size;
    (void)GetComputerNameW(host, &length);
    return Utf8(user) + " on " + Utf8(host) + ", process " + std::to_string(GetCurrentProcessId());
}

std::vector<std::string> Arguments(int /*argc*/, char** /*argv*/) {
    // Those that main gets lack what the code page lacks.
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) {
        texts.push_back(Utf8(arguments[i]));
    }
    LocalFree(arguments);
    return texts;
}

void PrepareOutput() {
    (void)SetConsoleOutputCP(CP_UTF8);          // without a reader writing fails, and that is all
    (void)_setmode(_fileno(stdout), _O_BINARY); // DXL goes out as it is
}

void NoteInterrupts() noexcept {
    (void)SetConsoleCtrlHandler( // without a console nobody interrupts
        [](DWORD) -> BOOL {
            interruptSeen = true;
            return TRUE;
        },
        TRUE);
}

bool IsInterrupted() noexcept {
    return interruptSeen;
}

bool OutputIsTerminal() noexcept {
    return _isatty(_fileno(stdout)) != 0;
}

bool ErrorIsTerminal() noexcept {
    return _isatty(_fileno(stderr)) != 0;
}

std::string Utf8FromNative(std::string_view text) {
    return Translate(CP_ACP, CP_UTF8, text);
}

std::string NativeFromUtf8(std::string_view text) {
    return Translate(CP_UTF8, CP_ACP, text);
}

void FlushToDisk(const std::filesystem::path& path) {
    if (std::filesystem::is_directory(path)) {
        return; // the file system keeps its names by itself
    }
    const Handle opened = Open(path, GENERIC_WRITE, everyShare, OPEN_EXISTING);
    if (!opened || FlushFileBuffers(opened.get()) == FALSE) {
        throw std::filesystem::filesystem_error("flush", path, LastError());
    }
}

void CopyFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (CopyFileW(from.c_str(), to.c_str(), FALSE) == FALSE) {
        throw std::filesystem::filesystem_error("copy", from, to, LastError());
    }
    FlushToDisk(to);
}

uintmax_t NumberOfNames(const std::filesystem::path& file) noexcept {
    const Handle opened = Open(file, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING);
    BY_HANDLE_FILE_INFORMATION information = {};
    return opened && GetFileInformationByHandle(opened.get(), &information) != 0 ? information.nNumberOfLinks : 1;
}

void TakeOwner(const std::filesystem::path& /*path*/, const std::filesystem::path& /*from*/) noexcept {
    // A new file has the access list of its folder, whoever makes it.
}

std::string WhyUnreadable(const std::filesystem::path& file) {
    return Open(file, GENERIC_READ, everyShare, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS)
               ? ""
               : Utf8FromNative(LastError().message());
}

std::string WhyUnwritable(const std::filesystem::path& path) {
    // The right to add files to a folder has the number of that to write to a file.
    const Handle opened = Open(path, FILE_WRITE_DATA, everyShare, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    return opened || GetLastError() == ERROR_SHARING_VIOLATION ? "" : Utf8FromNative(LastError().message());
}

bool IsInUse(const std::filesystem::path& database) {
    return !Open(database, GENERIC_READ, 0, OPEN_EXISTING) && GetLastError() == ERROR_SHARING_VIOLATION;
}

void KeepRoomForLine(const std::filesystem::path& /*file*/) noexcept {
    // A short file lies in the file system's own table, which has its room.
}

void AppendLine(const std::filesystem::path& file, const std::string& line) {
    const Handle opened = Open(file, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS);
    const std::string text = line + '\n';
    DWORD written = 0;
    if (!opened || WriteFile(opened.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == FALSE) {
        throw std::filesystem::filesystem_error("write", file, LastError());
    }
}

// The file goes away with its last handle, also when the process is killed. Others can read it, and nobody else can
// open it for writing.
std::optional<HeldFile> HeldFile::Take(const std::filesystem::path& file, const std::string& text) {
    Handle opened = Open(file, GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, CREATE_ALWAYS,
                         FILE_FLAG_DELETE_ON_CLOSE);
    if (!opened && GetLastError() == ERROR_SHARING_VIOLATION) {
        return std::nullopt;
    }
    if (!opened) {
        throw std::filesystem::filesystem_error("open", file, LastError());
    }
    DWORD written = 0; // on a full disk, which may be what is to be mended, nothing: others see that somebody holds it
    (void)WriteFile(opened.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return HeldFile(file, reinterpret_cast<std::intptr_t>(opened.release()));
}

std::optional<std::string> HeldFile::TextOfHolder(const std::filesystem::path& file) {
    // Allows others to read only, which fails while there is somebody who writes.
    if (Open(file, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING) ||
        GetLastError() != ERROR_SHARING_VIOLATION) {
        return std::nullopt;
    }
    std::string text(4096, '\0');
    DWORD length = 0;
    const Handle opened = Open(file, GENERIC_READ, everyShare, OPEN_EXISTING);
    if (!opened || ReadFile(opened.get(), text.data(), static_cast<DWORD>(text.size()), &length, nullptr) == FALSE) {
        return std::nullopt; // its holder has let go meanwhile
    }
    text.resize(length);
    return text;
}

HeldFile::HeldFile(HeldFile&& other) noexcept
    : file_(std::move(other.file_)), handle_(std::exchange(other.handle_, noHandle)) {}

HeldFile::~HeldFile() {
    if (handle_ != noHandle) {
        CloseHandle(reinterpret_cast<HANDLE>(handle_));
    }
}

Library::Library(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file).make_preferred()), handle_(LoadLibraryW(file_.c_str())) {
    if (handle_ == nullptr) {
        throw Failure(notStarted, file_.string() + ": cannot be loaded: " + Utf8FromNative(LastError().message()));
    }
}

Library::~Library() {
    (void)FreeLibrary(static_cast<HMODULE>(handle_)); // the process does not need it any more, loaded or not
}

void* Library::FindAddress(const char* name) const {
    const FARPROC address = GetProcAddress(static_cast<HMODULE>(handle_), name);
    if (address == nullptr) {
        throw Failure(notStarted, file_.string() + ": exports no function " + name);
    }
    return reinterpret_cast<void*>(address);
}

} // namespace krxpatch::platform
