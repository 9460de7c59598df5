// What servers may do differently: each behaviour under each of its values, by what a caller sees of it.
#include <cstdio>
#include <set>

#include "notes/notes_fixture.h"

namespace embedded::test {
namespace {

constexpr const char* otherPath = "krx/other.nsf";
constexpr const char* newPath = "krx/new.nsf";
constexpr const char* notes =
    "<document form='A'><noteinfo noteid='902' unid='0123456789ABCDEF0123456789ABCDEF'/></document>"
    "<document form='B'><noteinfo noteid='906' unid='AAAAAAAAAAAAAAAABBBBBBBBBBBBBBBB' sequence='3'/>"
    "<item name='Text'><text>first</text></item></document>"
    "<document form='A'><noteinfo noteid='90a'/></document><document form='C'><noteinfo noteid='90e'/></document>"
    "<note class='view' private='true'><noteinfo noteid='912'/></note>";

std::string Hex(unsigned value) {
    char text[9];
    std::snprintf(text, sizeof text, "%x", value);
    return text;
}

std::string Words(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

/** What calls answer. */
std::string Answers(std::initializer_list<unsigned> answers) {
    std::vector<std::string> words;
    for (const unsigned answer : answers) {
        words.push_back(Hex(answer));
    }
    return Words(words);
}

/** Note IDs, those that do not match in parentheses. */
std::string Deliveries(const SearchRun& run) {
    std::vector<std::string> words;
    for (const test::Delivery& delivery : run.deliveries) {
        words.push_back(delivery.match ? Hex(delivery.id) : "(" + Hex(delivery.id) + ")");
    }
    return Words(words);
}

class BehaviourConformance : public NotesFixture {
public:
    /** Both databases as they are made, in a new session. */
    void StartAnew() {
        EmbSessionEnd();
        for (const char* database : {path, otherPath, newPath}) {
            std::filesystem::remove(Data() / database);
        }
        SetUp();
        MakeDatabase(path, notes);
        MakeDatabase(otherPath, notes + std::string("<!-- other text, and so no replica -->"));
        database_ = Open();
        other_ = Open(otherPath);
    }
    void Close() const {
        EXPECT_EQ(NSFDbClose(database_), NOERROR);
        EXPECT_EQ(NSFDbClose(other_), NOERROR);
    }
    [[nodiscard]] STATUS Copy(NOTEID id, NOTEID* copy) const {
        return NSFDbCopyNote(database_, nullptr, nullptr, id, other_, nullptr, nullptr, copy, nullptr);
    }
    [[nodiscard]] STATUS CreateAndCopy(WORD mask) const {
        DBHANDLE made = NULLHANDLE;
        const STATUS status = NSFDbCreateAndCopy(path, newPath, mask, 0, 0, &made);
        if (status == NOERROR) {
            EXPECT_EQ(NSFDbClose(made), NOERROR);
        }
        return status;
    }
    /** A note of the other database that is to have this UNID. */
    [[nodiscard]] STATUS CreateUnder(OID oid) const {
        const Note note = Note::Create(other_);
        NSFNoteSetInfo(note, _NOTE_OID, &oid);
        return note.Update();
    }
    /** What is left of another note's identity: "kept", "half" or "new", and the sequence number. */
    static std::string Identity(const OID& from, const OID& to) {
        const bool file = std::memcmp(&from.File, &to.File, sizeof from.File) == 0;
        const bool note = std::memcmp(&from.Note, &to.Note, sizeof from.Note) == 0;
        return (note   ? file ? "kept " : "half "
                : file ? "?"
                       : "new ") +
               Hex(to.Sequence) + (to.SequenceTime.Innards[1] != 0 ? "" : " without a time");
    }

    std::string CopyUnid() {
        EXPECT_EQ(NSFNoteDelete(other_, 0x906, UPDATE_NOSTUB), NOERROR);
        const auto copy = [&](NOTEID from) {
            NOTEID id = 0;
            const STATUS status = Copy(from, &id);
            return status == NOERROR ? Identity(Note(database_, from).Oid(), Note(other_, id).Oid()) : Hex(status);
        };
        std::string seen = copy(0x906);
        seen += ", beside it " + copy(0x906);
        DBREPLICAINFO info;
        EXPECT_EQ(NSFDbReplicaInfoGet(database_, &info), NOERROR);
        EXPECT_EQ(NSFDbReplicaInfoSet(other_, &info), NOERROR);
        EXPECT_EQ(NSFNoteDelete(other_, 0x902, UPDATE_NOSTUB), NOERROR);
        return seen + ", to a replica " + copy(0x902);
    }

    std::string StubUnid() {
        const OID oid = Note(other_, 0x906).Oid();
        EXPECT_EQ(NSFNoteDelete(other_, 0x906, 0), NOERROR);
        const STATUS created = CreateUnder(oid);
        NOTEID id = 0x906;
        if (created == NOERROR) {
            UNID unid = {oid.File, oid.Note};
            Note made;
            EXPECT_EQ(NSFNoteOpenByUNID(other_, &unid, 0, made.Out()), NOERROR);
            id = made.Id();
            made.Close();
            EXPECT_EQ(NSFNoteDelete(other_, id, 0), NOERROR);
        } else {
            EXPECT_EQ(Copy(0x906, nullptr), ERR_NOTE_DELETED);
        }
        EXPECT_EQ(NSFNoteDelete(other_, id, UPDATE_NOSTUB), NOERROR);
        return Answers({created, Copy(0x906, nullptr)});
    }

    std::string UnidChange() {
        const Note note(database_, 0x906);
        const OID before = note.Oid();
        OID wanted = before;
        wanted.File.Innards[0] = wanted.Note.Innards[0] = 42;
        wanted.Sequence = 9;
        NSFNoteSetInfo(note, _NOTE_OID, &wanted);
        const STATUS status = note.Update();
        return Hex(status) + " " + Identity(before, Note(database_, 0x906).Oid());
    }

    std::string DeletedPath() {
        EXPECT_EQ(NSFDbClose(other_), NOERROR);
        EXPECT_EQ(NSFTakeDatabaseOffline(otherPath, 0, 0), NOERROR);
        const STATUS opened = NSFDbOpen(otherPath, &other_);
        const auto make = [&] { return NSFDbCreateAndCopy(path, otherPath, NOTE_CLASS_ALL, 0, 0, &other_); };
        const STATUS made = make();
        if (made != NOERROR) {
            EXPECT_EQ(NSFBringDatabaseOnline(otherPath, 0), NOERROR);
            EXPECT_EQ(make(), NOERROR);
        }
        return Answers({opened, made});
    }

    std::string OfflinePath() {
        EXPECT_EQ(NSFDbClose(other_), NOERROR);
        const std::string full = (Data() / otherPath).string();
        const STATUS relativeOff = NSFTakeDatabaseOffline(otherPath, 0, OFFLINE_NODELETE);
        const STATUS fullOff = NSFTakeDatabaseOffline(full.c_str(), 0, OFFLINE_NODELETE);
        const STATUS relativeOn = NSFBringDatabaseOnline(otherPath, 0);
        const STATUS fullOn = NSFBringDatabaseOnline(full.c_str(), 0);
        other_ = Open(otherPath);
        return Answers({relativeOff, fullOff, relativeOn, fullOn});
    }

    std::string AppendToText() {
        const Note note(database_, 0x906);
        EXPECT_EQ(NSFItemAppendTextList(note, "List", "x", 1, 0), NOERROR);
        EXPECT_EQ(NSFItemAppendTextList(note, "List", "y", 1, 0), NOERROR);
        const STATUS status = NSFItemAppendTextList(note, "Text", "second", 6, 0);
        return Hex(status) + " " + Words(note.List("Text")) + " " + Words(note.List("List"));
    }

    std::string EntriesOfText() {
        const Note note(database_, 0x906);
        EXPECT_EQ(NSFItemCreateTextList(note, "List", "x", 1), NOERROR);
        char buffer[8];
        return Answers({NSFItemGetTextListEntries(note, "Text"),
                        NSFItemGetTextListEntry(note, "Text", 0, buffer, sizeof buffer),
                        NSFItemGetTextListEntries(note, "List")});
    }

    std::string IdleDelay() {
        EmbClockSetVirtual(1'000'000);
        const BOOL told = AddInIdleDelay(500);
        return std::to_string(told) + " " + std::to_string(EmbClockWaited());
    }

    std::string PrivateDesign() {
        const auto made = [&](WORD mask) {
            if (const STATUS status = CreateAndCopy(mask); status != NOERROR) {
                return Hex(status);
            }
            DBHANDLE copy = Open(newPath);
            const size_t found = Search(copy, nullptr, NOTE_CLASS_ALL).deliveries.size();
            EXPECT_EQ(NSFDbClose(copy), NOERROR);
            std::filesystem::remove(Data() / newPath);
            return std::to_string(found) + " notes";
        };
        return made(NOTE_CLASS_ALL) + ", " + made(NOTE_CLASS_ALL & ~NOTE_CLASS_PRIVATE);
    }

    std::string Delivery() {
        EXPECT_EQ(NSFNoteDelete(database_, 0x90a, 0), NOERROR);
        return Deliveries(Search(database_, "Form = \"B\"", NOTE_CLASS_DOCUMENT)) + ", all " +
               Deliveries(Search(database_, nullptr, NOTE_CLASS_DOCUMENT));
    }

    std::string UpdatedNote() {
        return Deliveries(
            Search(database_, nullptr, NOTE_CLASS_DOCUMENT, [&](const test::Delivery& delivery) -> STATUS {
                return delivery.id == 0x906 ? Note(database_, 0x906).Update(UPDATE_FORCE) : NOERROR;
            }));
    }

    std::string SignAgain() {
        EXPECT_EQ(EmbBehaviourSet("delete-item", "first"), NOERROR);
        const Note note(database_, 0x912);
        EXPECT_EQ(NSFNoteSign(note), NOERROR);
        note.SetText("Text", "later");
        EXPECT_EQ(NSFNoteSign(note), NOERROR);
        EXPECT_EQ(note.Update(), NOERROR);
        EMBSIGNATURES counts;
        EXPECT_EQ(EmbSignatures(path, NOTE_CLASS_VIEW, &counts, nullptr, 0), NOERROR);
        EXPECT_EQ(counts.changedNotes, 0U) << "the last one counts";
        unsigned items = 0;
        while (NSFItemDelete(note, "$Signature", 10) == NOERROR) {
            ++items;
        }
        return Hex(items);
    }

    std::string DeleteItem() {
        const Note note(database_, 0x906);
        EXPECT_EQ(NSFItemAppend(note, 0, "TEXT", 4, TYPE_TEXT, "2", 1), NOERROR);
        const STATUS status = NSFItemDelete(note, "Text", 4);
        return Hex(status) + " '" + note.Text("Text") + "'";
    }

    std::string GetTextSize() {
        const Note note(database_, 0x906);
        char buffer[] = "######";
        const WORD length = NSFItemGetText(note, "Text", buffer, 4);
        return Hex(length) + " " + buffer;
    }

    std::string TranslateResult() {
        constexpr WORD fromUtf8 = 24;
        char out[8];
        return Answers({OSTranslate(fromUtf8, "abc", MAXWORD, out, sizeof out),
                        OSTranslate(fromUtf8, "abc", MAXWORD, out, 3),
                        OSTranslate(fromUtf8, "abc", 3, out, sizeof out)});
    }

    std::string FailedHandles() {
        UNID nobody{};
        const std::function<STATUS(DHANDLE*)> failing[] = {
            [](DHANDLE* out) { return NSFDbOpen("krx/none.nsf", out); },
            [&](DHANDLE* out) { return NSFNoteOpenByUNID(database_, &nobody, 0, out); },
            [](DHANDLE* out) {
                EXPECT_EQ(EmbFaultArm("OSMemAlloc", 1, ERR_MEMORY, 0), NOERROR);
                return OSMemAlloc(0, 8, out);
            },
        };
        constexpr DHANDLE before = 77;
        std::set<std::string> seen;
        for (const auto& fails : failing) {
            DHANDLE handle = before;
            EXPECT_NE(fails(&handle), NOERROR);
            seen.insert(handle == NULLHANDLE ? "zero" : handle == before ? "as before" : "anything");
        }
        return Words({seen.begin(), seen.end()});
    }

    std::string SoftDeletion() {
        const OID oid = Note(other_, 0x906).Oid();
        EXPECT_EQ(NSFNoteDelete(other_, 0x906, 0), NOERROR);
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteOpen(other_, 0x906, 0, &note), ERR_NOTE_DELETED);
        std::string flags;
        for (const test::Delivery& delivery :
             Search(other_, nullptr, NOTE_CLASS_DOCUMENT, nullptr, SEARCH_ALL_VERSIONS).deliveries) {
            if (delivery.id & RRV_DELETED) {
                flags += Hex(delivery.flags);
            }
        }
        const STATUS created = CreateUnder(oid);
        if (created != NOERROR) {
            EXPECT_EQ(Copy(0x906, nullptr), ERR_DUPLICATE_UNID);
            EXPECT_EQ(NSFNoteDelete(other_, 0x906, UPDATE_NOSTUB), NOERROR);
            EXPECT_EQ(Copy(0x906, nullptr), NOERROR);
        }
        return flags + " " + Hex(created);
    }

    std::string SearchOrder() {
        using Ids = std::vector<NOTEID>;
        const Ids all = {0x902, 0x906, 0x90a, 0x90e, 0x912};
        const Ids found = Search(database_, nullptr, NOTE_CLASS_ALL).Matches();
        EXPECT_EQ(Search(database_, nullptr, NOTE_CLASS_ALL).Matches(), found);
        EXPECT_TRUE(std::is_permutation(found.begin(), found.end(), all.begin(), all.end()));
        return found == all ? "ascending" : found == Ids(all.rbegin(), all.rend()) ? "descending" : "another";
    }

private:
    DBHANDLE database_ = NULLHANDLE;
    DBHANDLE other_ = NULLHANDLE;
};
using Behaviour = BehaviourConformance;

const struct {
    const char* behaviour;
    std::string (Behaviour::*see)();
    std::vector<std::pair<const char*, const char*>> expected; // of each value, the default first
} cases[] = {
    {"copy-unid",
     &Behaviour::CopyUnid,
     {{"kept", "kept 3, beside it 2b8, to a replica kept 1"},
      {"kept-if-free", "kept 3, beside it new 1, to a replica kept 1"},
      {"half", "half 3, beside it new 1, to a replica kept 1"},
      {"new", "new 1, beside it new 1, to a replica kept 1"}}},
    {"stub-unid", &Behaviour::StubUnid, {{"replaced", "0 0"}, {"taken", "2b8 0"}}},
    {"unid-change",
     &Behaviour::UnidChange,
     {{"allowed", "0 new a"}, {"refused", "2c1 kept 3"}, {"ignored", "0 kept 4"}}},
    {"deleted-path", &Behaviour::DeletedPath, {{"free", "103 0"}, {"offline", "13f9 13f9"}}},
    {"offline-path", &Behaviour::OfflinePath, {{"relative", "0 0 0 0"}, {"full", "103 0 103 0"}}},
    {"append-to-text", &Behaviour::AppendToText, {{"converts", "0 first second x y"}, {"refused", "3e09 first x y"}}},
    {"entries-of-text", &Behaviour::EntriesOfText, {{"one", "1 5 1"}, {"none", "0 0 1"}}},
    {"idle-delay", &Behaviour::IdleDelay, {{"waits", "0 500"}, {"quit", "1 0"}}},
    {"private-design", &Behaviour::PrivateDesign, {{"copied", "5 notes, 4 notes"}, {"refused", "246, 4 notes"}}},
    {"search",
     &Behaviour::Delivery,
     {{"matches", "906, all 902 906 90e"}, {"all", "(902) 906 (90e), all 902 906 90e"}}},
    {"updated-note", &Behaviour::UpdatedNote, {{"once", "902 906 90a 90e"}, {"again", "902 906 90a 90e 906"}}},
    {"sign-again", &Behaviour::SignAgain, {{"replaces", "1"}, {"appends", "2"}}},
    {"delete-item", &Behaviour::DeleteItem, {{"all", "0 ''"}, {"first", "0 '2'"}}},
    {"get-text-size", &Behaviour::GetTextSize, {{"without-terminator", "4 firs##"}, {"with-terminator", "3 fir"}}},
    {"translate-result", &Behaviour::TranslateResult, {{"without-terminator", "3 2 3"}, {"with-terminator", "4 3 3"}}},
    {"failed-handles", &Behaviour::FailedHandles, {{"zero", "zero"}, {"kept", "as before"}, {"garbage", "anything"}}},
    {"soft-deletion", &Behaviour::SoftDeletion, {{"off", "0 0"}, {"on", "10 2b8"}}},
    {"search-order",
     &Behaviour::SearchOrder,
     {{"ascending", "ascending"}, {"descending", "descending"}, {"shuffled", "another"}}},
};

TEST_F(BehaviourConformance, EachValueIsSeen) {
    DWORD row = 0;
    for (const auto& [behaviour, see, expected] : cases) {
        EXPECT_STREQ(EmbBehaviourName(row++), behaviour);
        DWORD index = 0;
        for (const auto& [value, seen] : expected) {
            SCOPED_TRACE(std::string(behaviour) + "=" + value);
            StartAnew();
            EXPECT_STREQ(EmbBehaviourValue(behaviour, index), value);
            EXPECT_EQ(std::string(EmbBehaviourInForce(behaviour)) == value, index == 0);
            EXPECT_EQ(EmbBehaviourSet(behaviour, value), NOERROR);
            EXPECT_STREQ(EmbBehaviourInForce(behaviour), value);
            EXPECT_EQ((this->*see)(), seen);
            Close();
            ++index;
        }
        EXPECT_EQ(EmbBehaviourValue(behaviour, index), nullptr) << behaviour;
        EXPECT_EQ(EmbBehaviourSet(behaviour, nullptr), NOERROR);
        EXPECT_STREQ(EmbBehaviourInForce(behaviour), EmbBehaviourValue(behaviour, 0));
    }
    EXPECT_EQ(EmbBehaviourName(row), nullptr);
}

TEST_F(BehaviourConformance, WhatIsUnknownIsRefusedByName) {
    EXPECT_EQ(EmbBehaviourSet("copy-id", "new"), EMB_ERR_ARGUMENT);
    EXPECT_EQ(EmbBehaviourSet("copy-unid", "newer"), EMB_ERR_ARGUMENT);
    EXPECT_EQ(EmbBehaviourSet(nullptr, "new"), EMB_ERR_ARGUMENT);
    EXPECT_STREQ(EmbBehaviourInForce("copy-unid"), "kept");
    EXPECT_EQ(EmbBehaviourInForce("copy-id"), nullptr);
    EXPECT_EQ(EmbBehaviourValue("copy-id", 0), nullptr);
}

TEST_F(BehaviourConformance, NotesIniChoosesForASession) {
    const auto ini = Server() / "notes.ini";
    const std::string plain = updkrx::test::ReadFile(ini);
    const struct {
        const char* line;
        STATUS status;
        const char* value;              // of copy-unid
        std::vector<const char*> parts; // of the message
    } lines[] = {
        {" copy-unid = new , search=all", NOERROR, "new", {}},
        {"copy-id=new", EMB_ERR_ARGUMENT, nullptr, {"notes.ini", "'copy-id'", "copy-unid", "search-order"}},
        {"search=all,copy-unid=newer",
         EMB_ERR_ARGUMENT,
         nullptr,
         {"notes.ini", "'newer'", "copy-unid", "kept-if-free"}},
        {"copy-unid", EMB_ERR_ARGUMENT, nullptr, {"notes.ini", "'copy-unid'"}},
        {"", NOERROR, "kept", {}}, // what an earlier session had is forgotten
    };
    for (const auto& [line, status, value, parts] : lines) {
        updkrx::test::WriteFile(ini, plain + "EmbeddedBehaviour=" + line + "\n");
        EmbSessionEnd();
        char message[1024] = "";
        EXPECT_EQ(EmbSessionBegin(ini.string().c_str(), 0, message, sizeof message), status) << line;
        EXPECT_STREQ(EmbBehaviourInForce("copy-unid"), value);
        for (const char* part : parts) {
            EXPECT_NE(std::string(message).find(part), std::string::npos) << message;
        }
    }
}

} // namespace
} // namespace embedded::test
