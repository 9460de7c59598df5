// Databases behind the Notes API: opening, sharing, copying, access control lists, offline and online.
#include <fstream>

#include "notes/notes_fixture.h"

namespace embedded::test {
namespace {

constexpr const char* twoNotes = "<note class='form'><noteinfo noteid='902'/></note>"
                                 "<document form='A'><noteinfo noteid='906'/></document>";

class DatabaseConformance : public NotesFixture {};

TEST_F(DatabaseConformance, OpensByEveryFormOfThePathAndRefusesWhatIsNoDatabase) {
    MakeDatabase(path, twoNotes);
    std::ofstream(Data() / "krx/text.nsf") << "This is a text of more than a hundred characters, so that nobody can "
                                              "take it for an empty database; it goes on and on.";
    std::ofstream(Data() / "krx/empty.nsf").flush();
    const std::string absolute = (Data() / path).string();
    struct {
        const char* path;
        STATUS status;
    } const cases[] = {
        {"krx/test.nsf", NOERROR},
        {"krx\\test.nsf", NOERROR},
        {"krx/test", NOERROR},
        {"CN=Local/O=Embedded!!krx/test.nsf", NOERROR},
        {absolute.c_str(), NOERROR},
        {"krx", NOERROR}, // a directory opens too
        {nullptr, NOERROR},
        {"krx/none.nsf", ERR_NOEXIST},
        {"none/test.nsf", ERR_NOEXIST},
        {"CN=Other/O=Embedded!!krx/test.nsf", EMB_ERR_NO_SERVER},
        {"krx/text.nsf", ERR_NOT_NSF},
        {"krx/empty.nsf", ERR_NOT_NSF},
    };
    for (const auto& c : cases) {
        DBHANDLE database = 77;
        EXPECT_EQ(NSFDbOpen(c.path, &database), c.status) << (c.path ? c.path : "NULL");
        EXPECT_EQ(database != NULLHANDLE, c.status == NOERROR);
        if (c.status == NOERROR) {
            EXPECT_EQ(NSFDbClose(database), NOERROR);
        }
    }
    DBHANDLE directory = Open("krx");
    EXPECT_EQ(Search(directory, nullptr, NOTE_CLASS_ALL).status, ERR_NOT_NSF);
    EXPECT_EQ(NSFDbClose(directory), NOERROR);
    EXPECT_EQ(NSFDbOpen(path, nullptr), EMB_ERR_ARGUMENT);
}

TEST_F(DatabaseConformance, HandlesShareOneContentAndNothingStandsBesideAClosedDatabase) {
    DBHANDLE first = Make(twoNotes);
    DBHANDLE second = Open();
    EXPECT_NE(first, second);
    {
        Note note(first, 0x906);
        note.SetText("Subject", "seen by both");
        EXPECT_EQ(note.Update(), NOERROR);
    }
    EXPECT_EQ(NSFDbClose(first), NOERROR);
    EXPECT_EQ(Note(second, 0x906).Text("Subject"), "seen by both");
    EXPECT_EQ(NSFDbClose(second), NOERROR);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Data() / "krx")) {
        files += entry.exists();
    }
    EXPECT_EQ(files, 1U);
    // The file alone is the database.
    std::filesystem::copy_file(Data() / path, Data() / "krx/copy.nsf");
    DBHANDLE copy = Open("krx/copy.nsf");
    EXPECT_EQ(Note(copy, 0x906).Text("Subject"), "seen by both");
    EXPECT_EQ(NSFDbClose(copy), NOERROR);
}

TEST_F(DatabaseConformance, ClosedHandlesAndHandlesOfAnotherKindAreRefused) {
    DBHANDLE database = Make(twoNotes);
    {
        Note note(database, 0x906);
        DBREPLICAINFO info;
        EXPECT_EQ(NSFDbReplicaInfoGet(note, &info), EMB_ERR_HANDLE);
        EXPECT_EQ(NSFNoteClose(database), EMB_ERR_HANDLE);
    }
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    EXPECT_EQ(NSFDbClose(database), EMB_ERR_HANDLE);
    DBHANDLE next = Open(); // takes the slot; the old number must not stand for it
    EXPECT_EQ(NSFDbClose(database), EMB_ERR_HANDLE);
    EXPECT_EQ(NSFDbClose(next), NOERROR);
    EXPECT_EQ(NSFDbClose(NULLHANDLE), EMB_ERR_HANDLE);
    EXPECT_EQ(EmbMisuseCount(), 5U);
    EmbSessionEnd();
    SetUp();
}

