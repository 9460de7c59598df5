#include "support/system.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <optional>

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

namespace updkrx::test {

int ProcessId() {
    return getpid();
}

int ThreadId() {
    return gettid();
}

void Die(int exitCode) {
    _exit(exitCode);
}

void SetVariable(const char* name, const char* value) {
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

bool IsInherited(const std::string& name, const std::string& value) {
    return std::system(("test \"$" + name + "\" = '" + value + "'").c_str()) == 0;
}

void SetTimeZone(const char* zone) {
    static const char* const found = std::getenv("TZ");
    static const std::optional<std::string> before =
        found != nullptr ? std::optional<std::string>(found) : std::nullopt;
    SetVariable("TZ", zone != nullptr ? zone : before ? before->c_str() : nullptr);
    tzset();
}

std::string Native(const std::string& utf8) {
    return utf8;
}

Library::Library(const char* file) : handle_(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        error_ = dlerror();
    }
}

Library::~Library() {
    if (handle_ != nullptr) {
        (void)dlclose(handle_);
    }
}

bool Library::IsLoaded(const char* file) {
    void* handle = dlopen(file, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

void* Library::FindAddress(const char* name) const {
    return dlsym(handle_, name);
}

const bool FileSizeLimit::available = true;

FileSizeLimit::FileSizeLimit(uint64_t bytes) {
    (void)std::signal(SIGXFSZ, SIG_IGN); // writing fails instead
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    before_ = limit.rlim_cur;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
}

FileSizeLimit::~FileSizeLimit() {
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = before_;
    setrlimit(RLIMIT_FSIZE, &limit);
}

} // namespace updkrx::test
