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
std::vector<Item> decodeItems(std::string_view encoded) {
    std::vector<Item> items;
    ItemCursor cursor(encoded);
    for (ItemView view{}; cursor.next(view);)
        items.push_back({std::string(view.name), view.type, view.flags, std::string(view.value)});
    return items;
}

const std::filesystem::path fixtures = std::filesystem::path(__FILE__).parent_path() / "fixtures";

std::string hex(std::string_view bytes) {
    std::string out;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        out += digits;
    }
    return out;
}

template<typename T>
std::string bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

class Dxl : public testing::Test {
protected:
    std::filesystem::path in(const char* name) const { return folder_.Path() / name; }

    std::filesystem::path import(const char* name, const std::string& dxl, bool replace = false) const {
        WriteFile(in("in.dxl"), dxl);
        importDxl(in(name), in("in.dxl"), replace);
        std::filesystem::remove(in("in.dxl"));
        return in(name);
    }

    std::string exported(const std::filesystem::path& database, bool stable = false) const {
        exportDxl(database, in("out.dxl"), {stable});
        std::string dxl = ReadFile(in("out.dxl"));
        std::filesystem::remove(in("out.dxl"));
        return dxl;
    }

    /** Makes a database by hand, for content that no DXL file has. */
    std::filesystem::path make(const char* name, const std::function<void(Store&)>& fill) const {
        DBREPLICAINFO info{};
        info.ID = replicaId;
        const auto store = Store::create(in(name), info);
        store->setProperty(property::acl, encodeAcl(defaultAcl()));
        fill(*store);
        store->close();
        return in(name);
    }

    /** Everything in a database, byte for byte. */
    static std::string dump(const std::filesystem::path& database) {
        const auto store = Store::open(database, StoreAccess::readOnly);
        std::string all;
        for (const auto& [name, value] : store->properties())
            all += name + " " + hex(value) + "\n";
        store->scan(0, SIZE_MAX, [&](const NoteHead& head, std::string_view items) {
            all += "note " + std::to_string(head.id) + " " + hex(bytesOf(head.oid)) + " " +
                   hex(bytesOf(head.noteClass)) + " " + hex(bytesOf(head.modified)) + (head.deleted ? " stub\n" : "\n");
            for (const Item& item : decodeItems(items))
                all += "  " + hex(item.name) + " " + hex(bytesOf(item.type)) + " " + hex(bytesOf(item.flags)) + " " +
                       hex(item.value) + "\n";
        });
        return all;
    }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.Path()))
            names.push_back(entry.path().filename());
        return names;
    }

    void expectSurvivesRoundTrip(const std::filesystem::path& database) const {
        const std::string first = exported(database);
        const auto copy = import("copy.nsf", first, true);
        EXPECT_EQ(dump(copy), dump(database));
        EXPECT_EQ(exported(copy), first);
    }

private:
    updkrx::test::TemporaryFolder folder_;
};

NoteHead headOf(NOTEID id, DWORD unid) {
    NoteHead head;
    head.id = id;
    head.oid = {replicaId, {{unid, 0}}, 1, timedateFromHundredths(0)};
    head.modified = timedateFromHundredths(0);
    return head;
}

// ---- Round trips

TEST_F(Dxl, ImportsEverythingAsTheFixtureSaysAndExportsItAsImported) {
    importDxl(in("a.nsf"), fixtures / "everything.dxl", false);
    EXPECT_EQ(exported(in("a.nsf")), ReadFile(fixtures / "everything.exported.dxl"));
    expectSurvivesRoundTrip(in("a.nsf"));
    importDxl(in("b.nsf"), fixtures / "everything.dxl", false);
    EXPECT_EQ(dump(in("b.nsf")), dump(in("a.nsf")));
}

