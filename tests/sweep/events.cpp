// Calls are seen through the platform's hooks. Allocations and file operations are seen because the linker puts the
// functions below in the place of the library's (--wrap), in the module and in the standard library's code that it
// uses; the platform, a library of its own, keeps the originals.
#include "events.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "embedded_notes.h"

namespace sweep {
namespace {

Listener listener;
bool active = false;
bool moduleHere = false; // its streams and allocations are seen
Counts seen = {};
Disturbance armed;
bool happened = false;
size_t live = 0;
std::vector<size_t> openCalls; // the numbers of the calls that have not returned, as searches nest them

/** Counts an event; true when it is the one to disturb. */
bool Begin(Kind kind, const char* operation) {
    const size_t number = ++seen[kind];
    active = false; // what follows is this program's own
    listener(kind, operation);
    active = true;
    const bool hit = armed.kind == kind && armed.n == number;
    happened |= hit;
    if (hit && armed.effect == Effect::diesBefore) {
        _exit(deathCode);
    }
    return hit;
}

/** Whether everything of this kind fails by now, this event included. */
bool EverythingFails(Kind kind) {
    return armed.kind == kind && armed.effect == Effect::everythingFails && armed.n != 0 && seen[kind] >= armed.n;
}

void End(Kind kind, size_t number) {
    if (armed.kind == kind && armed.n == number && armed.effect == Effect::diesAfter) {
        active = false;
        EmbSessionEnd(); // writes what databases that are open hold back
        _exit(deathCode);
    }
}

void LNCALLBACK BeforeCall(void*, const char* operation) {
    const bool hit = Begin(call, operation);
    active = false;
    openCalls.push_back(seen[call]);
    if (hit && !armed.IsDeath()) {
        const char* failing = armed.effect == Effect::operationFails ? operation : nullptr;
        (void)EmbFaultArm(failing, 1, armed.status, armed.effect != Effect::fails);
    }
    active = true;
}

void LNCALLBACK AfterCall(void*, const char*) {
    End(call, openCalls.back());
    openCalls.pop_back();
}

constexpr size_t headSize = alignof(std::max_align_t); // of a block: it says whether the block was counted

/** Carries out a file operation, or what it does when it fails, or half of it. */
template<class Failed, class Whole, class Half>
auto FileOperation(std::string_view operation, Failed failed, Whole whole, Half half) {
    const bool stream = operation.starts_with('f') && operation != "fsync";
    if (!active || (stream && !moduleHere)) {
        return whole();
    }
    const bool hit = Begin(file, operation.data());
    const size_t number = seen[file];
    const bool full = EverythingFails(file) && operation != "fread" && operation != "unlink";
    if (full || (hit && !armed.IsDeath())) {
        errno = ENOSPC;
        return armed.effect == Effect::doesHalf ? half() : failed();
    }
    const auto result = whole();
    End(file, number);
    return result;
}

template<class Result, class Whole>
Result FileOperation(std::string_view operation, Result failed, Whole whole) {
    const auto fail = [&] { return failed; };
    return FileOperation(operation, fail, whole, fail);
}

const std::FILE* unreadable = nullptr; // its last read was made to fail
const std::FILE* logFile = nullptr;    // opened to be added to, as only the log is

} // namespace

void StartEvents(Runner runner, Listener to) {
    listener = std::move(to);
    moduleHere = runner == Runner::module;
    seen = {};
    EmbCallHookSet(BeforeCall, nullptr);
    EmbReturnHookSet(AfterCall, nullptr);
    active = true;
}

void StopEvents() {
    active = false;
    EmbCallHookSet(nullptr, nullptr);
    EmbReturnHookSet(nullptr, nullptr);
}

const Counts& SeenEvents() {
    return seen;
}

void Arm(const Disturbance& disturbance) {
    armed = disturbance;
}

bool HasHappened() {
    return happened;
}

size_t LiveAllocations() {
    return live;
}

} // namespace sweep

// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes these names
extern "C" {

// operator new and delete; the others are made of these
void* __wrap__Znwm(size_t size) {
    const bool counted = sweep::active && sweep::moduleHere;
    const bool fails =
        counted && (sweep::Begin(sweep::allocation, "operator new") || sweep::EverythingFails(sweep::allocation));
    char* block = fails ? nullptr : static_cast<char*>(std::malloc(sweep::headSize + size));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    *block = counted;
    sweep::live += counted;
    return block + sweep::headSize;
}
void __wrap__ZdlPv(void* address) {
    if (address != nullptr) {
        char* block = static_cast<char*>(address) - sweep::headSize;
        sweep::live -= *block != 0;
        std::free(block);
    }
}

std::FILE* __real_fopen(const char*, const char*);
size_t __real_fread(void*, size_t, size_t, std::FILE*);
size_t __real_fwrite(const void*, size_t, size_t, std::FILE*);
int __real_ferror(std::FILE*);
int __real_fflush(std::FILE*);
int __real_fclose(std::FILE*);
int __real_fsync(int);
int __real_rename(const char*, const char*);
int __real_unlink(const char*);

// The module's own pauses, on servers that do not wait for it: time passes without them.
int __wrap_nanosleep(const std::timespec* time, std::timespec* /*remaining*/) {
    EmbClockAdvance(time->tv_sec * 100 + time->tv_nsec / 10'000'000);
    return 0;
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    const bool isLog = *mode == 'a';
    std::FILE* opened = sweep::FileOperation<std::FILE*>(isLog ? "fopen of the log" : "fopen", nullptr,
                                                         [&] { return __real_fopen(path, mode); });
    if (isLog) {
        sweep::logFile = opened;
    }
    return opened;
}

size_t __wrap_fread(void* buffer, size_t size, size_t count, std::FILE* file) {
    const auto read = [&](size_t some) { return __real_fread(buffer, size, some, file); };
    const auto fail = [&](size_t some) {
        sweep::unreadable = file;
        return read(some);
    };
    return sweep::FileOperation(
        "fread", [&] { return fail(0); }, [&] { return read(count); }, [&] { return fail(count / 2); });
}

int __wrap_ferror(std::FILE* file) {
    return sweep::unreadable == file ? EIO : __real_ferror(file);
}

size_t __wrap_fwrite(const void* bytes, size_t size, size_t count, std::FILE* file) {
    const auto write = [&](size_t some) { return __real_fwrite(bytes, size, some, file); };
    return sweep::FileOperation(
        "fwrite", [&] { return write(0); }, [&] { return write(count); }, [&] { return write(count / 2); });
}

int __wrap_fprintf(std::FILE* file, const char* format, ...) __attribute__((format(printf, 2, 3)));
int __wrap_fprintf(std::FILE* file, const char* format, ...) {
    char text[8192];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const auto write = [&](int some, int result) {
        (void)__real_fwrite(text, 1, static_cast<size_t>(some), file);
        return result;
    };
    return sweep::FileOperation(
        "fprintf to the log", [&] { return write(0, -1); }, [&] { return write(length, length); },
        [&] { return write(length / 2, -1); });
}

int __wrap_fflush(std::FILE* file) {
    return sweep::FileOperation("fflush", EOF, [&] { return __real_fflush(file); });
}

int __wrap_fclose(std::FILE* file) {
    sweep::unreadable = sweep::unreadable == file ? nullptr : sweep::unreadable;
    const auto close = [&] { return __real_fclose(file); };
    const auto fail = [&] {
        (void)close(); // closed it is in any case
        return EOF;
    };
    return sweep::FileOperation(file == sweep::logFile ? "fclose of the log" : "fclose", fail, close, fail);
}

int __wrap_fsync(int descriptor) {
    return sweep::FileOperation("fsync", -1, [&] { return __real_fsync(descriptor); });
}

int __wrap_rename(const char* from, const char* to) {
    return sweep::FileOperation("rename", -1, [&] { return __real_rename(from, to); });
}

int __wrap_unlink(const char* path) {
    return sweep::FileOperation("unlink", -1, [&] { return __real_unlink(path); });
}
}
// NOLINTEND(bugprone-reserved-identifier)