TEST_F(DatabaseConformance, ReplicaInformationIsWrittenWhole) {
    DBHANDLE database = Make(twoNotes);
    DBREPLICAINFO info;
    ASSERT_EQ(NSFDbReplicaInfoGet(database, &info), NOERROR);
    info.Flags |= REPLFLG_HIDDEN_DESIGN;
    info.ID = {{0x001E96E4, 0x852552F9}};
    info.CutoffInterval = 91;
    EXPECT_EQ(NSFDbReplicaInfoSet(database, &info), NOERROR);
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    database = Open();
    DBREPLICAINFO again;
    EXPECT_EQ(NSFDbReplicaInfoGet(database, &again), NOERROR);
    EXPECT_EQ(std::memcmp(&info, &again, sizeof info), 0);
    EXPECT_EQ(NSFDbReplicaInfoGet(database, nullptr), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFDbClose(database), NOERROR);
}

TEST_F(DatabaseConformance, AnAccessControlListGoesFromOneDatabaseToAnother) {
    MakeDatabase("krx/a.nsf", "<acl><role>[Admin]</role><aclentry name='-Default-' default='true' level='noaccess'/>"
                              "<aclentry name='CN=Ada/O=Example' type='person' level='manager'><role>[Admin]</role>"
                              "</aclentry></acl>" +
                                  std::string(twoNotes));
    MakeDatabase("krx/b.nsf", twoNotes);
    DBHANDLE a = Open("krx/a.nsf"), b = Open("krx/b.nsf");
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(a, &acl), NOERROR);
    EXPECT_EQ(NSFDbClose(a), NOERROR); // the list outlives the database
    EXPECT_EQ(NSFDbStoreACL(b, acl, 1, 0), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFDbStoreACL(b, acl, 0, 1), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFDbStoreACL(b, acl, 0, 0), NOERROR);
    EXPECT_EQ(OSMemFree(acl), NOERROR);
    DHANDLE noAcl = NULLHANDLE;
    ASSERT_EQ(OSMemAlloc(0, 64, &noAcl), NOERROR);
    EXPECT_NE(NSFDbStoreACL(b, noAcl, 0, 0), NOERROR);
    EXPECT_EQ(OSMemFree(noAcl), NOERROR);
    EXPECT_EQ(NSFDbClose(b), NOERROR);
    EXPECT_NE(ExportDatabase("krx/b.nsf").find("CN=Ada/O=Example"), std::string::npos);
}

TEST_F(DatabaseConformance, CreateAndCopyTakesTheNotesOfTheMask) {
    MakeDatabase(path, twoNotes);
    DBREPLICAINFO original, copied;
    DBHANDLE source = Open();
    EXPECT_EQ(NSFDbReplicaInfoGet(source, &original), NOERROR);
    const OID oid = Note(source, 0x906).Oid();
    EXPECT_EQ(NSFNoteDelete(source, 0x902, 0), NOERROR);
    EXPECT_EQ(NSFDbClose(source), NOERROR);
    struct {
        const char* destination;
        WORD mask;
        DWORD flags;
        size_t notes; // stubs included
        bool sameReplica;
    } const cases[] = {
        {"krx/all.nsf", NOTE_CLASS_ALL, 0, 1, false},
        {"krx/design.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, false},
        {"krx/replica.nsf", NOTE_CLASS_ALL, DBCOPY_REPLICA, 2, true},
    };
    for (const auto& c : cases) {
        DBHANDLE copy = NULLHANDLE;
        ASSERT_EQ(NSFDbCreateAndCopy(path, c.destination, c.mask, 4096, c.flags, &copy), NOERROR) << c.destination;
        EXPECT_EQ(NSFDbReplicaInfoGet(copy, &copied), NOERROR);
        EXPECT_EQ(std::memcmp(&original.ID, &copied.ID, sizeof copied.ID) == 0, c.sameReplica) << c.destination;
        const auto found = Search(copy, nullptr, NOTE_CLASS_ALL, nullptr, SEARCH_ALL_VERSIONS);
        EXPECT_EQ(found.deliveries.size(), c.notes) << c.destination;
        if (!found.Matches().empty()) {
            const OID copiedOid = Note(copy, found.Matches()[0]).Oid();
            EXPECT_EQ(std::memcmp(&oid, &copiedOid, sizeof oid), 0);
        }
        EXPECT_EQ(NSFDbClose(copy), NOERROR);
        EXPECT_EQ(NSFDbCreateAndCopy(path, c.destination, c.mask, 0, c.flags, &copy), ERR_EXISTS);
    }
    DBHANDLE copy = NULLHANDLE;
    EXPECT_EQ(NSFDbCreateAndCopy("krx/none.ntf", "krx/new.nsf", NOTE_CLASS_ALL, 0, 0, &copy), ERR_NOEXIST);
    EXPECT_EQ(NSFDbCreateAndCopy(path, "krx/new.nsf", NOTE_CLASS_ALL, 0, 8, &copy), EMB_ERR_ARGUMENT);
    EXPECT_NE(NSFDbCreateAndCopy(path, "nofolder/new.nsf", NOTE_CLASS_ALL, 0, 0, &copy), NOERROR);
    EXPECT_EQ(copy, DBHANDLE{NULLHANDLE});
    EXPECT_FALSE(std::filesystem::exists(Data() / "krx/new.nsf"));
}

TEST_F(DatabaseConformance, OfflineDatabasesDoNotOpenUntilTheyAreOnlineAgain) {
    MakeDatabase(path, twoNotes);
    EXPECT_EQ(NSFTakeDatabaseOffline("krx/none.nsf", 0, OFFLINE_NODELETE), ERR_NOEXIST);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 0, 2), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 0, OFFLINE_NODELETE), NOERROR);
    DBHANDLE database = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path, &database), ERR_DBOFFLINE);
    EXPECT_EQ(NSFDbCreateAndCopy("krx/other.nsf", path, NOTE_CLASS_ALL, 0, 0, &database), ERR_DBOFFLINE);
    EmbSessionEnd(); // as another process would, later
    SetUp();
    EXPECT_TRUE(EmbIsOffline(path));
    EXPECT_EQ(NSFDbOpen(path, &database), ERR_DBOFFLINE);
    EXPECT_EQ(NSFBringDatabaseOnline(path, 1), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFBringDatabaseOnline(path, 0), NOERROR);
    EXPECT_EQ(NSFBringDatabaseOnline(path, 0), NOERROR);
    EXPECT_EQ(NSFBringDatabaseOnline("krx/none.nsf", 0), ERR_NOEXIST);
    EXPECT_EQ(NSFDbClose(Open()), NOERROR);
    EXPECT_FALSE(std::filesystem::exists(Server() / "offline.lst"));
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 0, 0), NOERROR); // option 0 deletes
    EXPECT_FALSE(std::filesystem::exists(Data() / path));
    EXPECT_FALSE(EmbIsOffline(path));
}

