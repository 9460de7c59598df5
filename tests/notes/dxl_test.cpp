#include "engine/dxl/dxl.h"

#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>

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

    std::filesystem::path Import(const char* name, const std::string& dxl,
                                 DxlImportInto into = DxlImportInto::newDatabase) const {
        WriteFile(In("in.dxl"), dxl);
        ImportDxl(In(name), In("in.dxl"), into);
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
        const auto copy = Import("copy.nsf", first, DxlImportInto::replacedDatabase);
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

STATUS StatusOf(const std::function<void()>& action) {
    try {
        action();
        return NOERROR;
    } catch (const StatusError& error) {
        return error.Status();
    }
}

// ---- Round trips

TEST_F(Dxl, ImportsEverythingAsTheFixtureSaysAndExportsItAsImported) {
    ImportDxl(In("a.nsf"), fixtures / "everything.dxl", DxlImportInto::newDatabase);
    EXPECT_EQ(Exported(In("a.nsf")), ReadFile(fixtures / "everything.exported.dxl"));
    ExpectSurvivesRoundTrip(In("a.nsf"));
    ImportDxl(In("b.nsf"), fixtures / "everything.dxl", DxlImportInto::newDatabase);
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
    std::vector<Item> decoded = DecodeItems(encoded);
    std::erase_if(decoded, [](const Item& item) { return IsHidden(item.type); });
    const std::vector<Item> items = {
        {"Form", TYPE_TEXT, ITEM_SUMMARY, "R\x81le"},
        {"T", TYPE_TEXT, ITEM_SUMMARY, {"\x82\0b", 3}},
        {"L", TYPE_TEXT_LIST, ITEM_SUMMARY, {"\x02\0\x01\0\0\0a", 7}},
        {"N", TYPE_NUMBER_RANGE, ITEM_SUMMARY, std::string("\x01\0\0\0", 4) + BytesOf(1.0)},
    };
    EXPECT_EQ(decoded, items);
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

/** Little endian, with the mark. */
std::string Utf16(std::u16string_view text) {
    std::string bytes = "\xFF\xFE";
    for (const char16_t unit : text) {
        bytes += BytesOf(unit);
    }
    return bytes;
}

std::string Repeated(const std::string& text, size_t times) {
    std::string out;
    while (times-- > 0) {
        out += text;
    }
    return out;
}

TEST_F(Dxl, RefusesWhatIsNoDxlOrBeyondTheLimitsByLineAndElement) {
    struct Case {
        std::string dxl;
        const char* message; // behind the file's name
    };
    const std::string type = "<!DOCTYPE database SYSTEM 'domino.dtd'>\n";
    const Case cases[] = {
        // XML
        {"", ":1: not well-formed XML: no element found"},
        {"\n\ntext", ":3: not well-formed XML: syntax error"},
        {Database("<!-- \xC0\xAF -->"), ":3: in <database>: not well-formed XML: not well-formed"},
        {Database("<note class='a<b'/>"), ":3: in <database>: not well-formed XML: not well-formed"},
        {Database("<note class='form'/>\n\x01"), ":4: in <database>: not well-formed XML: not well-formed"},
        {"<?xml version='1.0' encoding='x-none'?>\n<database/>", ":1: not well-formed XML: unknown encoding"},
        {"<!DOCTYPE database [<!ENTITY a 'b'>]>\n<database/>", ":1: <!DOCTYPE> with declarations"},
        {Database("<!ENTITY a 'b'>"), ":3: in <database>: not well-formed XML"},
        {Item("<text>&eacute;</text>"), ":6: in <text>: not well-formed XML: undefined entity"},
        {type + Item("<text>&eacute;</text>").substr(std::string("<?xml version='1.0'?>\n").size()),
         ":6: in <text>: the reference '&eacute;' is not taken"},
        {type.substr(0, type.size() - 1) + "<database xmlns='http://www.lotus.com/dxl'\n title='&eacute;'/>",
         ":1: the reference '&eacute;' is not taken"},
        {Utf16(u"<!DOCTYPE note SYSTEM 'y'>\n<note xmlns='http://www.lotus.com/dxl' a='\u0426&foo;'/>"),
         ":2: the reference '&foo;' is not taken"},
        {Utf16(u"<note xmlns='http://www.lotus.com/dxl'>\n\u0A0A\u010A<a>\n</note>"),
         ":3: in <a>: not well-formed XML: mismatched tag"},
        {Item("<text>&#0;</text>"), ":6: in <text>: not well-formed XML: reference to invalid character number"},
        {Item("<text>a & b</text>"), ":6: in <text>: not well-formed XML"},
        {Database("<note class='form'>\n</notes>"), ":4: in <note>: not well-formed XML: mismatched tag"},
        {"<database xmlns='http://www.lotus.com/dxl'>\n<note>", ":2: in <note>: not well-formed XML: no element found"},
        {"<database xmlns='http://www.lotus.com/dxl'/>\n<database/>", ":2: not well-formed XML: junk after"},
        {Database("<note class='form' class='form'/>"), ":3: in <database>: not well-formed XML: duplicate attribute"},
        {Database("<note><a:b/></note>"), ":3: in <note>: not well-formed XML: unbound prefix"},
        // The limits
        {Item(Repeated("<a>", 300)), ":6: <a>: elements are nested deeper than 256"},
        {Item(Repeated("<a>", 255)), ":6: <a>: elements are nested deeper than 256"},
        {Database("<note a=\"" + std::string(180'000, '\'') + "\"/>"), ":3: <note>: the tag is longer than 1 MiB"},
        {Database("<!--" + std::string(3'000'000, 'a')), ":2: in <database>: a tag, comment or instruction is longer"},
        // The root
        {"\n<database/>", ":2: <database>: the root is no database, note or access control list of the namespace"},
        {"<database xmlns='urn:other'/>", ":1: <database>: the root is no database"},
        {"<richtext xmlns='http://www.lotus.com/dxl'/>", ":1: <richtext>: the root is no database"},
        // Words of this project, and what identifies a note
        {Database("<note class='form' krx:other='1'/>"), ":3: <note>: the attribute 'krx:other' has no place here"},
        {Database("<note class='form'>\n<krx:other/></note>"), ":4: <krx:other>: the element has no place here"},
        {Database("<krx:stub class='form'>\n<item name='a'><text/></item></krx:stub>"), ":4: <item>"},
        {Database("<note krx:class='0004'/>"), ":3: <note>: the attribute 'krx:class' cannot be '0004'"},
        {Database("<document><noteinfo noteid='x' krx:noteid='y'/></document>"),
         ":3: <noteinfo>: the attribute 'noteid' cannot be 'x'"},
        {Database("<document><noteinfo noteid='9'/></document>\n<document><noteinfo noteid='9'/></document>"),
         ":4: <document>: another note of the file has the note ID 9"},
        {Database("<document><noteinfo unid='85256A38005F8BFC0000000000000001'/></document>\n"
                  "<document><noteinfo noteid='1' unid='85256A38005F8BFC0000000000000001'/></document>"),
         ":3: <document>: another note of the file has the UNID 85256A38005F8BFC0000000000000001"},
        {Database("<document><noteinfo noteid='7fffffff'/></document><document/>"),
         ":3: <document>: no note ID is left"},
    };
    const auto kept = Import("kept.nsf", Database("<note class='icon'/>"));
    const std::string before = ReadFile(kept);
    for (const Case& c : cases) {
        WriteFile(In("bad.dxl"), c.dxl);
        for (const char* target : {"kept.nsf", "new.nsf"}) {
            try {
                ImportDxl(In(target), In("bad.dxl"), DxlImportInto::replacedDatabase);
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

TEST_F(Dxl, AnInterruptedImportLeavesNothing) {
    const auto kept = Import("kept.nsf", Database("<note class='icon'/>"));
    const std::string before = ReadFile(kept);
    WriteFile(In("in.dxl"), Database(Repeated("<document><item name='a'><text>b</text></item></document>\n", 5000)));
    uint64_t last = 0;
    const auto half = [&last](uint64_t done, uint64_t total) {
        EXPECT_GT(done, last);
        EXPECT_LE(done, total);
        last = done;
        return done < total / 2;
    };
    for (const char* target : {"kept.nsf", "new.nsf"}) {
        last = 0;
        EXPECT_EQ(StatusOf([&] { ImportDxl(In(target), In("in.dxl"), DxlImportInto::replacedDatabase, half); }),
                  EMB_ERR_CANCELLED);
    }
    std::filesystem::remove(In("in.dxl"));
    EXPECT_EQ(Files(), std::vector<std::string>{"kept.nsf"});
    EXPECT_EQ(ReadFile(kept), before);
}

TEST_F(Dxl, LetsNoExceptionOutOfAnOperation) {
    const auto dxl = WriteFile(In("in.dxl"), Database("<document form='1'/>"));
    char message[128] = "";
    EmbDxlProgressSet([](void*, uint64_t, uint64_t) -> STATUS { throw std::length_error("too long"); }, nullptr);
    EXPECT_EQ(EmbDxlImport(In("a.nsf").c_str(), dxl.c_str(), 0, message, sizeof message), ERR_UNKNOWN);
    EmbDxlProgressSet([](void*, uint64_t, uint64_t) -> STATUS { throw std::bad_alloc(); }, nullptr);
    EXPECT_STREQ(message, "too long");
    EXPECT_EQ(EmbDxlImport(In("a.nsf").c_str(), dxl.c_str(), 0, message, sizeof message), ERR_MEMORY);
    EXPECT_STREQ(message, "Insufficient memory.");
    EmbDxlProgressSet(nullptr, nullptr);
}

TEST_F(Dxl, NotesThatLeaveOutIdentityComeBehindThoseThatStateIt) {
    const std::string unid = "200A9D3E000000010025685900000000"; // the first that would be made
    const auto database =
        Import("a.nsf", Database("<document form='1'/><document form='2'><noteinfo noteid='8fa'/></document>"
                                 "<document form='3'><noteinfo unid='" +
                                 unid + "'/></document><document form='4'><noteinfo noteid='8f6'/></document>"));
    std::map<NOTEID, std::string> forms;
    Store::Open(database, StoreAccess::readOnly)->Scan(0, 9, [&](const NoteHead& head, std::string_view items) {
        forms[head.id] = FindItem(items, "Form")->value;
    });
    EXPECT_EQ(forms, (std::map<NOTEID, std::string>{{0x8F6, "4"}, {0x8FA, "2"}, {0x8FE, "3"}, {0x902, "1"}}));
}

TEST_F(Dxl, ReadsAPipe) {
    const std::string dxl = Database("<document form='1'/>");
    Import("a.nsf", dxl);
    ASSERT_EQ(mkfifo(In("pipe").c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(In("pipe"), std::ios::binary) << dxl; });
    EXPECT_EQ(StatusOf([&] { ImportDxl(In("b.nsf"), In("pipe"), DxlImportInto::newDatabase); }), NOERROR);
    writer.join();
    EXPECT_EQ(Exported(In("b.nsf")), Exported(In("a.nsf")));
}

// ---- Files

TEST_F(Dxl, LeavesTheFilesOfOthersAlone) {
    const auto a = Import("a.nsf", Database("<note class='icon'/>"));
    const auto b = WriteFile(In("b.dxl"), Database("<note class='form'/>"));
    const std::string before = ReadFile(a);
    EXPECT_EQ(StatusOf([&] { ImportDxl(a, b, DxlImportInto::newDatabase); }), ERR_EXISTS);
    EXPECT_EQ(StatusOf([&] { ImportDxl(a, In("none.dxl"), DxlImportInto::replacedDatabase); }), ERR_NOEXIST);
    EXPECT_EQ(StatusOf([&] { ImportDxl(a, In("."), DxlImportInto::replacedDatabase); }), EMB_ERR_DISK);
    EXPECT_EQ(StatusOf([&] { ImportDxl(b, b, DxlImportInto::replacedDatabase); }), EMB_ERR_ARGUMENT);
    EXPECT_EQ(StatusOf([&] { ExportDxl(a, a, {}); }), EMB_ERR_ARGUMENT);
    EXPECT_EQ(StatusOf([&] { ExportDxl(b, In("c.dxl"), {}); }), ERR_NOT_NSF);
    EXPECT_EQ(StatusOf([&] { ExportDxl(a, In("none/c.dxl"), {}); }), EMB_ERR_DISK);
    {
        const auto user = FileLock::Take(a, FileLock::Kind::shared);
        EXPECT_EQ(StatusOf([&] { ImportDxl(a, b, DxlImportInto::replacedDatabase); }), EMB_ERR_BUSY);
    }
    EXPECT_EQ(ReadFile(a), before);
    EXPECT_EQ(ReadFile(b), Database("<note class='form'/>"));
    EXPECT_EQ(Files().size(), 2u);
}

TEST_F(Dxl, ReplacesADatabaseAndTheJournalThatADeadWriterLeft) {
    const auto a = Import("a.nsf", Database("<note class='icon'/>"));
    const auto b = Import("b.nsf", Database("<note class='form'/>"));
    WriteFile(In("a.nsf-journal"), "left");
    Import("a.nsf", Database("<note class='form'/>"), DxlImportInto::replacedDatabase);
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
