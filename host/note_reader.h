// A database file, note by note in the order of the UNIDs, without a session.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "change_report.h"
#include "embedded_notes.h"

namespace krxpatch {

struct NamedItem {
    std::string name;
    ItemValue value;
};

/** One note is in memory at a time, and the file may be written by others meanwhile. */
class NoteReader {
public:
    /** Throws std::runtime_error that names the file and the cause. */
    explicit NoteReader(const std::filesystem::path& file);
    ~NoteReader();
    NoteReader(const NoteReader&) = delete;
    NoteReader& operator=(const NoteReader&) = delete;

    /** The settings of the database, or the lines of its access control list, in a fixed order. */
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> Facts(bool accessControl) const;

    /** Goes on to the next note, beginning with the first; false at the end. Throws as the constructor does. */
    bool Next();
    /** The note that Next() has gone on to. At the end its class is 0. */
    [[nodiscard]] const EMBNOTE& Note() const noexcept { return note_; }
    [[nodiscard]] bool AtEnd() const noexcept { return note_.noteClass == 0; }
    [[nodiscard]] bool IsDocument() const noexcept;
    /** Encoded: equal bytes are equal items. */
    [[nodiscard]] std::string_view Encoded() const noexcept { return {note_.items, note_.itemsSize}; }
    [[nodiscard]] std::vector<NamedItem> Items() const;

private:
    std::filesystem::path file_;
    EMBREADER* reader_ = nullptr;
    EMBNOTE note_{};
};

/** Throws as a NoteReader does. */
[[nodiscard]] bool HasDocuments(const std::filesystem::path& file);

/** The first item of a name, without regard to letter case; null when there is none. */
[[nodiscard]] const ItemValue* FindItem(const std::vector<NamedItem>& items, std::string_view name);
/** Its first value up to a line break, empty when there is none. */
[[nodiscard]] std::string FirstLine(const std::vector<NamedItem>& items, std::string_view name);

/** Who has saved the note, as $UpdatedBy has it, and who has signed it. */
[[nodiscard]] std::vector<std::string> EditorsIn(const std::vector<NamedItem>& items);

/** A class in words, with the default form or view and private notes told apart. */
[[nodiscard]] std::string ClassText(const EMBNOTE& note);

} // namespace krxpatch