TEST_F(Dxl, KeepsTextInThePlatformsBytes) {
    const auto database =
        import("a.nsf", "\xEF\xBB\xBF<database xmlns='http://www.lotus.com/dxl'><document form='R&#252;le'>"
                        "<item name='T'><text>\xC3\xA9<break/>b</text></item>"
                        "<item name='L'><textlist><text>a</text><text/></textlist></item>"
                        "<item name='N'><numberlist><number>1</number></numberlist></item>"
                        "</document></database>");
    const auto store = Store::open(database, StoreAccess::readOnly);
    NoteHead head;
    std::string encoded;
    ASSERT_TRUE(store->read(store->nextId() - 4, head, encoded));
    EXPECT_EQ(head.noteClass, NOTE_CLASS_DOCUMENT);
    EXPECT_EQ(head.oid.Sequence, 1u);
    const std::vector<Item> items = {
        {"Form", TYPE_TEXT, ITEM_SUMMARY, "R\x81le"},
        {"T", TYPE_TEXT, ITEM_SUMMARY, {"\x82\0b", 3}},
        {"L", TYPE_TEXT_LIST, ITEM_SUMMARY, {"\x02\0\x01\0\0\0a", 7}},
        {"N", TYPE_NUMBER_RANGE, ITEM_SUMMARY, std::string("\x01\0\0\0", 4) + bytesOf(1.0)},
    };
    EXPECT_EQ(decodeItems(encoded), items);
    EXPECT_EQ(decodeAcl(store->getProperty(property::acl)), defaultAcl());
}

TEST_F(Dxl, BytesThatHaveNoReadableFormSurvive) {
    const auto raw = [](std::initializer_list<int> bytes) { return std::string(bytes.begin(), bytes.end()); };
    const std::pair<WORD, std::string> values[] = {
        {TYPE_TEXT, "\x14\xD8\x3D"}, // half a surrogate pair
        {TYPE_TEXT, "\x02\x84"},     // a group that the encoder may not choose
        {TYPE_TEXT, "\r\n\t"},
        {TYPE_NUMBER, bytesOf(std::numeric_limits<double>::quiet_NaN())},
        {TYPE_NUMBER, bytesOf(-std::numeric_limits<double>::infinity())},
        {TYPE_NUMBER, bytesOf(0.1 + 0.2)},
        {TYPE_NUMBER, "seven b"},
        {TYPE_TIME, bytesOf(TIMEDATE{{0, 0x40258B2F}})},
        {TYPE_TIME_RANGE, raw({1, 0, 0, 0}) + std::string(8, '\xFF')},
        {TYPE_FORMULA, "no formula"},
        {TYPE_SIGNATURE, std::string(1000, '\xA5')},
        {TYPE_INVALID_OR_UNKNOWN, std::string(maxItemValue, '\0')},
    };
    expectSurvivesRoundTrip(make("a.nsf", [&](Store& store) {
        std::vector<Item> items;
        for (const auto& [type, value] : values)
            for (const int flags : {0, 0xFFFF & ~ITEM_SUMMARY})
                items.push_back({"item", type, static_cast<WORD>(flags), value});
        for (const std::string& name : {raw({0}), raw({'a', 9, 'b', 10}), std::string("<'\">")})
            items.push_back({name, TYPE_TEXT, 0, "x"});
        NoteHead head = headOf(0x7FFFFFFF, 1);
        head.oid.Sequence = 0xFFFF0000;
        head.oid.SequenceTime = {{0xFFFFFFFF, 0xFFFFFFFF}};
        head.modified = {};
        store.insert(head, encodeItems(items));
        for (DWORD bits = 0; bits <= 16; ++bits) {
            head = headOf(0, 2 + bits);
            head.id = 4 + bits;
            head.noteClass = static_cast<WORD>(bits == 16 ? 0xFFFF : 1u << bits);
            head.deleted = bits % 3 == 0;
            store.insert(head, {});
        }
    }));
}

TEST(Acl, DamagedBytesAreNoList) {
    Acl acl = defaultAcl();
    acl.roles = {"[a]", "[b]"};
    acl.entries.push_back({"b", {{"level", "editor"}}, {"[b]"}});
    acl.log = {"line"};
    const std::string encoded = encodeAcl(acl);
    EXPECT_EQ(decodeAcl(encoded), acl);
    const auto expectDamaged = [](const std::string& bytes) {
        EXPECT_THROW((void)decodeAcl(bytes), StatusError) << hex(bytes);
    };
    for (size_t size = 0; size < encoded.size(); ++size)
        expectDamaged(encoded.substr(0, size));
    expectDamaged(encoded + '\0');
    expectDamaged("X" + encoded.substr(1));
    expectDamaged(encoded.substr(0, 4) + std::string(8, '\xFF'));
}

// ---- What import refuses

std::string database(const std::string& content) {
    return "<?xml version='1.0'?>\n"
           "<database xmlns='http://www.lotus.com/dxl' xmlns:krx='urn:updkrx:embedded-notes' "
           "replicaid='85256A38005F8BFC'>\n" +
           content + "\n</database>\n";
}

