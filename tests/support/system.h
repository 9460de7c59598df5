// What tests ask of the operating system; system_<system>.cpp implements it and the build picks one of them.
#pragma once

#include <cstdint>
#include <string>

namespace updkrx::test {

[[nodiscard]] int ProcessId();
/** Of the calling thread. */
[[nodiscard]] int ThreadId();

/** Ends the process as a kill does: no library hears of it. */
[[noreturn]] void Die(int exitCode);

/** Sets a variable of the process's environment; null removes it. */
void SetVariable(const char* name, const char* value);
/** Whether a process that is started now finds the variable with this value. */
[[nodiscard]] bool IsInherited(const std::string& name, const std::string& value);
/** Sets the time zone, in the form of the variable TZ with a name of three letters; null for the one before. */
void SetTimeZone(const char* zone);

/** A text in the native character set, "?" for what that lacks. */
[[nodiscard]] std::string Native(const std::string& utf8);

/** A library loaded into this process. */
class Library {
public:
    explicit Library(const char* file);
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library();

    /** Empty when it could be loaded. */
    [[nodiscard]] const std::string& Error() const noexcept { return error_; }
    /** Null when it exports no such function. */
    template<class Function>
    [[nodiscard]] Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(FindAddress(name));
    }
    [[nodiscard]] static bool IsLoaded(const char* file);

private:
    [[nodiscard]] void* FindAddress(const char* name) const;

    void* handle_;
    std::string error_;
};

/** A disk that is full: while this lives, no file of the process can grow beyond the limit. */
class FileSizeLimit {
public:
    explicit FileSizeLimit(uint64_t bytes);
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit();

    /** False where the system has no such limits; tests that need one are skipped there. */
    static const bool available;

private:
    uint64_t before_ = 0;
};

} // namespace updkrx::test
