// What the disk has after a power failure, a full disk or the death of a process: the last commit, whole.
#include "engine/store/store.h"
#include "engine/values/status_error.h"
#include "notes/notes_fixture.h"
#include "support/simulated_disk.h"
#include "support/temporary_folder.h"

namespace embedded::test {
namespace {

using updkrx::test::ReadFile;
using updkrx::test::SimulatedDisk;

NoteHead HeadOf(NOTEID id) {
    NoteHead head;
    head.id = id;
    head.oid = {{{id, 1}}, {{id, 2}}, 1, {}};
    return head;
}

std::string ItemsOf(std::string value) {
    return EncodeItems({{"A", TYPE_TEXT, 0, std::move(value)}});
}

/** The notes, each as its ID and the first letter of its item, and the ID that the next one gets. */
std::string ContentOf(const std::filesystem::path& file, StoreAccess access = StoreAccess::readWrite) {
    const auto store = Store::Open(file, access);
    std::string content;
    store->Scan(0, SIZE_MAX, [&](const NoteHead& head, std::string_view items) {
        content += std::to_string(head.id) + FindItem(items, "A")->value.front() + " ";
    });
    return content + "next " + std::to_string(store->NextId());
}

class StoreDurability : public testing::Test {
protected:
    StoreDurability() {
        const auto store = Store::Create(file_, {});
        for (const NOTEID id : {1U, 2U, 3U}) {
            store->Insert(HeadOf(id), ItemsOf("old"));
        }
        store->Close();
    }
    std::filesystem::path AfterPowerFailure() { return SimulatedDisk::LayOut(disk_.Synced(), file_, survivor_); }

