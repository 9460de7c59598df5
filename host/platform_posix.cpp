#include "platform.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failure.h"

namespace krxpatch::platform {
namespace {

/** The cause of the last failure, without the file's name in front. */
std::string LoaderError(const std::string& file) {
    const char* error = dlerror();
    const std::string text = error != nullptr ? error : "unknown error";
    return text.starts_with(file + ": ") ? text.substr(file.size() + 2) : text;
}

/** An open file, which is closed unless it is released. */
class Descriptor {
public:
    Descriptor(const std::filesystem::path& file, int flags)
        : descriptor_(open(file.c_str(), flags | O_CLOEXEC, 0644)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0) {
            (void)close(descriptor_); // what was written has been flushed, or an error is on its way
        }
    }

    [[nodiscard]] bool IsOpen() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] int Get() const noexcept { return descriptor_; }
    [[nodiscard]] int Release() noexcept { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

/** Throws the last failure of the system when the operation did not work. */
void Check(bool worked, const char* operation, const std::filesystem::path& file) {
    if (!worked) {
        throw std::filesystem::filesystem_error(operation, file, {errno, std::generic_category()});
    }
}

/** A lock of the open file and not of the process, whose other lock on the file would go with the first close. */
struct flock WholeFile() {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

volatile std::sig_atomic_t interruptSeen = 0;

/** Whether the name still leads to the open file: its holder may have removed it before it let go. */
bool IsStill(int descriptor, const std::filesystem::path& file) {
    struct stat opened = {};
    struct stat named = {};
    return fstat(descriptor, &opened) == 0 && stat(file.c_str(), &named) == 0 && opened.st_ino == named.st_ino &&
           opened.st_dev == named.st_dev;
}

} // namespace

const char* const moduleFile = "libupdkrx.so";

std::filesystem::path ExecutableFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

std::string DescribeProcess() {
    char host[256] = "";
    (void)gethostname(host, sizeof host - 1); // without a name the line has none
    const passwd* user = getpwuid(geteuid());
    return std::string(user != nullptr ? user->pw_name : std::to_string(geteuid()).c_str()) + " on " + host +
           ", process " + std::to_string(getpid());
}

std::vector<std::string> Arguments(int argc, char** argv) {
    return {argv + 1, argv + argc};
}

void PrepareOutput() {
    (void)std::signal(SIGPIPE, SIG_IGN); // cannot fail for this signal
}

void NoteInterrupts() noexcept {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction ignored = {};
        if (sigaction(signal, nullptr, &ignored) == 0 && ignored.sa_handler == SIG_IGN) {
            continue; // as nohup wants it
        }
        struct sigaction noted = {};
        noted.sa_handler = [](int) { interruptSeen = 1; };
        noted.sa_flags = SA_RESTART;
        (void)sigaction(signal, &noted, nullptr); // cannot fail for these signals
    }
}

bool IsInterrupted() noexcept {
    return interruptSeen != 0;
}

bool OutputIsTerminal() noexcept {
    const char* kind = std::getenv("TERM"); // a dumb one shows sequences as they are
    return isatty(STDOUT_FILENO) == 1 && (kind == nullptr || std::string_view(kind) != "dumb");
}

bool ErrorIsTerminal() noexcept {
    return isatty(STDERR_FILENO) != 0;
}

std::string Utf8FromNative(std::string_view text) {
    return std::string(text); // UTF-8 is the native set
}

std::string NativeFromUtf8(std::string_view text) {
    return std::string(text);
}

void FlushToDisk(const std::filesystem::path& path) {
    const Descriptor opened(path, O_RDONLY);
    Check(opened.IsOpen() && fsync(opened.Get()) == 0, "flush", path);
}

// Not by the standard library, whose copy answers a full disk with "Input/output error".
void CopyFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    const auto check = [&](bool worked) {
        if (!worked) {
            throw std::filesystem::filesystem_error("copy", from, to, {errno, std::generic_category()});
        }
    };
    const Descriptor source(from, O_RDONLY);
    Check(source.IsOpen(), "open", from);
    const Descriptor target(to, O_WRONLY | O_CREAT | O_TRUNC);
    check(target.IsOpen());
    struct stat facts = {};
    check(fstat(source.Get(), &facts) == 0 && fchmod(target.Get(), facts.st_mode & 07777) == 0);
    TakeOwner(to, from);
    constexpr size_t chunk = size_t{1} << 26;
    for (ssize_t copied = 1; copied > 0;) {
        if (IsInterrupted()) {
            throw Failure(interrupted, "interrupted");
        }
        copied = sendfile(target.Get(), source.Get(), nullptr, chunk);
        check(copied >= 0);
    }
    check(fsync(target.Get()) == 0);
}

