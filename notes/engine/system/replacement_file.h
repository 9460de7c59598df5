// A file that takes another's place whole or not at all.
#pragma once

#include <filesystem>
#include <string_view>

namespace embedded {

/** The name of a database's rollback journal, which stands beside it while a transaction is open. */
[[nodiscard]] std::filesystem::path JournalOf(std::filesystem::path database);

/** A name of our own in the target's folder. What stands under it is removed, with its journal, unless Commit() made
 *  it the target. */
class ReplacementFile {
public:
    /** Under a name that no other process uses. What a process leaves that dies stays. */
    explicit ReplacementFile(std::filesystem::path target);
    /** Under the target's name with this suffix, for targets that one process at a time replaces: what one leaves that
     *  dies goes with the next replacement. */
    ReplacementFile(std::filesystem::path target, std::string_view suffix);
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile() { Remove(); }

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return file_; }

    /** Puts the file, which nobody has open, into the target's place; the disk has it then. Throws StatusError. */
    void Commit();

private:
    void Remove() noexcept;

    std::filesystem::path target_;
    std::filesystem::path file_;
};

} // namespace embedded
