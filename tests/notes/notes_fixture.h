// What the conformance cases share: they are written against the Notes API and the control surface only, so that
// the same cases could be put to another library behind the same interface.
#pragma once

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/server_fixture.h"

namespace embedded::test {

class NotesFixture : public updkrx::test::ServerFixture {
protected:
    static constexpr const char* path = "krx/test.nsf";

    /** The database that the cases work on, open: made of these notes. */
    DBHANDLE Make(std::string_view notes) {
        MakeDatabase(path, notes);
        return Open();
    }
    static DBHANDLE Open(const char* database = path) {
        DBHANDLE handle = NULLHANDLE;
        EXPECT_EQ(NSFDbOpen(database, &handle), NOERROR) << database;
        return handle;
    }
};

/** An open note that closes itself. */
class Note {
public:
    Note() = default;
    Note(DBHANDLE database, NOTEID id, WORD flags = 0) {
        EXPECT_EQ(NSFNoteOpen(database, id, flags, &handle_), NOERROR);
    }
    static Note Create(DBHANDLE database) {
        Note note;
        EXPECT_EQ(NSFNoteCreate(database, &note.handle_), NOERROR);
        return note;
    }
    Note(Note&& other) noexcept : handle_(std::exchange(other.handle_, DHANDLE{NULLHANDLE})) {}
    Note& operator=(Note&&) = delete;
    ~Note() { Close(); }
    void Close() {
        if (handle_ != NULLHANDLE) {
            EXPECT_EQ(NSFNoteClose(std::exchange(handle_, DHANDLE{NULLHANDLE})), NOERROR);
        }
    }
    NOTEHANDLE* Out() { return &handle_; }
    operator NOTEHANDLE() const { return handle_; }

    [[nodiscard]] NOTEID Id() const { return Info<NOTEID>(_NOTE_ID); }
    [[nodiscard]] OID Oid() const { return Info<OID>(_NOTE_OID); }
    [[nodiscard]] WORD Class() const { return Info<WORD>(_NOTE_CLASS); }
    [[nodiscard]] std::string Text(const char* item) const {
        char buffer[1024];
        return {buffer, NSFItemGetText(handle_, item, buffer, sizeof buffer)};
    }
    [[nodiscard]] std::vector<std::string> List(const char* item) const {
        std::vector<std::string> entries;
        const WORD count = NSFItemGetTextListEntries(handle_, item);
        for (WORD i = 0; i < count; ++i) {
            char buffer[1024];
            entries.emplace_back(buffer, NSFItemGetTextListEntry(handle_, item, i, buffer, sizeof buffer));
        }
        return entries;
    }
    void SetText(const char* item, std::string_view text) const {
        EXPECT_EQ(NSFItemSetText(handle_, item, text.data(), static_cast<WORD>(text.size())), NOERROR);
    }
    [[nodiscard]] STATUS Update(WORD flags = 0) const { return NSFNoteUpdate(handle_, flags); }

private:
    template<typename T>
    [[nodiscard]] T Info(WORD member) const {
        T value{};
        NSFNoteGetInfo(handle_, member, &value);
        return value;
    }

    NOTEHANDLE handle_ = NULLHANDLE;
};

/** One delivery of a search. */
struct Delivery {
    NOTEID id;
    WORD noteClass;
    bool match;
    BYTE flags;
    bool operator==(const Delivery&) const = default;
};

struct SearchRun {
    STATUS status = NOERROR;
    std::vector<Delivery> deliveries;
    /** The IDs of the matches. */
    [[nodiscard]] std::vector<NOTEID> Matches() const {
        std::vector<NOTEID> ids;
        for (const Delivery& delivery : deliveries) {
            if (delivery.match) {
                ids.push_back(delivery.id);
            }
        }
        return ids;
    }
};

/** What a search does with each delivery; its result goes back to the search. */
using Step = std::function<STATUS(const Delivery&)>;

inline SearchRun Search(DBHANDLE database, const char* formula, WORD classMask, const Step& step = nullptr,
                        WORD flags = 0, TIMEDATE* since = nullptr) {
    struct Context {
        SearchRun run;
        const Step& step;
    } context{{}, step};
    FORMULAHANDLE compiled = NULLHANDLE;
    WORD unused = 0;
    STATUS detail = NOERROR;
    if (formula) {
        EXPECT_EQ(NSFFormulaCompile(nullptr, 0, formula, static_cast<WORD>(std::strlen(formula)), &compiled, &unused,
                                    &detail, &unused, &unused, &unused, &unused),
                  NOERROR);
    }
    const NSFSEARCHPROC collect = [](void* parameter, SEARCH_MATCH* match, ITEM_TABLE*) -> STATUS {
        auto& to = *static_cast<Context*>(parameter);
        SEARCH_MATCH copy;
        std::memcpy(&copy, match, sizeof copy);
        const Delivery delivery{copy.ID.NoteID, copy.NoteClass, (copy.SERetFlags & SE_FMATCH) != 0, copy.SERetFlags};
        to.run.deliveries.push_back(delivery);
        return to.step ? to.step(delivery) : NOERROR;
    };
    context.run.status = NSFSearch(database, compiled, nullptr, flags, classMask, since, collect, &context, nullptr);
    if (compiled != NULLHANDLE) {
        EXPECT_EQ(OSMemFree(compiled), NOERROR);
    }
    return context.run;
}

} // namespace embedded::test