uintmax_t NumberOfNames(const std::filesystem::path& file) noexcept {
    std::error_code unknown;
    const uintmax_t names = std::filesystem::hard_link_count(file, unknown);
    return unknown ? 1 : names;
}

void TakeOwner(const std::filesystem::path& path, const std::filesystem::path& from) noexcept {
    struct stat old = {};
    if (stat(from.c_str(), &old) == 0) {
        [[maybe_unused]] const int owner = chown(path.c_str(), old.st_uid, old.st_gid); // only some processes may
    }
}

std::string WhyUnreadable(const std::filesystem::path& file) {
    const Descriptor opened(file, O_RDONLY);
    return opened.IsOpen() ? "" : std::strerror(errno);
}

std::string WhyUnwritable(const std::filesystem::path& path) {
    return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 ? "" : std::strerror(errno);
}

bool IsInUse(const std::filesystem::path& database) {
    const Descriptor opened(database, O_RDONLY); // its users share a lock of this kind, which goes with the descriptor
    return opened.IsOpen() && flock(opened.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

void KeepRoomForLine(const std::filesystem::path& file) noexcept {
    const Descriptor opened(file, O_WRONLY | O_CREAT);
    struct stat facts = {};
    constexpr off_t room = 4096;
    if (opened.IsOpen() && fstat(opened.Get(), &facts) == 0) {
        [[maybe_unused]] const int kept = fallocate(opened.Get(), FALLOC_FL_KEEP_SIZE, facts.st_size, room); // tried
    }
}

void AppendLine(const std::filesystem::path& file, const std::string& line) {
    const Descriptor opened(file, O_WRONLY | O_APPEND | O_CREAT);
    Check(opened.IsOpen(), "open", file);
    const std::string text = line + '\n';
    const ssize_t written = write(opened.Get(), text.data(), text.size());
    if (written > 0 && written < static_cast<ssize_t>(text.size())) { // a full disk: no half line stays
        const off_t end = lseek(opened.Get(), 0, SEEK_CUR);
        [[maybe_unused]] const int cut = ftruncate(opened.Get(), end - written); // tried; the failure is told below
        errno = ENOSPC;
    }
    Check(written == static_cast<ssize_t>(text.size()), "write", file);
}

std::optional<HeldFile> HeldFile::Take(const std::filesystem::path& file, const std::string& text) {
    for (;;) {
        Descriptor opened(file, O_RDWR | O_CREAT | O_NOFOLLOW);
        Check(opened.IsOpen(), "open", file);
        struct flock lock = WholeFile();
        if (fcntl(opened.Get(), F_OFD_SETLK, &lock) != 0) {
            Check(errno == EAGAIN || errno == EACCES, "lock", file);
            return std::nullopt;
        }
        if (!IsStill(opened.Get(), file)) {
            continue;
        }
        HeldFile held(file, opened.Release());
        const int descriptor = static_cast<int>(held.handle_);
        Check(fchmod(descriptor, 0644) == 0 && ftruncate(descriptor, 0) == 0, "write", file);
        // Others are to see who holds it. On a full disk, which may be what is to be mended, they see that somebody
        // does.
        [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
        return held;
    }
}

std::optional<std::string> HeldFile::TextOfHolder(const std::filesystem::path& file) {
    const Descriptor opened(file, O_RDONLY);
    if (!opened.IsOpen() && errno == EACCES) {
        return "another user's krxpatch (" + file.string() + " cannot be read)";
    }
    struct flock lock = WholeFile();
    if (!opened.IsOpen() || fcntl(opened.Get(), F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) {
        return std::nullopt;
    }
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

HeldFile::HeldFile(HeldFile&& other) noexcept
    : file_(std::move(other.file_)), handle_(std::exchange(other.handle_, noHandle)) {}

HeldFile::~HeldFile() {
    if (handle_ != noHandle) {
        (void)unlink(file_.c_str()); // still held, so that nobody else can hold what goes away
        (void)close(static_cast<int>(handle_));
    }
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