    const updkrx::test::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_.Path() / "test.nsf", survivor_ = folder_.Path() / "survivor.nsf";
    SimulatedDisk disk_;
};

TEST_F(StoreDurability, APowerFailureAtAnyMomentLeavesTheLastCommitOrTheNext) {
    const std::string before = "1o 2o 3o next 2294", after = "1o 2n 4n next 2294";
    const auto store = Store::Open(file_, StoreAccess::readWrite);
    std::vector<SimulatedDisk::Files> moments;
    disk_.beforeEach = [&] { moments.push_back(disk_.Synced()); };
    store->Replace(HeadOf(2), ItemsOf("new"), false);
    store->Insert(HeadOf(4), ItemsOf("new"));
    store->Remove(3);
    store->Commit();
    disk_.beforeEach = nullptr;
    EXPECT_GE(moments.size(), 10U);
    for (size_t i = 0; i < moments.size(); ++i) {
        const std::string content = ContentOf(SimulatedDisk::LayOut(moments[i], file_, survivor_));
        EXPECT_TRUE(content == before || content == after) << i << ": " << content;
    }
    EXPECT_EQ(ContentOf(AfterPowerFailure()), after);
}

TEST_F(StoreDurability, ADeadWritersFileIsLeftToTheNextWriterWhoRepairsItWithoutATrace) {
    const std::string content = "1o 2o 3o next 2294";
    const auto store = Store::Open(file_, StoreAccess::readWrite);
    for (NOTEID id = 100; id < 200; ++id) { // more than the page cache holds, so that the journal is needed
        store->Insert(HeadOf(id), ItemsOf(std::string(60'000, 'x')));
    }
    const std::filesystem::path journal = AfterPowerFailure().string() + "-journal";
    ASSERT_TRUE(std::filesystem::exists(journal));
    const std::string dead = ReadFile(survivor_), deadJournal = ReadFile(journal);
    try {
        ContentOf(survivor_, StoreAccess::readOnly);
        ADD_FAILURE() << "read in the middle of a write";
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), EMB_ERR_RECOVERY);
    }
    EXPECT_EQ(ReadFile(survivor_), dead);
    EXPECT_EQ(ReadFile(journal), deadJournal);
    // The other two are journals of writers that died before they wrote anything.
    for (const std::string& left : {deadJournal, std::string(), std::string(512, '\0')}) {
        updkrx::test::WriteFile(journal, left);
        EXPECT_EQ(ContentOf(survivor_), content);
        EXPECT_FALSE(std::filesystem::exists(journal)) << left.size();
    }
    EXPECT_EQ(ContentOf(survivor_, StoreAccess::readOnly), content);
}

TEST_F(StoreDurability, MoreThan64MiBAreCommittedAnObjectOnlyWithItsNote) {
    constexpr size_t mebibyte = size_t{1} << 20;
    const auto store = Store::Open(file_, StoreAccess::readWrite);
    const std::string piece(mebibyte, 'x');
    for (NOTEID id = 4; id < 24; ++id) {
        store->Insert(HeadOf(id), ItemsOf(piece));
    }
    const ObjectRef object = store->PutObject(24, [&](const Store::ObjectSink& sink) {
        for (int i = 0; i < 45; ++i) {
            sink(piece);
        }
    });
    EXPECT_EQ(ContentOf(AfterPowerFailure()), "1o 2o 3o next 2294");
    std::string items = ItemsOf("with an object");
    AppendEncoded(items, {"B", TYPE_TEXT, 0, {}, object});
    store->Insert(HeadOf(24), items);
    size_t size = 0;
    Store::Open(AfterPowerFailure(), StoreAccess::readOnly)->ReadObject(object, [&](std::string_view bytes) {
        size += bytes.size();
    });
    EXPECT_EQ(size, 45 * mebibyte);
    EXPECT_NE(ContentOf(survivor_).find(" 23x 24w next"), std::string::npos);
}

TEST_F(StoreDurability, AfterADiskThatWasFullNothingIsHalfStored) {
    const auto store = Store::Open(file_, StoreAccess::readWrite);
    store->Replace(HeadOf(2), ItemsOf("new"), false);
    disk_.FailWriteAfter(20);
    NOTEID id = 5000;
    EXPECT_THROW(
        {
            for (; id < 5200; ++id) {
                store->Insert(HeadOf(id), ItemsOf(std::string(60'000, 'x')));
            }
        },
        StatusError);
    ASSERT_LT(id, 5200U);
    // SQLite has taken back the whole transaction; who goes on writing must not be told that all is well.
    const auto statusOf = [](const std::function<void()>& work) -> STATUS {
        try {
            work();
            return NOERROR;
        } catch (const StatusError& error) {
            return error.Status();
        }
    };
    EXPECT_EQ(statusOf([&] { store->Insert(HeadOf(6000), ItemsOf("late")); }), EMB_ERR_DISK);
    EXPECT_EQ(statusOf([&] { store->SetProperty("title", "late"); }), EMB_ERR_DISK);
    EXPECT_EQ(statusOf([&] { store->Commit(); }), EMB_ERR_DISK);
    EXPECT_EQ(ContentOf(file_), "1o 2o 3o next 2294");
    store->Insert(HeadOf(4), ItemsOf("new")); // a transaction of its own
    store->Commit();
    EXPECT_EQ(ContentOf(AfterPowerFailure()).substr(0, 12), "1o 2o 3o 4n ");
}

class NotesDurability : public NotesFixture {
protected:
    /** What a power failure now would leave of the database, opened by the engine alone. */
    std::string TextAfterPowerFailure(NOTEID id, const char* item) {
        const auto survivor = SimulatedDisk::LayOut(disk_.Synced(), Data() / path, Server() / "survivor.nsf");
        const auto store = Store::Open(survivor, StoreAccess::readWrite);
        NoteHead head;
        std::string items;
        EXPECT_TRUE(store->Read(id, head, items));
        const auto found = FindItem(items, item);
        return found ? std::string(found->value) : "";
    }
    SimulatedDisk disk_;
};

TEST_F(NotesDurability, ClosingTheLastHandleStoresTheWritesThoughANoteIsOpen) {
    const DBHANDLE first = Make("<document form='A'><noteinfo noteid='902'/></document>"), second = Open();
    const Note note(first, 0x902);
    note.SetText("Subject", "written");
    EXPECT_EQ(note.Update(), NOERROR);
    EXPECT_EQ(NSFDbClose(first), NOERROR);
    EXPECT_EQ(TextAfterPowerFailure(0x902, "Subject"), "");
    EXPECT_EQ(NSFDbClose(second), NOERROR);
    EXPECT_EQ(TextAfterPowerFailure(0x902, "Subject"), "written");
}

TEST_F(NotesDurability, ADeadWritersJournalDoesNotMeetTheNextDatabaseOfThatName) {
    MakeDatabase(path, "<document form='A'><noteinfo noteid='902'/></document>");
    const std::filesystem::path file = Data() / path;
    SimulatedDisk::Files dead;
    {
        const auto store = Store::Open(file, StoreAccess::readWrite);
        for (NOTEID id = 10'000; id < 10'100; ++id) {
            store->Insert(HeadOf(id), ItemsOf(std::string(60'000, 'x')));
        }
        dead = disk_.Synced();
    }
    for (const DWORD options : {DWORD{0}, DWORD{OFFLINE_NODELETE}}) {
        ASSERT_TRUE(std::filesystem::exists(SimulatedDisk::LayOut(dead, file, file).string() + "-journal"));
        EXPECT_EQ(NSFTakeDatabaseOffline(path, 0, options), NOERROR);
        EXPECT_FALSE(std::filesystem::exists(file.string() + "-journal"));
    }
    EXPECT_EQ(NSFBringDatabaseOnline(path, 0), NOERROR);
}

TEST_F(NotesDurability, ADesignExchangeThatFailsTakesBackItsOwnWritesAlone) {
    MakeDatabase("krx/from.ntf", "<note class='form'><noteinfo noteid='902'/><item name='$TITLE'><text>A</text></item>"
                                 "</note><note class='form'><noteinfo noteid='906'/></note>");
    {
        const auto store = Store::Open(Data() / "krx/from.ntf", StoreAccess::readWrite);
        NoteHead head;
        std::string items;
        ASSERT_TRUE(store->Read(0x906, head, items));
        ObjectRef damaged = store->PutObject(0x906, [](const Store::ObjectSink& sink) { sink("x"); });
        ++damaged.size; // what cannot be copied whole
        AppendEncoded(items, {"B", TYPE_TEXT, 0, {}, damaged});
        store->Replace(head, items, false);
        store->Close();
    }
    const DBHANDLE database = Make("<document form='A'><noteinfo noteid='902'/></document>"
                                   "<note class='view'><noteinfo noteid='906'/></note>");
    {
        const Note note(database, 0x902);
        note.SetText("Subject", "written");
        EXPECT_EQ(note.Update(), NOERROR);
    }
    char server[] = "CN=Local/O=Embedded", command[] = "load convert krx/test.nsf * krx/from.ntf";
    DHANDLE reply = NULLHANDLE;
    EXPECT_EQ(NSFRemoteConsole(server, command, &reply), NOERROR);
    ASSERT_NE(reply, DHANDLE{NULLHANDLE}) << "went well";
    EXPECT_EQ(OSMemFree(reply), NOERROR);
    EXPECT_EQ(Search(database, nullptr, NOTE_CLASS_ALLNONDATA).Matches(), std::vector<NOTEID>{0x906});
    EXPECT_EQ(Note(database, 0x902).Text("Subject"), "written");
    EXPECT_EQ(NSFDbClose(database), NOERROR);
}

} // namespace
} // namespace embedded::test