std::string item(const std::string& value) {
    return database("<document form='F'>\n<item name='a'><text>kept</text></item>\n<item name='b'>\n" + value +
                    "</item></document>");
}

std::string repeated(const std::string& text, size_t times) {
    std::string out;
    while (times-- > 0)
        out += text;
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
        {database("<!-- \xC0\xAF -->"), ":3: a character"}, // longer than needed
        {database("<note class='a<b'/>"), ":3: an attribute's value has no end"},
        {database("<note class='form'/>\n\x01"), ":4: a character"},
        {"<?xml version='1.0' encoding='iso-8859-1'?>\n<database/>", ":1: the encoding 'iso-8859-1'"},
        {"<!DOCTYPE database [<!ENTITY a 'b'>]>\n<database/>", ":1: <!DOCTYPE> with declarations"},
        {"<!DOCTYPE database", ":1: <!DOCTYPE> has no end"},
        {database("<!ENTITY a 'b'>"), ":3: a declaration has no place here"},
        {item("<text>&eacute;</text>"), ":6: the reference '&eacute'"},
        {item("<text>&#0;</text>"), ":6: the reference '&#0'"},
        {item("<text>&#xD800;</text>"), ":6: the reference '&#xD800'"},
        {item("<text>a & b</text>"), ":6: the reference '& b"},
        {database("<note class='form'>\n</notes>"), ":4: <note> is closed by <notes>"},
        {"<database>\n<note>", ":2: <note> is not closed"},
        {"<database/>\n<database/>", ":2: <database>: there is a second root"},
        {"<database/></a>", ":1: <a> is closed and was not open"},
        {database("<note class='form'\n<"), ":3: <note>: the tag has no end"},
        {item("<text>" + repeated("<a>", 100)), ":6: <a>: elements are nested too deep"},
        {database("<note class='form'>" + repeated("<a/>", 600'000) + "</note>"), ":3: <a>: too many elements"},
        {database("<note" + repeated(" a='b'", 200) + "/>"), ":3: <note>: too many attributes"},
        {database("<note class='form' class='form'/>"), ":3: <note>: the attribute 'class' stands twice"},
        // The database
        {"<database/>", ":1: <database>: the root is not <database> of the namespace"},
        {"<database xmlns='http://www.lotus.com/dxl' xmlns:k='urn:updkrx:embedded-notes' k:other='1'/>",
         ":1: <database>: the attribute 'k:other' has no place here"},
        {database("<databaseinfo replicaid='85256A38005F8BFD'/>"), ":3: <databaseinfo>: the attribute 'replicaid'"},
        {database("text"), ":3: <database>: text has no place here"},
        {database("<note xmlns='urn:other' class='form'/>"), ":3: <note>: the element has no place here"},
        // The access control list
        {database("<acl>\n<aclentry name='a' level='owner'/></acl>"), ":4: <aclentry>: the attribute 'level' cannot"},
        {database("<acl><aclentry name='a' level='editor'/>\n<aclentry name='a' level='editor'/></acl>"),
         ":4: <aclentry>: 'a' stands twice"},
        {database("<acl><aclentry name='a' level='editor'>\n<role>a</role></aclentry></acl>"),
         ":4: <role>: the list has"},
        // Notes
        {database("<note/>"), ":3: <note>: the attribute 'class' is missing"},
        {database("<note class='design'/>"), ":3: <note>: the class 'design' is not known"},
        {database("<note class='form' form='a'/>"), ":3: <note>: the attribute 'form' has no place here"},
        {database("<document response='true'/>"), ":3: <document>: the attributes 'response' and 'parent'"},
        {database("<document truncated='true'/>"), ":3: <document>: a truncated document"},
        {database("<document>\n<wassignedby><name>a</name></wassignedby></document>"), ":4: <wassignedby>"},
        {database("<krx:stub class='form'>\n<item name='a'><text/></item></krx:stub>"), ":4: <item>"},
        {database("<document><noteinfo noteid='0'/></document>"), ":3: <noteinfo>: the attribute 'noteid'"},
        {database("<document><noteinfo unid='1'/></document>"), ":3: <noteinfo>: the attribute 'unid'"},
        {database("<document><noteinfo sequence='65536'/></document>"), ":3: <noteinfo>: the attribute 'sequence'"},
        {database("<document><noteinfo><modified>\n<datetime>now</datetime></modified></noteinfo></document>"),
         ":4: <datetime>: 'now' is not a date or time"},
        {database("<document><noteinfo noteid='9'/></document>\n<document><noteinfo noteid='9'/></document>"),
         ":4: <document>: another note of the file has this note ID"},
        {database("<document><noteinfo unid='85256A38005F8BFC0000000000000001'/></document>\n"
                  "<document><noteinfo noteid='1' unid='85256A38005F8BFC0000000000000001'/></document>"),
         ":3: <document>: another note of the file has the UNID 85256A38005F8BFC0000000000000001"},
        {database("<document><noteinfo noteid='7fffffff'/></document><document/>"),
         ":3: <document>: no note ID is left"},
        // Items
        {item(""), ":5: <item>: needs one element"},
        {item("<richtext/>"), ":6: <richtext>: the element has no place here"},
        {item("<text>" + std::string(maxSummaryValue + 1, 'a') + "</text>"),
         ":5: <item>: the value is longer than 32767"},
        {item("<textlist>" + repeated("<text/>", 33'000) + "</textlist>"), ":6: <textlist>: the list is too long"},
        {item("<number>1,5</number>"), ":6: <number>: '1,5' is not a number"},
        {item("<number>nan</number>"), ":6: <number>: 'nan' is not a number"},
        {item("<number>1e999</number>"), ":6: <number>: '1e999' is not a number"},
        {item("<datetime dst='true'>20240601</datetime>"), ":6: <datetime>: '20240601' is not"},
        {item("<datetimelist><datetimepair><datetime>20240601</datetime></datetimepair></datetimelist>"),
         ":6: <datetimepair>: needs two times"},
        {item("<datetimelist><datetimepair><datetime>20240601</datetime><datetime>20240601</datetime></datetimepair>\n"
              "<datetime>20240601</datetime></datetimelist>"),
         ":7: <datetime>: a single time after a pair"},
        {item("<formula>SELECT (</formula>"), ":6: <formula>: the formula does not compile: "},
        {item("<rawitemdata type='10000'/>"), ":6: <rawitemdata>: the attribute 'type' cannot be '10000'"},
        {item("<rawitemdata type='1'>AA=A</rawitemdata>"), ":6: <rawitemdata>: 'AA=A' is not Base64"},
        {item("<rawitemdata type='1'>AB==</rawitemdata>"), ":6: <rawitemdata>: 'AB==' is not Base64"},
        {database("<document><item name='a' sealed='true'><text/></item></document>"), ":3: <item>: an encrypted"},
        {database("<document><item name='a' krx:flags='1ffff'><text/></item></document>"), ":3: <item>: the attribute"},
    };
    const auto kept = import("kept.nsf", database("<note class='icon'/>"));
    const std::string before = ReadFile(kept);
    for (const Case& c : cases) {
        WriteFile(in("bad.dxl"), c.dxl);
        for (const char* target : {"kept.nsf", "new.nsf"}) {
            try {
                importDxl(in(target), in("bad.dxl"), true);
                ADD_FAILURE() << "taken: " << c.message;
            } catch (const StatusError& error) {
                EXPECT_EQ(error.status(), EMB_ERR_DXL);
                const std::string expected = in("bad.dxl").string() + c.message;
                EXPECT_EQ(std::string(error.what()).substr(0, expected.size()), expected) << error.what();
            }
        }
        std::filesystem::remove(in("bad.dxl"));
        ASSERT_EQ(files(), std::vector<std::string>{"kept.nsf"}) << c.message;
        ASSERT_EQ(ReadFile(kept), before) << c.message;
    }
}

TEST_F(Dxl, RefusesAFileThatIsTooLarge) {
    WriteFile(in("large.dxl"), "");
    std::filesystem::resize_file(in("large.dxl"), (size_t{64} << 20) + 1);
    try {
        importDxl(in("a.nsf"), in("large.dxl"), false);
        FAIL();
    } catch (const StatusError& error) {
        EXPECT_EQ(error.status(), EMB_ERR_DXL);
        EXPECT_NE(std::string(error.what()).find("larger than 64 MiB"), std::string::npos);
    }
}

// ---- Files

STATUS statusOf(const std::function<void()>& action) {
    try {
        action();
        return NOERROR;
    } catch (const StatusError& error) {
        return error.status();
    }
}

TEST_F(Dxl, LeavesTheFilesOfOthersAlone) {
    const auto a = import("a.nsf", database("<note class='icon'/>"));
    const auto b = WriteFile(in("b.dxl"), database("<note class='form'/>"));
    const std::string before = ReadFile(a);
    EXPECT_EQ(statusOf([&] { importDxl(a, b, false); }), ERR_EXISTS);
    EXPECT_EQ(statusOf([&] { importDxl(a, in("none.dxl"), true); }), ERR_NOEXIST);
    EXPECT_EQ(statusOf([&] { importDxl(a, in("."), true); }), EMB_ERR_DISK);
    EXPECT_EQ(statusOf([&] { importDxl(b, b, true); }), EMB_ERR_ARGUMENT);
    EXPECT_EQ(statusOf([&] { exportDxl(a, a, {}); }), EMB_ERR_ARGUMENT);
    EXPECT_EQ(statusOf([&] { exportDxl(b, in("c.dxl"), {}); }), ERR_NOT_NSF);
    EXPECT_EQ(statusOf([&] { exportDxl(a, in("none/c.dxl"), {}); }), EMB_ERR_DISK);
    {
        const auto user = FileLock::take(a, FileLock::Kind::shared);
        EXPECT_EQ(statusOf([&] { importDxl(a, b, true); }), EMB_ERR_BUSY);
    }
    EXPECT_EQ(ReadFile(a), before);
    EXPECT_EQ(ReadFile(b), database("<note class='form'/>"));
    EXPECT_EQ(files().size(), 2u);
}

TEST_F(Dxl, ReplacesADatabaseAndTheJournalThatADeadWriterLeft) {
    const auto a = import("a.nsf", database("<note class='icon'/>"));
    const auto b = import("b.nsf", database("<note class='form'/>"));
    WriteFile(in("a.nsf-journal"), "left");
    import("a.nsf", database("<note class='form'/>"), true);
    EXPECT_EQ(dump(a), dump(b));
    EXPECT_EQ(files().size(), 2u);
}

TEST_F(Dxl, ExportLeavesTheDatabaseAsItIs) {
    const auto a = import("a.nsf", database("<note class='icon'/>"));
    const std::string before = ReadFile(a);
    const auto time = std::filesystem::last_write_time(a) - std::chrono::hours(1);
    std::filesystem::last_write_time(a, time);
    (void)exported(a);
    (void)exported(a, true);
    EXPECT_EQ(std::filesystem::last_write_time(a), time);
    EXPECT_EQ(ReadFile(a), before);
    EXPECT_EQ(files(), std::vector<std::string>{"a.nsf"});
}

TEST_F(Dxl, AFileWithoutReplicaIdMakesReplicasAndAnotherFileDoesNot) {
    const std::string start = "<database xmlns='http://www.lotus.com/dxl'";
    const auto a = import("a.nsf", start + "><document/></database>");
    const auto b = import("b.nsf", start + "><document/></database>");
    const auto c = import("c.nsf", start + "><document form='a'/></database>");
    const auto id = [](const std::filesystem::path& file) {
        return Store::open(file, StoreAccess::readOnly)->getProperty(property::replicaInfo);
    };
    EXPECT_EQ(dump(a), dump(b));
    EXPECT_NE(id(a), id(c));
    const auto d = import("d.nsf", start + "><databaseinfo replicaid='85256A38005F8BFC'/></database>");
    EXPECT_EQ(id(d).substr(0, sizeof replicaId), bytesOf(replicaId));
}

// ---- The stable form

TEST_F(Dxl, StableExportShowsNoHistoryInItems) {
    const auto made = [&](const char* name, DWORD moment) {
        const auto fill = [moment](Store& store) {
            const UNID generated{generatedUnidFile(replicaId, 7), {{moment, 7}}};
            const std::string reference = std::string("\1\0", 2) + bytesOf(generated);
            store.insert(headOf(4, 1), encodeItems({{"$REF", TYPE_NOTEREF_LIST, 0, reference},
                                                    {"$Revisions", TYPE_TIME_RANGE, 0, std::string(moment, 'x')}}));
        };
        return exported(make(name, fill), true);
    };
    EXPECT_EQ(made("a.nsf", 1), made("b.nsf", 2));
}

} // namespace
} // namespace embedded
