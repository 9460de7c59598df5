#include "engine/dxl/dxl.h"

#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include "engine/store/store.h"
#include "engine/system/file_lock.h"
#include "engine/values/acl.h"
#include "engine/values/timedate.h"
#include "support/temporary_folder.h"

namespace embedded {
namespace {

using updkrx::test::ReadFile;
using updkrx::test::WriteFile;

constexpr TIMEDATE replicaId{{0x005F8BFC, 0x85256A38}};
std::vector<Item> DecodeItems(std::string_view encoded) {
    std::vector<Item> items;
    ItemCursor cursor(encoded);
    for (ItemView view{}; cursor.Next(view);) {
        items.push_back({std::string(view.name), view.type, view.flags, std::string(view.value)});
    }
    return items;
}

const std::filesystem::path fixtures = std::filesystem::path(__FILE__).parent_path() / "fixtures";

std::string Hex(std::string_view bytes) {
    std::string out;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        out += digits;
    }
    return out;
}

template<typename T>
std::string BytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

class Dxl : public testing::Test {
protected:
    std::filesystem::path In(const char* name) const { return folder_.Path() / name; }

    std::filesystem::path Import(const char* name, const std::string& dxl, bool replace = false) const {
        WriteFile(In("in.dxl"), dxl);
        ImportDxl(In(name), In("in.dxl"), replace);
        std::filesystem::remove(In("in.dxl"));
        return In(name);
    }

    std::string Exported(const std::filesystem::path& database, bool stable = false) const {
        ExportDxl(database, In("out.dxl"), {stable});
        std::string dxl = ReadFile(In("out.dxl"));
        std::filesystem::remove(In("out.dxl"));
        return dxl;
    }

    /** Makes a database by hand, for content that no DXL file has. */
    std::filesystem::path Make(const char* name, const std::function<void(Store&)>& fill) const {
        DBREPLICAINFO info{};
        info.ID = replicaId;
        const auto store = Store::Create(In(name), info);
        store->SetProperty(property::acl, EncodeAcl(DefaultAcl()));
        fill(*store);
        store->Close();
        return In(name);
    }

