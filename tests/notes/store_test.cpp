// The database file: formats and their upgrades, objects (values that are too long for an item), and what is read.
#include "engine/store/store.h"

#include <sqlite3.h>

#include "engine/database/signature.h"
#include "engine/values/status_error.h"
#include "notes/notes_fixture.h"
#include "support/simulated_disk.h"
#include "support/temporary_folder.h"

namespace embedded::test {
namespace {

using updkrx::test::ReadFile;

/** Runs SQL on the file without the engine; gives the first column of the last row. */
std::string Sql(const std::filesystem::path& file, const std::string& sql) {
    sqlite3* database = nullptr;
    EXPECT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
    std::string result;
    const auto keep = [](void* to, int, char** values, char**) {
        *static_cast<std::string*>(to) = values[0] ? values[0] : "";
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), keep, &result, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
    sqlite3_close(database);
    return result;
}

STATUS StatusOfOpen(const std::filesystem::path& file, StoreAccess access, std::string* text = nullptr) {
    try {
        Store::Open(file, access)->Close();
        return NOERROR;
    } catch (const StatusError& error) {
        if (text) {
            *text = error.what();
        }
        return error.Status();
    }
}

struct Row {
    NoteHead head;
    std::string items;
    bool operator==(const Row& other) const {
        return std::memcmp(&head.oid, &other.head.oid, sizeof head.oid) == 0 && head.id == other.head.id &&
               head.noteClass == other.head.noteClass && head.deleted == other.head.deleted && items == other.items;
    }
};

struct Content {
    std::vector<Row> rows;
    std::map<std::string, std::string> properties;
    NOTEID nextId;
    bool operator==(const Content&) const = default;
};

Content ContentOf(const std::filesystem::path& file) {
    const auto store = Store::Open(file, StoreAccess::readOnly);
    Content content{{}, store->Properties(), store->NextId()};
    store->Scan(0, SIZE_MAX, [&](const NoteHead& head, std::string_view items) {
        content.rows.push_back({head, std::string(items)});
    });
    return content;
}

class StoreFormat : public testing::Test {
protected:
    StoreFormat() {
        const auto fixture = std::filesystem::path(__FILE__).parent_path() / "fixtures/database_format_1.sql";
        Sql(file_, ReadFile(fixture));
    }
    const updkrx::test::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_.Path() / "old.nsf";
};

TEST_F(StoreFormat, AnOldFileIsReadAsItIsAndUpgradedOnceToBeWritten) {
    const std::string old = ReadFile(file_);
    const Content content = ContentOf(file_);
    EXPECT_EQ(content.rows.size(), 3U);
    EXPECT_EQ(FindItem(content.rows[1].items, "Form")->value, "Rule");
    EXPECT_TRUE(content.rows[2].head.deleted);
    EXPECT_EQ(content.nextId, 0x902U);
    Store::Open(file_, StoreAccess::readWrite)->Rollback();
    EXPECT_EQ(ReadFile(file_), old);

    EXPECT_EQ(StatusOfOpen(file_, StoreAccess::readWrite), NOERROR);
    EXPECT_EQ(Sql(file_, "PRAGMA user_version"), "2");
    EXPECT_EQ(ContentOf(file_), content);
    const std::string upgraded = ReadFile(file_);
    EXPECT_EQ(StatusOfOpen(file_, StoreAccess::readWrite), NOERROR);
    EXPECT_EQ(ReadFile(file_), upgraded);
    const auto fresh = folder_.Path() / "new.nsf";
    Store::Create(fresh, {})->Close();
    const char* tables = "SELECT group_concat(sql, ';') FROM (SELECT sql FROM sqlite_schema ORDER BY name)";
    EXPECT_EQ(Sql(file_, tables), Sql(fresh, tables));
}

TEST_F(StoreFormat, ANewerFileIsRefusedUntouched) {
    Sql(file_, "PRAGMA user_version=3");
    const std::string newer = ReadFile(file_);
    for (const StoreAccess access : {StoreAccess::readOnly, StoreAccess::readWrite}) {
        std::string text;
        EXPECT_EQ(StatusOfOpen(file_, access, &text), EMB_ERR_NEWER);
        EXPECT_NE(text.find("has database format 3, this version reads formats 1 to 2"), std::string::npos) << text;
        EXPECT_EQ(ReadFile(file_), newer);
    }
}

TEST_F(StoreFormat, AStepThatFailsLeavesTheOldFile) {
    Sql(file_, "CREATE TABLE objectnote (stands TEXT)"); // in the way of the step's second half
    const std::string old = ReadFile(file_);
    EXPECT_EQ(StatusOfOpen(file_, StoreAccess::readWrite), EMB_ERR_DISK);
    EXPECT_EQ(ReadFile(file_), old);
    EXPECT_EQ(StatusOfOpen(file_, StoreAccess::readOnly), NOERROR);
    Sql(file_, "DROP TABLE objectnote");
    EXPECT_EQ(StatusOfOpen(file_, StoreAccess::readWrite), NOERROR);
    EXPECT_EQ(Sql(file_, "PRAGMA user_version"), "2");
}

// ---- Objects

/** Bytes without a period that parts could hide. */
std::string LongValue(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 1;
    for (char& c : bytes) {
        state = state * 1664525 + 1013904223;
        c = static_cast<char>(state >> 24);
    }
    return bytes;
}

ObjectRef Put(Store& store, NOTEID note, std::string_view bytes) {
    return store.PutObject(note, [&](const Store::ObjectSink& sink) {
        for (size_t at = 0; at < bytes.size(); at += 10'007) {
            sink(bytes.substr(at, 10'007));
        }
    });
}

std::string ObjectBytes(Store& store, const ObjectRef& object) {
    std::string bytes;
    store.ReadObject(object, [&](std::string_view piece) {
        EXPECT_LE(piece.size(), size_t{64} << 10);
        bytes += piece;
    });
    return bytes;
}

std::string ItemsWith(const std::vector<ObjectRef>& objects) {
    std::string items;
    AppendEncoded(items, {"Form", TYPE_TEXT, ITEM_SUMMARY, "A"});
    for (const ObjectRef& object : objects) {
        AppendEncoded(items, {"Big", TYPE_TEXT_LIST, 0, {}, object});
    }
    return items;
}

NoteHead HeadOf(NOTEID id) {
    NoteHead head;
    head.id = id;
    head.oid = {{{id, 1}}, {{id, 2}}, 1, {}};
    return head;
}

TEST(StoreObjects, AreReadAsTheyWerePutAndGoWithTheirNote) {
    const updkrx::test::TemporaryFolder folder;
    const auto file = folder.Path() / "test.nsf";
    const auto store = Store::Create(file, {});
    std::vector<ObjectRef> objects;
    const size_t sizes[] = {0, 1, 65'536, 65'537, 200'001};
    for (const size_t size : sizes) {
        objects.push_back(Put(*store, 8, LongValue(size)));
        EXPECT_EQ(objects.back().size, size);
        EXPECT_EQ(ObjectBytes(*store, objects.back()), LongValue(size));
    }
    store->Insert(HeadOf(8), ItemsWith(objects));
    EXPECT_EQ(ObjectsOf(ItemsWith(objects)), objects);
    const ObjectRef neighbour = Put(*store, 12, "neighbour");
    store->Insert(HeadOf(12), ItemsWith({neighbour}));
    struct {
        const char* what;
        std::function<void()> change;
        const char* left;
    } const changes[] = {
        {"saving it as it is", [&] { store->Replace(HeadOf(8), ItemsWith(objects), false); }, "2,3,4,5,6"},
        {"saving it with two",
         [&] {
             store->Replace(HeadOf(8), ItemsWith({objects[1], objects[4]}), false);
         },
         "2,5,6"},
        {"removing it", [&] { store->Remove(8); }, "6"},
        {"a stub", [&] { store->Replace(HeadOf(12), {}, false); }, ""},
    };
    for (const auto& c : changes) {
        c.change();
        store->Commit();
        EXPECT_EQ(Sql(file, "SELECT group_concat(id) FROM (SELECT DISTINCT id FROM object)"), c.left) << c.what;
    }
    EXPECT_THROW(ObjectBytes(*store, neighbour), StatusError);
    try {
        store->Insert(HeadOf(16), ItemsWith({neighbour})); // as from a copy of the note that was opened before
        ADD_FAILURE() << "stored with an object that is not there";
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), ERR_CONFLICT);
    }
    NoteHead none;
    EXPECT_FALSE(store->ReadHead(16, none));
}

class StoreConformance : public NotesFixture {
protected:
    /** Gives the note a large value beside the items that it has. */
    void AddLargeItem(const char* database, NOTEID id) {
        const auto store = Store::Open(Data() / database, StoreAccess::readWrite);
        NoteHead head;
        std::string items;
        ASSERT_TRUE(store->Read(id, head, items));
        AppendEncoded(items, {"Big", TYPE_TEXT, 0, {}, Put(*store, id, LongValue(100'000))});
        store->Replace(head, items, false);
        store->Close();
    }
    /** The bytes of the large items of all live notes. */
    std::vector<std::string> LargeValues(const char* database) {
        const auto store = Store::Open(Data() / database, StoreAccess::readOnly);
        std::vector<ObjectRef> objects;
        store->Scan(0, SIZE_MAX, [&](const NoteHead&, std::string_view items) {
            const auto more = ObjectsOf(items);
            objects.insert(objects.end(), more.begin(), more.end());
        });
        std::vector<std::string> values;
        for (const ObjectRef& object : objects) {
            values.push_back(ObjectBytes(*store, object));
        }
        return values;
    }
    static bool IsSignedAsItIs(DBHANDLE database, const char* file) {
        EXPECT_EQ(NSFDbClose(database), NOERROR);
        EMBSIGNATURES counts;
        EXPECT_EQ(EmbSignatures(file, NOTE_CLASS_ALL, &counts, nullptr, 0), NOERROR);
        return counts.signedNotes == 1 && counts.changedNotes == 0;
    }
};

TEST_F(StoreConformance, ASearchByClassReadsNoItems) {
    constexpr size_t noteCount = 50, valueSize = 60'000;
    DBHANDLE database = Make("<note class='helpusingdocument'/>");
    const std::string value = LongValue(valueSize);
    for (size_t i = 0; i < noteCount; ++i) {
        const Note note = Note::Create(database);
        EXPECT_EQ(NSFItemAppend(note, 0, "A", 1, 0x0E00, value.data(), valueSize), NOERROR);
        EXPECT_EQ(note.Update(), NOERROR);
    }
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    struct {
        const char* formula;
        WORD classes;
        size_t found;
        bool readsItems;
    } const cases[] = {
        {nullptr, NOTE_CLASS_HELP, 1, false},
        {"A = \"x\"", NOTE_CLASS_HELP, 0, false},
        {nullptr, NOTE_CLASS_DOCUMENT, noteCount, false},
        {"A = \"x\"", NOTE_CLASS_DOCUMENT, 0, true},
    };
    for (const auto& c : cases) {
        const updkrx::test::SimulatedDisk disk;
        database = Open();
        EXPECT_EQ(Search(database, c.formula, c.classes).Matches().size(), c.found);
        EXPECT_EQ(NSFDbClose(database), NOERROR);
        EXPECT_EQ(disk.BytesRead() > noteCount * valueSize / 2, c.readsItems) << c.classes << ": " << disk.BytesRead();
    }
}

TEST_F(StoreConformance, EveryCopyOfANoteHasItsOwnObjects) {
    MakeDatabase("krx/from.ntf", "<note class='form'><noteinfo noteid='902'/><item name='$TITLE'><text>A</text></item>"
                                 "</note>");
    AddLargeItem("krx/from.ntf", 0x902);
    DBHANDLE from = Open("krx/from.ntf"), copied = NULLHANDLE;
    {
        Note note(from, 0x902);
        EXPECT_EQ(NSFNoteSign(note), NOERROR);
        EXPECT_EQ(note.Update(), NOERROR);
    }
    ASSERT_EQ(NSFDbCreateAndCopy("krx/from.ntf", "krx/database.nsf", NOTE_CLASS_ALL, 0, 0, &copied), NOERROR);
    for (const char* name : {"krx/note.nsf", "krx/memory.nsf", "krx/design.nsf"}) {
        MakeDatabase(name, "<note class='icon'/>");
        AddLargeItem(name, 0x8f6); // takes the number that the copy's object had
    }
    DBHANDLE byNote = Open("krx/note.nsf"), byMemory = Open("krx/memory.nsf");
    EXPECT_EQ(NSFDbCopyNote(from, nullptr, nullptr, 0x902, byNote, nullptr, nullptr, nullptr, nullptr), NOERROR);
    {
        const Note note(from, 0x902);
        Note copy;
        ASSERT_EQ(NSFNoteCopy(note, copy.Out()), NOERROR);
        NSFNoteSetInfo(copy, _NOTE_DB, &byMemory);
        NSFNoteSetInfo(copy, _NOTE_ID, nullptr);
        EXPECT_EQ(copy.Update(), NOERROR);
        EXPECT_EQ(copy.Update(), NOERROR); // whose objects are its own by now
    }
    char server[] = "CN=Local/O=Embedded", command[] = "load convert krx/design.nsf * krx/from.ntf";
    for (const char* outcome : {"0 design notes changed, 1 added, 1 deleted", "1 unchanged"}) {
        DHANDLE reply = NULLHANDLE;
        EXPECT_EQ(NSFRemoteConsole(server, command, &reply), NOERROR);
        char transcript[4096];
        EmbConsoleTranscript(transcript, sizeof transcript);
        EXPECT_NE(std::string(transcript).find(outcome), std::string::npos) << transcript;
    }
    EXPECT_EQ(NSFNoteDelete(from, 0x902, 0), NOERROR);
    EXPECT_EQ(NSFDbClose(from), NOERROR);
    EXPECT_EQ(LargeValues("krx/from.ntf").size(), 0U);
    EXPECT_TRUE(IsSignedAsItIs(copied, "krx/database.nsf"));
    EXPECT_TRUE(IsSignedAsItIs(byNote, "krx/note.nsf"));
    EXPECT_TRUE(IsSignedAsItIs(byMemory, "krx/memory.nsf"));
    const std::string value = LongValue(100'000);
    EXPECT_EQ(LargeValues("krx/database.nsf"), (std::vector{value}));
    EXPECT_EQ(LargeValues("krx/note.nsf"), (std::vector{value, value}));
    EXPECT_EQ(LargeValues("krx/memory.nsf"), (std::vector{value, value}));
    EXPECT_EQ(LargeValues("krx/design.nsf"), (std::vector{value}));
}

TEST_F(StoreConformance, NoOperationReadsObjectsAndAskingForOneIsAnswered) {
    MakeDatabase(path, "<document form='A'><noteinfo noteid='902'/></document>");
    AddLargeItem(path, 0x902);
    Sql(Data() / path, "UPDATE object SET bytes=''"); // who reads the object now, fails
    DBHANDLE database = Open();
    EXPECT_EQ(Search(database, "Form = \"A\" & Big != \"x\"", NOTE_CLASS_DOCUMENT).Matches(),
              std::vector<NOTEID>{0x902});
    Note note(database, 0x902, OPEN_EXPAND);
    WORD type = 0;
    DWORD length = 0;
    BLOCKID block{};
    EXPECT_EQ(NSFItemInfo(note, "Big", 3, nullptr, &type, nullptr, &length), NOERROR);
    EXPECT_EQ(type, TYPE_TEXT); // OPEN_EXPAND makes lists of values alone
    EXPECT_EQ(length, 100'002U);
    EXPECT_EQ(NSFItemInfo(note, "Big", 3, nullptr, nullptr, &block, nullptr), ERR_SEGMENT_TOO_BIG);
    EXPECT_EQ(note.Text("Big"), "");
    EXPECT_EQ(note.List("Big"), std::vector<std::string>{});
    EXPECT_EQ(NSFItemAppendTextList(note, "Big", "x", 1, 0), ERR_SEGMENT_TOO_BIG);
    char log[4096];
    EmbServerLog(log, sizeof log);
    EXPECT_NE(std::string(log).find("an item's value of 100000 bytes is too large"), std::string::npos) << log;
    note.SetText("Form", "B");
    EXPECT_EQ(NSFNoteContract(note), NOERROR);
    EXPECT_EQ(note.Update(), NOERROR);
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    EXPECT_EQ(Sql(Data() / path, "SELECT count(*) FROM object"), "2");
    database = Open();
    note.SetText("Big", "small now");
    EXPECT_EQ(note.Update(), NOERROR);
    note.Close();
    EXPECT_EQ(NSFDbClose(database), NOERROR);
    EXPECT_EQ(Sql(Data() / path, "SELECT count(*) FROM object"), "0");
}

} // namespace
} // namespace embedded::test