TEST_F(DatabaseConformance, ADatabaseWithUsersStaysOnlineForTheWholeWait) {
    DBHANDLE database = Make(twoNotes);
    EmbClockSetVirtual(1'000'000);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 10000, OFFLINE_NODELETE), ERR_DBINUSE); // one's own handle counts
    EXPECT_EQ(EmbClockNow(), 1'001'000);
    {
        Note note(database, 0x906);
        EXPECT_EQ(NSFDbClose(database), NOERROR);
        EXPECT_EQ(NSFTakeDatabaseOffline(path, 0, 0), ERR_DBINUSE); // so does an open note
    }
    EXPECT_EQ(EmbSetInUse(path, 2), NOERROR);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 100, OFFLINE_NODELETE), ERR_DBINUSE);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 100, OFFLINE_NODELETE), ERR_DBINUSE);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 100, OFFLINE_NODELETE), NOERROR);
    EXPECT_EQ(EmbClockWaited(), 10200);
    EXPECT_EQ(NSFBringDatabaseOnline(path, 0), NOERROR);
}

TEST_F(DatabaseConformance, AReadOnlySessionChangesNothing) {
    MakeDatabase(path, twoNotes);
    EmbSessionEnd();
    ASSERT_EQ(EmbSessionBegin((Server() / "notes.ini").string().c_str(), EMB_SESSION_READ_ONLY, nullptr, 0), NOERROR);
    const std::string before = updkrx::test::ReadFile(Data() / path);
    DBHANDLE database = Open(), copy = NULLHANDLE;
    DBREPLICAINFO info{};
    DHANDLE reply = NULLHANDLE;
    char server[] = "CN=Local/O=Embedded", command[] = "tell krxreal restart";
    {
        Note note(database, 0x906);
        EXPECT_EQ(note.Update(UPDATE_FORCE), EMB_ERR_READ_ONLY);
    }
    EXPECT_EQ(NSFNoteDelete(database, 0x906, 0), EMB_ERR_READ_ONLY);
    EXPECT_EQ(NSFDbReplicaInfoSet(database, &info), EMB_ERR_READ_ONLY);
    EXPECT_EQ(NSFDbCreateAndCopy(path, "krx/new.nsf", NOTE_CLASS_ALL, 0, 0, &copy), EMB_ERR_READ_ONLY);
    EXPECT_EQ(NSFRemoteConsole(server, command, &reply), EMB_ERR_READ_ONLY);
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    EXPECT_EQ(NSFTakeDatabaseOffline(path, 0, OFFLINE_NODELETE), EMB_ERR_READ_ONLY);
    EXPECT_EQ(NSFBringDatabaseOnline(path, 0), EMB_ERR_READ_ONLY);
    EXPECT_EQ(updkrx::test::ReadFile(Data() / path), before);
    EXPECT_FALSE(std::filesystem::exists(Server() / "console.log"));
}

} // namespace
} // namespace embedded::test