    /** Everything in a database, byte for byte. */
    static std::string Dump(const std::filesystem::path& database) {
        const auto store = Store::Open(database, StoreAccess::readOnly);
        std::string all;
        for (const auto& [name, value] : store->Properties()) {
            all += name + " " + Hex(value) + "\n";
        }
        store->Scan(0, SIZE_MAX, [&](const NoteHead& head, std::string_view items) {
            all += "note " + std::to_string(head.id) + " " + Hex(BytesOf(head.oid)) + " " +
                   Hex(BytesOf(head.noteClass)) + " " + Hex(BytesOf(head.modified)) + (head.deleted ? " stub\n" : "\n");
            for (const Item& item : DecodeItems(items)) {
                all += "  " + Hex(item.name) + " " + Hex(BytesOf(item.type)) + " " + Hex(BytesOf(item.flags)) + " " +
                       Hex(item.value) + "\n";
            }
        });
        return all;
    }

    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.Path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    void ExpectSurvivesRoundTrip(const std::filesystem::path& database) const {
        const std::string first = Exported(database);
        const auto copy = Import("copy.nsf", first, true);
        EXPECT_EQ(Dump(copy), Dump(database));
        EXPECT_EQ(Exported(copy), first);
    }

private:
    updkrx::test::TemporaryFolder folder_;
};

NoteHead HeadOf(NOTEID id, DWORD unid) {
    NoteHead head;
    head.id = id;
    head.oid = {replicaId, {{unid, 0}}, 1, TimedateFromHundredths(0)};
    head.modified = TimedateFromHundredths(0);
    return head;
}

// ---- Round trips

TEST_F(Dxl, ImportsEverythingAsTheFixtureSaysAndExportsItAsImported) {
    ImportDxl(In("a.nsf"), fixtures / "everything.dxl", false);
    EXPECT_EQ(Exported(In("a.nsf")), ReadFile(fixtures / "everything.exported.dxl"));
    ExpectSurvivesRoundTrip(In("a.nsf"));
    ImportDxl(In("b.nsf"), fixtures / "everything.dxl", false);
    EXPECT_EQ(Dump(In("b.nsf")), Dump(In("a.nsf")));
}

TEST_F(Dxl, KeepsTextInThePlatformsBytes) {
    const auto database =
        Import("a.nsf", "\xEF\xBB\xBF<database xmlns='http://www.lotus.com/dxl'><document form='R&#252;le'>"
                        "<item name='T'><text>\xC3\xA9<break/>b</text></item>"
                        "<item name='L'><textlist><text>a</text><text/></textlist></item>"
                        "<item name='N'><numberlist><number>1</number></numberlist></item>"
                        "</document></database>");
    const auto store = Store::Open(database, StoreAccess::readOnly);
    NoteHead head;
    std::string encoded;
    ASSERT_TRUE(store->Read(store->NextId() - 4, head, encoded));
    EXPECT_EQ(head.noteClass, NOTE_CLASS_DOCUMENT);
    EXPECT_EQ(head.oid.Sequence, 1u);
    const std::vector<Item> items = {
        {"Form", TYPE_TEXT, ITEM_SUMMARY, "R\x81le"},
        {"T", TYPE_TEXT, ITEM_SUMMARY, {"\x82\0b", 3}},
        {"L", TYPE_TEXT_LIST, ITEM_SUMMARY, {"\x02\0\x01\0\0\0a", 7}},
        {"N", TYPE_NUMBER_RANGE, ITEM_SUMMARY, std::string("\x01\0\0\0", 4) + BytesOf(1.0)},
    };
    EXPECT_EQ(DecodeItems(encoded), items);
    EXPECT_EQ(DecodeAcl(store->GetProperty(property::acl)), DefaultAcl());
}

TEST_F(Dxl, BytesThatHaveNoReadableFormSurvive) {
    const auto raw = [](std::initializer_list<int> bytes) { return std::string(bytes.begin(), bytes.end()); };
    const std::pair<WORD, std::string> values[] = {
        {TYPE_TEXT, "\x14\xD8\x3D"}, // half a surrogate pair
        {TYPE_TEXT, "\x02\x84"},     // a group that the encoder may not choose
        {TYPE_TEXT, "\r\n\t"},
        {TYPE_NUMBER, BytesOf(std::numeric_limits<double>::quiet_NaN())},
        {TYPE_NUMBER, BytesOf(-std::numeric_limits<double>::infinity())},
        {TYPE_NUMBER, BytesOf(0.1 + 0.2)},
        {TYPE_NUMBER, "seven b"},
        {TYPE_TIME, BytesOf(TIMEDATE{{0, 0x40258B2F}})},
        {TYPE_TIME_RANGE, raw({1, 0, 0, 0}) + std::string(8, '\xFF')},
        {TYPE_FORMULA, "no formula"},
        {TYPE_SIGNATURE, std::string(1000, '\xA5')},
        {TYPE_INVALID_OR_UNKNOWN, std::string(maxItemValue, '\0')},
    };
    ExpectSurvivesRoundTrip(Make("a.nsf", [&](Store& store) {
        std::vector<Item> items;
        for (const auto& [type, value] : values) {
            for (const int flags : {0, 0xFFFF & ~ITEM_SUMMARY}) {
                items.push_back({"item", type, static_cast<WORD>(flags), value});
            }
        }
        for (const std::string& name : {raw({0}), raw({'a', 9, 'b', 10}), std::string("<'\">")}) {
            items.push_back({name, TYPE_TEXT, 0, "x"});
        }
        NoteHead head = HeadOf(0x7FFFFFFF, 1);
        head.oid.Sequence = 0xFFFF0000;
        head.oid.SequenceTime = {{0xFFFFFFFF, 0xFFFFFFFF}};
        head.modified = {};
        store.Insert(head, EncodeItems(items));
        for (DWORD bits = 0; bits <= 16; ++bits) {
            head = HeadOf(0, 2 + bits);
            head.id = 4 + bits;
            head.noteClass = static_cast<WORD>(bits == 16 ? 0xFFFF : 1u << bits);
            head.deleted = bits % 3 == 0;
            store.Insert(head, {});
        }
    }));
}

TEST(Acl, DamagedBytesAreNoList) {
    Acl acl = DefaultAcl();
    acl.roles = {"[a]", "[b]"};
    acl.entries.push_back({"b", {{"level", "editor"}}, {"[b]"}});
    acl.log = {"line"};
    const std::string encoded = EncodeAcl(acl);
    EXPECT_EQ(DecodeAcl(encoded), acl);
    const auto expectDamaged = [](const std::string& bytes) {
        EXPECT_THROW((void)DecodeAcl(bytes), StatusError) << Hex(bytes);
    };
    for (size_t size = 0; size < encoded.size(); ++size) {
        expectDamaged(encoded.substr(0, size));
    }
    expectDamaged(encoded + '\0');
    expectDamaged("X" + encoded.substr(1));
    expectDamaged(encoded.substr(0, 4) + std::string(8, '\xFF'));
}

// ---- What import refuses

std::string Database(const std::string& content) {
    return "<?xml version='1.0'?>\n"
           "<database xmlns='http://www.lotus.com/dxl' xmlns:krx='urn:updkrx:embedded-notes' "
           "replicaid='85256A38005F8BFC'>\n" +
           content + "\n</database>\n";
}

std::string Item(const std::string& value) {
    return Database("<document form='F'>\n<item name='a'><text>kept</text></item>\n<item name='b'>\n" + value +
                    "</item></document>");
}

std::string Repeated(const std::string& text, size_t times) {
    std::string out;
    while (times-- > 0) {
        out += text;
    }
    return out;
}

TEST_F(Dxl, RefusesWhatItCannotKeepByLineAndName) {
    struct Case {
        std::string dxl;
        const char* message; // behind the file's name
    };
    const Case cases[] = {
        // XML
        {"", ":1: there is no element"},
        {"\n\ntext", ":3: text outside the root element"},
        {"\xFF\xFE<", ":1: a character that is not XML in UTF-8"},
        {Database("<!-- \xC0\xAF -->"), ":3: a character"}, // longer than needed
        {Database("<note class='a<b'/>"), ":3: an attribute's value has no end"},
        {Database("<note class='form'/>\n\x01"), ":4: a character"},
        {"<?xml version='1.0' encoding='iso-8859-1'?>\n<database/>", ":1: the encoding 'iso-8859-1'"},
        {"<!DOCTYPE database [<!ENTITY a 'b'>]>\n<database/>", ":1: <!DOCTYPE> with declarations"},
        {"<!DOCTYPE database", ":1: <!DOCTYPE> has no end"},
        {Database("<!ENTITY a 'b'>"), ":3: a declaration has no place here"},
        {Item("<text>&eacute;</text>"), ":6: the reference '&eacute'"},
        {Item("<text>&#0;</text>"), ":6: the reference '&#0'"},
        {Item("<text>&#xD800;</text>"), ":6: the reference '&#xD800'"},
        {Item("<text>a & b</text>"), ":6: the reference '& b"},
        {Database("<note class='form'>\n</notes>"), ":4: <note> is closed by <notes>"},
        {"<database>\n<note>", ":2: <note> is not closed"},
        {"<database/>\n<database/>", ":2: <database>: there is a second root"},
        {"<database/></a>", ":1: <a> is closed and was not open"},
        {Database("<note class='form'\n<"), ":3: <note>: the tag has no end"},
        {Item("<text>" + Repeated("<a>", 100)), ":6: <a>: elements are nested too deep"},
        {Database("<note class='form'>" + Repeated("<a/>", 600'000) + "</note>"), ":3: <a>: too many elements"},
        {Database("<note" + Repeated(" a='b'", 200) + "/>"), ":3: <note>: too many attributes"},
        {Database("<note class='form' class='form'/>"), ":3: <note>: the attribute 'class' stands twice"},
        // The database
        {"<database/>", ":1: <database>: the root is not <database> of the namespace"},
        {"<database xmlns='http://www.lotus.com/dxl' xmlns:k='urn:updkrx:embedded-notes' k:other='1'/>",
         ":1: <database>: the attribute 'k:other' has no place here"},
        {Database("<databaseinfo replicaid='85256A38005F8BFD'/>"), ":3: <databaseinfo>: the attribute 'replicaid'"},
        {Database("text"), ":3: <database>: text has no place here"},
        {Database("<note xmlns='urn:other' class='form'/>"), ":3: <note>: the element has no place here"},
        // The access control list
        {Database("<acl>\n<aclentry name='a' level='owner'/></acl>"), ":4: <aclentry>: the attribute 'level' cannot"},
        {Database("<acl><aclentry name='a' level='editor'/>\n<aclentry name='a' level='editor'/></acl>"),
         ":4: <aclentry>: 'a' stands twice"},
        {Database("<acl><aclentry name='a' level='editor'>\n<role>a</role></aclentry></acl>"),
         ":4: <role>: the list has"},
        // Notes
        {Database("<note/>"), ":3: <note>: the attribute 'class' is missing"},
        {Database("<note class='design'/>"), ":3: <note>: the class 'design' is not known"},
        {Database("<note class='form' form='a'/>"), ":3: <note>: the attribute 'form' has no place here"},
        {Database("<document response='true'/>"), ":3: <document>: the attributes 'response' and 'parent'"},
        {Database("<document truncated='true'/>"), ":3: <document>: a truncated document"},
        {Database("<document>\n<wassignedby><name>a</name></wassignedby></document>"), ":4: <wassignedby>"},
        {Database("<krx:stub class='form'>\n<item name='a'><text/></item></krx:stub>"), ":4: <item>"},
        {Database("<document><noteinfo noteid='0'/></document>"), ":3: <noteinfo>: the attribute 'noteid'"},
        {Database("<document><noteinfo unid='1'/></document>"), ":3: <noteinfo>: the attribute 'unid'"},
        {Database("<document><noteinfo sequence='65536'/></document>"), ":3: <noteinfo>: the attribute 'sequence'"},
        {Database("<document><noteinfo><modified>\n<datetime>now</datetime></modified></noteinfo></document>"),
         ":4: <datetime>: 'now' is not a date or time"},
        {Database("<document><noteinfo noteid='9'/></document>\n<document><noteinfo noteid='9'/></document>"),
         ":4: <document>: another note of the file has this note ID"},
        {Database("<document><noteinfo unid='85256A38005F8BFC0000000000000001'/></document>\n"
                  "<document><noteinfo noteid='1' unid='85256A38005F8BFC0000000000000001'/></document>"),
         ":3: <document>: another note of the file has the UNID 85256A38005F8BFC0000000000000001"},
        {Database("<document><noteinfo noteid='7fffffff'/></document><document/>"),
         ":3: <document>: no note ID is left"},
        // Items
        {Item(""), ":5: <item>: needs one element"},
        {Item("<richtext/>"), ":6: <richtext>: the element has no place here"},
        {Item("<text>" + std::string(maxSummaryValue + 1, 'a') + "</text>"),
         ":5: <item>: the value is longer than 32767"},
        {Item("<textlist>" + Repeated("<text/>", 33'000) + "</textlist>"), ":6: <textlist>: the list is too long"},
        {Item("<number>1,5</number>"), ":6: <number>: '1,5' is not a number"},
        {Item("<number>nan</number>"), ":6: <number>: 'nan' is not a number"},
        {Item("<number>1e999</number>"), ":6: <number>: '1e999' is not a number"},
        {Item("<datetime dst='true'>20240601</datetime>"), ":6: <datetime>: '20240601' is not"},
        {Item("<datetimelist><datetimepair><datetime>20240601</datetime></datetimepair></datetimelist>"),
         ":6: <datetimepair>: needs two times"},
        {Item("<datetimelist><datetimepair><datetime>20240601</datetime><datetime>20240601</datetime></datetimepair>\n"
              "<datetime>20240601</datetime></datetimelist>"),
         ":7: <datetime>: a single time after a pair"},
        {Item("<formula>SELECT (</formula>"), ":6: <formula>: the formula does not compile: "},
        {Item("<rawitemdata type='10000'/>"), ":6: <rawitemdata>: the attribute 'type' cannot be '10000'"},
        {Item("<rawitemdata type='1'>AA=A</rawitemdata>"), ":6: <rawitemdata>: 'AA=A' is not Base64"},
        {Item("<rawitemdata type='1'>AB==</rawitemdata>"), ":6: <rawitemdata>: 'AB==' is not Base64"},
        {Database("<document><item name='a' sealed='true'><text/></item></document>"), ":3: <item>: an encrypted"},
        {Database("<document><item name='a' krx:flags='1ffff'><text/></item></document>"), ":3: <item>: the attribute"},
    };
    const auto kept = Import("kept.nsf", Database("<note class='icon'/>"));
    const std::string before = ReadFile(kept);
    for (const Case& c : cases) {
        WriteFile(In("bad.dxl"), c.dxl);
        for (const char* target : {"kept.nsf", "new.nsf"}) {
            try {
                ImportDxl(In(target), In("bad.dxl"), true);
                ADD_FAILURE() << "taken: " << c.message;
            } catch (const StatusError& error) {
                EXPECT_EQ(error.Status(), EMB_ERR_DXL);
                const std::string expected = In("bad.dxl").string() + c.message;
                EXPECT_EQ(std::string(error.what()).substr(0, expected.size()), expected) << error.what();
            }
        }
        std::filesystem::remove(In("bad.dxl"));
        ASSERT_EQ(Files(), std::vector<std::string>{"kept.nsf"}) << c.message;
        ASSERT_EQ(ReadFile(kept), before) << c.message;
    }
}

TEST_F(Dxl, RefusesAFileThatIsTooLarge) {
    WriteFile(In("large.dxl"), "");
    std::filesystem::resize_file(In("large.dxl"), (size_t{64} << 20) + 1);
    try {
        ImportDxl(In("a.nsf"), In("large.dxl"), false);
        FAIL();
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), EMB_ERR_DXL);
        EXPECT_NE(std::string(error.what()).find("larger than 64 MiB"), std::string::npos);
    }
}

// ---- Files

STATUS StatusOf(const std::function<void()>& action) {
    try {
        action();
        return NOERROR;
    } catch (const StatusError& error) {
        return error.Status();
    }
}

TEST_F(Dxl, LeavesTheFilesOfOthersAlone) {
    const auto a = Import("a.nsf", Database("<note class='icon'/>"));
    const auto b = WriteFile(In("b.dxl"), Database("<note class='form'/>"));
    const std::string before = ReadFile(a);
    EXPECT_EQ(StatusOf([&] { ImportDxl(a, b, false); }), ERR_EXISTS);
    EXPECT_EQ(StatusOf([&] { ImportDxl(a, In("none.dxl"), true); }), ERR_NOEXIST);
    EXPECT_EQ(StatusOf([&] { ImportDxl(a, In("."), true); }), EMB_ERR_DISK);
    EXPECT_EQ(StatusOf([&] { ImportDxl(b, b, true); }), EMB_ERR_ARGUMENT);
    EXPECT_EQ(StatusOf([&] { ExportDxl(a, a, {}); }), EMB_ERR_ARGUMENT);
    EXPECT_EQ(StatusOf([&] { ExportDxl(b, In("c.dxl"), {}); }), ERR_NOT_NSF);
    EXPECT_EQ(StatusOf([&] { ExportDxl(a, In("none/c.dxl"), {}); }), EMB_ERR_DISK);
    {
        const auto user = FileLock::Take(a, FileLock::Kind::shared);
        EXPECT_EQ(StatusOf([&] { ImportDxl(a, b, true); }), EMB_ERR_BUSY);
    }
    EXPECT_EQ(ReadFile(a), before);
    EXPECT_EQ(ReadFile(b), Database("<note class='form'/>"));
    EXPECT_EQ(Files().size(), 2u);
}

TEST_F(Dxl, ReplacesADatabaseAndTheJournalThatADeadWriterLeft) {
    const auto a = Import("a.nsf", Database("<note class='icon'/>"));
    const auto b = Import("b.nsf", Database("<note class='form'/>"));
    WriteFile(In("a.nsf-journal"), "left");
    Import("a.nsf", Database("<note class='form'/>"), true);
    EXPECT_EQ(Dump(a), Dump(b));
    EXPECT_EQ(Files().size(), 2u);
}

TEST_F(Dxl, ExportLeavesTheDatabaseAsItIs) {
    const auto a = Import("a.nsf", Database("<note class='icon'/>"));
    const std::string before = ReadFile(a);
    const auto time = std::filesystem::last_write_time(a) - std::chrono::hours(1);
    std::filesystem::last_write_time(a, time);
    (void)Exported(a);
    (void)Exported(a, true);
    EXPECT_EQ(std::filesystem::last_write_time(a), time);
    EXPECT_EQ(ReadFile(a), before);
    EXPECT_EQ(Files(), std::vector<std::string>{"a.nsf"});
}

TEST_F(Dxl, AFileWithoutReplicaIdMakesReplicasAndAnotherFileDoesNot) {
    const std::string start = "<database xmlns='http://www.lotus.com/dxl'";
    const auto a = Import("a.nsf", start + "><document/></database>");
    const auto b = Import("b.nsf", start + "><document/></database>");
    const auto c = Import("c.nsf", start + "><document form='a'/></database>");
    const auto id = [](const std::filesystem::path& file) {
        return Store::Open(file, StoreAccess::readOnly)->GetProperty(property::replicaInfo);
    };
    EXPECT_EQ(Dump(a), Dump(b));
    EXPECT_NE(id(a), id(c));
    const auto d = Import("d.nsf", start + "><databaseinfo replicaid='85256A38005F8BFC'/></database>");
    EXPECT_EQ(id(d).substr(0, sizeof replicaId), BytesOf(replicaId));
}

// ---- The stable form

TEST_F(Dxl, StableExportShowsNoHistoryInItems) {
    const auto made = [&](const char* name, DWORD moment) {
        const auto fill = [moment](Store& store) {
            const UNID generated{GeneratedUnidFile(replicaId, 7), {{moment, 7}}};
            const std::string reference = std::string("\1\0", 2) + BytesOf(generated);
            store.Insert(HeadOf(4, 1), EncodeItems({{"$REF", TYPE_NOTEREF_LIST, 0, reference},
                                                    {"$Revisions", TYPE_TIME_RANGE, 0, std::string(moment, 'x')}}));
        };
        return Exported(Make(name, fill), true);
    };
    EXPECT_EQ(made("a.nsf", 1), made("b.nsf", 2));
}

} // namespace
} // namespace embedded
