#include "support/system.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <windows.h>

namespace updkrx::test {

int ProcessId() {
    return static_cast<int>(GetCurrentProcessId());
}

int ThreadId() {
    return static_cast<int>(GetCurrentThreadId());
}

void Die(int exitCode) {
    // _Exit would let each library of the process end its work, and the platform close its databases.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    std::abort();
}

void SetVariable(const char* name, const char* value) {
    _putenv_s(name, value != nullptr ? value : ""); // an empty value removes
}

bool IsInherited(const std::string& name, const std::string& value) {
    return std::system(("if not \"%" + name + "%\"==\"" + value + "\" exit 1").c_str()) == 0;
}

void SetTimeZone(const char* zone) {
    static const char* const found = std::getenv("TZ");
    static const std::string before = found != nullptr ? found : "";
    SetVariable("TZ", zone != nullptr ? zone : before.c_str());
    _tzset();
}

std::string Native(const std::string& utf8) {
    std::wstring wide(utf8.size(), L'\0');
    wide.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                                        wide.data(), static_cast<int>(wide.size()))));
    std::string native(wide.size() * 2, '\0');
    native.resize(static_cast<size_t>(WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(),
                                                          static_cast<int>(wide.size()), native.data(),
                                                          static_cast<int>(native.size()), nullptr, nullptr)));
    return native;
}

// The loader takes "\" only.
Library::Library(const char* file) : handle_(LoadLibraryW(std::filesystem::path(file).make_preferred().c_str())) {
    if (handle_ == nullptr) {
        error_ = "error " + std::to_string(GetLastError());
    }
}

Library::~Library() {
    if (handle_ != nullptr) {
        FreeLibrary(static_cast<HMODULE>(handle_));
    }
}

bool Library::IsLoaded(const char* file) {
    return GetModuleHandleW(std::filesystem::path(file).filename().c_str()) != nullptr;
}

void* Library::FindAddress(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

const bool FileSizeLimit::available = false;

FileSizeLimit::FileSizeLimit(uint64_t bytes) : before_(bytes) {}

FileSizeLimit::~FileSizeLimit() = default;

} // namespace updkrx::test
