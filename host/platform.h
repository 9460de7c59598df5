// The one seam of krxpatch to the operating system: platform_<system>.cpp implements it and the build picks one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace krxpatch::platform {

/** The file name of the upgrade module. */
extern const char* const moduleFile;

/** The folder that this program was started from. */
[[nodiscard]] std::filesystem::path ExecutableFolder();

/** This process to people who look for it: user, host and process number, in one line. */
[[nodiscard]] std::string DescribeProcess();

/** The arguments of the command line behind the program's name, in UTF-8. */
[[nodiscard]] std::vector<std::string> Arguments(int argc, char** argv);

/** From here on a reader of this program's output who goes away does not end it: what it prints then is lost. A console
 *  takes it as UTF-8. */
void PrepareOutput();

/** Whether a person reads standard output, or standard error, as it is written. */
[[nodiscard]] bool OutputIsTerminal() noexcept;
[[nodiscard]] bool ErrorIsTerminal() noexcept;

/** From here on what would end this program from outside (a key of the terminal, a closed terminal, the system's
 *  shutdown) is only noted, so that the program can say what state things are in. */
void NoteInterrupts() noexcept;
[[nodiscard]] bool IsInterrupted() noexcept;

/** Texts of the module, which are in the native character set, and the other way round. What a set lacks becomes its
 *  replacement character. */
[[nodiscard]] std::string Utf8FromNative(std::string_view text);
[[nodiscard]] std::string NativeFromUtf8(std::string_view text);

/** Waits until a file, or the names in a folder, are on the disk. Throws filesystem_error when they cannot get
 *  there. */
void FlushToDisk(const std::filesystem::path& path);

/** Makes `to`, or overwrites it, with the bytes, the access rights and the owner of a file, and waits until it is on
 *  the disk. Throws filesystem_error with both names and the system's own cause, and Failure when somebody asks this
 *  process to end meanwhile. */
void CopyFile(const std::filesystem::path& from, const std::filesystem::path& to);

/** Gives a file or folder to the user whom `from` belongs to, where this process may: a server that runs as another
 *  user must still be able to open it. Nothing happens where the system has no such notion. */
void TakeOwner(const std::filesystem::path& path, const std::filesystem::path& from) noexcept;

/** How many names a file has on its disk; 1 when that cannot be found out. The library's own count is 1 on Windows. */
[[nodiscard]] uintmax_t NumberOfNames(const std::filesystem::path& file) noexcept;

/** Why a file or folder cannot be read or written, in the system's words; empty when it can. Both leave it
 *  as it is. */
[[nodiscard]] std::string WhyUnreadable(const std::filesystem::path& file);
[[nodiscard]] std::string WhyUnwritable(const std::filesystem::path& path);

/** Whether another process has a database open at this moment. */
[[nodiscard]] bool IsInUse(const std::filesystem::path& database);

/** Keeps room on the disk for a line that is added to a file later, where the system can do that. The file is made if
 *  need be. */
void KeepRoomForLine(const std::filesystem::path& file) noexcept;

/** Adds a line to the end of a file, which is made if need be, in one write. Throws filesystem_error. */
void AppendLine(const std::filesystem::path& file, const std::string& line);

/** A file that one process at a time holds. The system lets go of it when the process ends, however that happens. */
class HeldFile {
public:
    /** Makes the file with this text in it, if there is room, in place of one that nobody holds; nothing when another
     *  process holds it. Never waits. Throws filesystem_error when the file cannot be made. */
    [[nodiscard]] static std::optional<HeldFile> Take(const std::filesystem::path& file, const std::string& text);

    /** The text of the process that holds the file; nothing when none does. Of a file that this user may not read, who
     *  knows: it counts as held. Writes nothing, and keeps nobody from taking the file. */
    [[nodiscard]] static std::optional<std::string> TextOfHolder(const std::filesystem::path& file);

    HeldFile(HeldFile&& other) noexcept;
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;
    /** Removes the file. */
    ~HeldFile();

private:
    HeldFile(std::filesystem::path file, std::intptr_t handle) : file_(std::move(file)), handle_(handle) {}

    std::filesystem::path file_;
    std::intptr_t handle_; // of the open file; noHandle once moved from

    static constexpr std::intptr_t noHandle = -1;
};

/** A library loaded into this process, for as long as this object lives. */
class Library {
public:
    /** Throws Failure with the file and the cause, as something that is missing. */
    explicit Library(const std::filesystem::path& file);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** The function that the library exports under this name; throws Failure when it exports none. */
    template<class Function>
    [[nodiscard]] Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(FindAddress(name));
    }

private:
    [[nodiscard]] void* FindAddress(const char* name) const;

    std::filesystem::path file_;
    void* handle_;
};

} // namespace krxpatch::platform
