#include "platform.h"

#include <dlfcn.h>

#include "failure.h"

namespace krxpatch::platform {
namespace {

/** The cause of the last failure, without the file's name in front. */
std::string LoaderError(const std::string& file) {
    const char* error = dlerror();
    const std::string text = error != nullptr ? error : "unknown error";
    return text.starts_with(file + ": ") ? text.substr(file.size() + 2) : text;
}

} // namespace

const char* const moduleFile = "libupdkrx.so";

std::filesystem::path ExecutableFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

// An absolute path keeps the loader from looking for a bare name in the system's folders. Binding everything at once
// finds a missing operation now and not in the middle of an upgrade.
Library::Library(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file)), handle_(dlopen(file_.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        throw Failure(notStarted, file_.string() + ": cannot be loaded: " + LoaderError(file_.string()));
    }
}

Library::~Library() {
    (void)dlclose(handle_); // the process does not need it any more, loaded or not
}

void* Library::FindAddress(const char* name) const {
    void* address = dlsym(handle_, name);
    if (address == nullptr) {
        throw Failure(notStarted, file_.string() + ": exports no function " + name);
    }
    return address;
}

} // namespace krxpatch::platform
