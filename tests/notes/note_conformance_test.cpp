// Notes behind the Notes API: copies in memory, versions, UNIDs, deletion stubs, copying, expanding, signing.
#include "notes/notes_fixture.h"

namespace embedded::test {
namespace {

constexpr const char* threeNotes =
    "<note class='form' default='true'><noteinfo noteid='902' unid='0123456789ABCDEF0123456789ABCDEF' sequence='7'/>"
    "<item name='$TITLE'><text>Rule</text></item></note>"
    "<document form='A'><noteinfo noteid='906' unid='AAAAAAAAAAAAAAAABBBBBBBBBBBBBBBB' sequence='3'/>"
    "<item name='Subject'><text>first</text></item><item name='One'><textlist><text>x</text></textlist></item>"
    "<item name='Size'><number>2.5</number></item></document>"
    "<document form='A'><noteinfo noteid='90a' unid='CCCCCCCCCCCCCCCCDDDDDDDDDDDDDDDD'/></document>";

UNID UnidOf(const OID& oid) {
    return {oid.File, oid.Note};
}

bool SameUnid(const OID& a, const OID& b) {
    return std::memcmp(&a, &b, sizeof(UNID)) == 0;
}

class NoteConformance : public NotesFixture {
protected:
    void SetUp() override {
        NotesFixture::SetUp();
        database_ = Make(threeNotes);
    }
    void TearDown() override {
        EXPECT_EQ(NSFDbClose(database_), NOERROR);
        NotesFixture::TearDown();
    }
    STATUS OpenStatus(NOTEID id) {
        NOTEHANDLE note = NULLHANDLE;
        const STATUS status = NSFNoteOpen(database_, id, 0, &note);
        if (status == NOERROR) {
            EXPECT_EQ(NSFNoteClose(note), NOERROR);
        }
        return status;
    }
    STATUS OpenStatus(UNID unid) {
        NOTEHANDLE note = NULLHANDLE;
        const STATUS status = NSFNoteOpenByUNID(database_, &unid, 0, &note);
        if (status == NOERROR) {
            EXPECT_EQ(NSFNoteClose(note), NOERROR);
        }
        return status;
    }

    DBHANDLE database_ = NULLHANDLE;
};

TEST_F(NoteConformance, ChangesStayInMemoryUntilTheUpdate) {
    Note changed(database_, 0x906), other(database_, 0x906);
    changed.SetText("Subject", "second");
    EXPECT_EQ(other.Text("Subject"), "first");
    EXPECT_EQ(Note(database_, 0x906).Text("Subject"), "first");
    EXPECT_EQ(changed.Update(), NOERROR);
    EXPECT_EQ(other.Text("Subject"), "first");
    EXPECT_EQ(Note(database_, 0x906).Text("Subject"), "second");
    // What the other one read is not the stored version any more.
    EXPECT_EQ(other.Update(), ERR_CONFLICT);
    EXPECT_EQ(other.Update(UPDATE_FORCE), NOERROR);
    EXPECT_EQ(other.Oid().Sequence, 5U);
    EXPECT_EQ(Note(database_, 0x906).Text("Subject"), "first");
}

TEST_F(NoteConformance, AnUpdateGivesTheNextVersionAndKeepsTheIdentity) {
    EmbClockSetVirtual(178'000'000'000);
    Note note(database_, 0x906);
    const OID before = note.Oid();
    EXPECT_EQ(before.Sequence, 3U);
    EXPECT_EQ(note.Update(), NOERROR);
    const OID after = note.Oid();
    EXPECT_EQ(after.Sequence, 4U);
    EXPECT_TRUE(SameUnid(before, after));
    EXPECT_EQ(note.Id(), 0x906U);
    TIMEDATE modified{};
    NSFNoteGetInfo(note, _NOTE_MODIFIED, &modified);
    EXPECT_EQ(std::memcmp(&modified, &after.SequenceTime, sizeof modified), 0);
    EXPECT_NE(std::memcmp(&before.SequenceTime, &after.SequenceTime, sizeof modified), 0);
}

TEST_F(NoteConformance, ACreatedNoteGetsItsIdWithTheFirstUpdate) {
    EmbClockSetVirtual(190'000'000'000); // later than the database was made
    Note note = Note::Create(database_);
    EXPECT_EQ(note.Id(), 0U);
    EXPECT_EQ(note.Class(), NOTE_CLASS_DOCUMENT);
    const OID oid = note.Oid();
    EXPECT_EQ(OpenStatus(UnidOf(oid)), ERR_NOT_FOUND);
    WORD replicationFormula = NOTE_CLASS_REPLFORMULA;
    NSFNoteSetInfo(note, _NOTE_CLASS, &replicationFormula);
    EXPECT_EQ(note.Update(), NOERROR);
    EXPECT_NE(note.Id(), 0U);
    EXPECT_EQ(note.Oid().Sequence, 1U);
    EXPECT_TRUE(SameUnid(oid, note.Oid()));
    const OID saved = note.Oid();
    EXPECT_EQ(std::memcmp(&oid.Note, &saved.SequenceTime, sizeof oid.Note), 0) << "the moment of its creation";
    EXPECT_EQ(Note(database_, note.Id()).Class(), NOTE_CLASS_REPLFORMULA);
    WORD document = NOTE_CLASS_DOCUMENT;
    NSFNoteSetInfo(note, _NOTE_CLASS, &document);
    EXPECT_EQ(note.Update(), ERR_UPDATE_CLASS); // the class of a stored note stays
    Note second = Note::Create(database_);
    EXPECT_FALSE(SameUnid(second.Oid(), oid));
}

TEST_F(NoteConformance, ADeletedNoteLeavesAStubWithTheNextVersion) {
    Note open(database_, 0x906);
    const OID oid = open.Oid();
    EXPECT_EQ(NSFNoteDelete(database_, 0x906, UPDATE_FORCE), NOERROR);
    EXPECT_EQ(open.Update(UPDATE_FORCE), ERR_NOTE_DELETED);
    EXPECT_EQ(OpenStatus(0x906), ERR_NOTE_DELETED);
    EXPECT_EQ(OpenStatus(0x906 | RRV_DELETED), ERR_NOTE_DELETED);
    EXPECT_EQ(OpenStatus(UnidOf(oid)), ERR_NOTE_DELETED);
    EXPECT_EQ(NSFNoteDelete(database_, 0x906, 0), ERR_NOTE_DELETED);
    EXPECT_EQ(NSFNoteDelete(database_, 0x990, 0), ERR_INVALID_NOTE);
    EXPECT_EQ(OpenStatus(0x990), ERR_INVALID_NOTE);
    EXPECT_EQ(NSFNoteDelete(database_, 0x90a, UPDATE_NOSTUB), NOERROR);
    EXPECT_EQ(OpenStatus(0x90a), ERR_INVALID_NOTE);
    // A new note never gets an old note's ID, also not one that left no trace.
    Note note = Note::Create(database_);
    EXPECT_EQ(note.Update(), NOERROR);
    EXPECT_GT(note.Id(), 0x90aU);
}

TEST_F(NoteConformance, ACopyInMemoryIsTheSameNoteUntilItGetsAnotherIdentity) {
    Note original(database_, 0x906);
    Note copy;
    ASSERT_EQ(NSFNoteCopy(original, copy.Out()), NOERROR);
    EXPECT_EQ(copy.Id(), original.Id());
    EXPECT_TRUE(SameUnid(copy.Oid(), original.Oid()));
    copy.SetText("Subject", "copied");
    EXPECT_EQ(original.Text("Subject"), "first");

    NSFNoteSetInfo(copy, _NOTE_ID, nullptr);
    EXPECT_EQ(copy.Id(), 0U);
    EXPECT_EQ(copy.Update(UPDATE_FORCE), ERR_DUPLICATE_UNID); // two notes never share a UNID
    OID oid = copy.Oid();
    oid.File.Innards[0] = 42;
    oid.Sequence = 9;
    NSFNoteSetInfo(copy, _NOTE_OID, &oid);
    EXPECT_EQ(copy.Update(UPDATE_FORCE), NOERROR);
    EXPECT_NE(copy.Id(), original.Id());
    EXPECT_TRUE(SameUnid(copy.Oid(), oid));
    EXPECT_EQ(copy.Oid().Sequence, 10U);
    EXPECT_EQ(Note(database_, 0x906).Text("Subject"), "first");
}

TEST_F(NoteConformance, ACopyIntoAnotherDatabaseKeepsUnidAndVersion) {
    MakeDatabase("krx/other.nsf", "<document form='B'><noteinfo unid='CCCCCCCCCCCCCCCCDDDDDDDDDDDDDDDD'/></document>");
    DBHANDLE other = Open("krx/other.nsf");
    NOTEID id = 0;
    WORD noteClass = 0;
    const auto copy = [&](NOTEID from) {
        return NSFDbCopyNote(database_, nullptr, nullptr, from, other, nullptr, nullptr, &id, &noteClass);
    };
    EXPECT_EQ(copy(0x902), NOERROR);
    EXPECT_EQ(noteClass, NOTE_CLASS_FORM | NOTE_CLASS_DEFAULT);
    {
        Note original(database_, 0x902), copied(other, id);
        EXPECT_TRUE(SameUnid(original.Oid(), copied.Oid()));
        EXPECT_EQ(copied.Oid().Sequence, 7U);
        EXPECT_EQ(copied.Text("$TITLE"), "Rule");
    }
    EXPECT_EQ(copy(0x902), ERR_DUPLICATE_UNID);
    EXPECT_EQ(copy(0x90a), ERR_DUPLICATE_UNID); // of a note that has nothing else in common
    EXPECT_EQ(NSFNoteDelete(database_, 0x906, 0), NOERROR);
    EXPECT_EQ(copy(0x906), ERR_NOTE_DELETED);
    EXPECT_EQ(NSFNoteDelete(other, id, 0), NOERROR);
    EXPECT_EQ(NSFDbCopyNote(database_, nullptr, nullptr, 0x902, other, nullptr, nullptr, nullptr, nullptr), NOERROR);
    EXPECT_EQ(NSFDbClose(other), NOERROR);
}

TEST_F(NoteConformance, ExpandingMakesListsOfOneAndContractingUndoesIt) {
    Note note(database_, 0x906, OPEN_EXPAND);
    const auto typesAre = [&](std::initializer_list<WORD> types) {
        auto type = types.begin();
        for (const std::string item : {"Subject", "One", "Size"}) {
            WORD actual = 0;
            EXPECT_EQ(NSFItemInfo(note, item.c_str(), MAXWORD, nullptr, &actual, nullptr, nullptr), NOERROR);
            EXPECT_EQ(actual, *type++) << item;
        }
    };
    typesAre({TYPE_TEXT_LIST, TYPE_TEXT_LIST, TYPE_NUMBER_RANGE});
    EXPECT_EQ(note.List("Subject"), std::vector<std::string>{"first"});
    EXPECT_EQ(NSFNoteContract(note), NOERROR);
    typesAre({TYPE_TEXT, TYPE_TEXT, TYPE_NUMBER}); // a genuine list of one is contracted too
}

TEST_F(NoteConformance, ANoteOutlivesItsDatabaseHandle) {
    DBHANDLE second = Open();
    Note note(second, 0x90a);
    EXPECT_EQ(NSFDbClose(second), NOERROR);
    note.SetText("Late", "yes");
    EXPECT_EQ(note.Update(), NOERROR);
    EXPECT_EQ(Note(database_, 0x90a).Text("Late"), "yes");
}

TEST_F(NoteConformance, BadArgumentsAreAnswered) {
    NOTEHANDLE note = NULLHANDLE;
    UNID unid{};
    EXPECT_EQ(NSFNoteOpen(database_, 0x906, 0, nullptr), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFNoteOpenByUNID(database_, nullptr, 0, &note), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFNoteOpenByUNID(database_, &unid, 0, nullptr), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFNoteCreate(database_, nullptr), EMB_ERR_ARGUMENT);
    DWORD untouched = 0xABCD;
    {
        Note open(database_, 0x906);
        NSFNoteGetInfo(open, _NOTE_ID, nullptr);
        NSFNoteGetInfo(open, 99, &untouched);
    }
    EXPECT_EQ(untouched, 0xABCDU);
    EXPECT_EQ(ServerLogCount("NSFNoteGetInfo: unknown member 99"), 1);
}

} // namespace
} // namespace embedded::test
