// Whatever a server writes stands in the export again. The comparison reads both files with another parser than the
// engine does, and goes by elements: a name, an attribute, a text or data in Base64 that is missing, or stands in
// another place, is told by its path.
#include <algorithm>
#include <map>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "engine/database/database.h"
#include "engine/dxl/dxl.h"
#include "engine/formula/formula.h"
#include "engine/values/base64.h"
#include "support/temporary_folder.h"

namespace embedded {
namespace {

using updkrx::test::ReadFile;
using updkrx::test::WriteFile;

const std::filesystem::path fixtures = std::filesystem::path(__FILE__).parent_path() / "fixtures" / "dxl";

// ---- The comparison

struct Tree {
    std::string name; // with its namespace in front, unless that is DXL's
    std::map<std::string, std::string> attributes;
    std::string text; // white space counts where there is other text
    std::vector<Tree> children;
};

std::string UriOf(pugi::xml_node node, const std::string& prefix) {
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + prefix;
    for (; node; node = node.parent()) {
        if (const auto found = node.attribute(declaration.c_str())) {
            return found.value();
        }
    }
    return {};
}

std::string NameOf(pugi::xml_node node, const std::string& written, bool isElement) {
    const size_t colon = written.find(':');
    if (colon == std::string::npos && !isElement) {
        return written;
    }
    const std::string uri = UriOf(node, colon == std::string::npos ? "" : written.substr(0, colon));
    const std::string local = colon == std::string::npos ? written : written.substr(colon + 1);
    return uri == "http://www.lotus.com/dxl" ? local : "{" + uri + "}" + local;
}

std::string WithoutSpace(std::string text) {
    std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    return text;
}

Tree TreeOf(pugi::xml_node node) {
    Tree tree{NameOf(node, node.name(), true), {}, {}, {}};
    for (const auto attribute : node.attributes()) {
        const std::string name = attribute.name();
        if (name != "xmlns" && !name.starts_with("xmlns:")) {
            tree.attributes[NameOf(node, name, false)] = attribute.value();
        }
    }
    for (const auto child : node.children()) {
        if (child.type() == pugi::node_element) {
            tree.children.push_back(TreeOf(child));
        } else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            tree.text += child.value();
        }
    }
    constexpr std::string_view data[] = {"rawitemdata", "itemdata", "filedata", "compositedata", "gif"};
    const std::string dense = WithoutSpace(tree.text);
    if (dense.empty()) {
        tree.text.clear();
    } else if (std::ranges::find(data, tree.name) != std::end(data)) {
        tree.text = BytesFromBase64(dense).value_or(dense);
    } else if (tree.name == "database" || tree.name == "note" || tree.name == "noteinfo") {
        tree.text = dense; // not DXL: laid out anew
    }
    return tree;
}

Tree TreeOf(const std::string& xml) {
    pugi::xml_document document;
    const auto result = document.load_buffer(xml.data(), xml.size(), pugi::parse_default | pugi::parse_ws_pcdata);
    EXPECT_TRUE(result) << result.description();
    return TreeOf(document.document_element());
}

/** What the export adds where the source left it out. */
bool IsAdded(const Tree& parent, const Tree& child) {
    return (parent.name == "database" && child.name == "acl") || child.name == "noteinfo" || parent.name == "noteinfo";
}

/** Adds the paths of what the export lacks. */
void Compare(const Tree& source, const Tree& exported, const std::string& path, std::vector<std::string>& missing) {
    for (const auto& [name, value] : source.attributes) {
        const auto found = exported.attributes.find(name);
        if (found == exported.attributes.end() || found->second != value) {
            missing.push_back(path + "@" + name);
        }
    }
    if (source.text != exported.text) {
        missing.push_back(path + ": '" + source.text + "' is '" + exported.text + "'");
    }
    size_t at = 0;
    std::map<std::string, int> seen;
    for (const Tree& child : source.children) {
        const std::string place = path + "/" + child.name + "[" + std::to_string(++seen[child.name]) + "]";
        while (at < exported.children.size() && exported.children[at].name != child.name &&
               IsAdded(exported, exported.children[at])) {
            ++at;
        }
        if (at == exported.children.size() || exported.children[at].name != child.name) {
            missing.push_back(place);
            continue;
        }
        Compare(child, exported.children[at++], place, missing);
    }
    for (; at < exported.children.size(); ++at) {
        if (!IsAdded(exported, exported.children[at])) {
            missing.push_back(path + "/" + exported.children[at].name + ": not in the source");
        }
    }
}

std::vector<std::string> Missing(const std::string& source, const std::string& exported) {
    Tree wanted = TreeOf(source);
    if (wanted.name != "database") {
        wanted = Tree{"database", {}, {}, {wanted}};
    }
    std::vector<std::string> missing;
    Compare(wanted, TreeOf(exported), "", missing);
    return missing;
}

using NoPaths = std::vector<std::string>;

// ---- The fixtures

class Lossless : public testing::Test {
protected:
    std::filesystem::path In(const char* name) const { return folder_.Path() / name; }

    DxlRemarks Import(const char* name, const std::string& dxl, DxlImportInto into) const {
        WriteFile(In("in.dxl"), dxl);
        return ImportDxl(In(name), In("in.dxl"), into);
    }

    std::string Exported(const char* name, bool stable = false) const {
        ExportDxl(In(name), In("out.dxl"), {stable});
        return ReadFile(In("out.dxl"));
    }

    /** Imports, exports, imports and exports. */
    std::string ThereAndBack(const std::string& source) const {
        Import("a.nsf", source, DxlImportInto::replacedDatabase);
        const std::string first = Exported("a.nsf");
        const std::string stable = Exported("a.nsf", true);
        Import("b.nsf", first, DxlImportInto::replacedDatabase);
        EXPECT_EQ(Exported("b.nsf"), first);
        EXPECT_EQ(Exported("b.nsf", true), stable);
        return first;
    }

    std::shared_ptr<Database> Open(const char* name) {
        return Database::Open(In(name), StoreAccess::readWrite, clock_, behaviours_);
    }

    Clock clock_;
    Behaviours behaviours_;

private:
    updkrx::test::TemporaryFolder folder_;
};

class LosslessFixture : public Lossless, public testing::WithParamInterface<const char*> {};

TEST_P(LosslessFixture, StandsInTheExportAgain) {
    const std::string source = ReadFile(fixtures / (GetParam() + std::string(".dxl")));
    EXPECT_EQ(Missing(source, ThereAndBack(source)), NoPaths());
}

INSTANTIATE_TEST_SUITE_P(Dxl, LosslessFixture, testing::Values("database", "agent", "view", "note", "unknown"),
                         [](const auto& fixture) { return std::string(fixture.param); });

struct RootKind {
    const char* element;
    WORD noteClass;
    const char* title;
    const char* flags;
};

TEST_F(Lossless, EveryNoteElementCanBeTheRootAndIsFoundByClassTitleAndFlags) {
    constexpr const char* titled = "Element|el";
    const RootKind kinds[] = {
        {"document", NOTE_CLASS_DOCUMENT, "", ""},
        {"profiledocument", NOTE_CLASS_DOCUMENT, "", ""},
        {"form", NOTE_CLASS_FORM, titled, ""},
        {"subform", NOTE_CLASS_FORM, titled, "U"},
        {"page", NOTE_CLASS_FORM, titled, "W"},
        {"frameset", NOTE_CLASS_FORM, titled, "#"},
        {"imageresource", NOTE_CLASS_FORM, titled, "i"},
        {"fileresource", NOTE_CLASS_FORM, titled, "g"},
        {"stylesheetresource", NOTE_CLASS_FORM, titled, "="},
        {"appletresource", NOTE_CLASS_FORM, titled, "@"},
        {"sharedactions", NOTE_CLASS_FORM, titled, "y"},
        {"view", NOTE_CLASS_VIEW, titled, ""},
        {"folder", NOTE_CLASS_VIEW, titled, "F"},
        {"navigator", NOTE_CLASS_VIEW, titled, "G"},
        {"sharedcolumn", NOTE_CLASS_VIEW, titled, "^"},
        {"agent", NOTE_CLASS_FILTER, titled, "f"},
        {"scriptlibrary", NOTE_CLASS_FILTER, titled, "s"},
        {"databasescript", NOTE_CLASS_FILTER, titled, "t"},
        {"outline", NOTE_CLASS_FILTER, titled, "m"},
        {"dataconnection", NOTE_CLASS_FILTER, titled, "k"},
        {"sharedfield", NOTE_CLASS_FIELD, titled, ""},
        {"helpaboutdocument", NOTE_CLASS_INFO, titled, ""},
        {"helpusingdocument", NOTE_CLASS_HELP, titled, ""},
    };
    for (const RootKind& kind : kinds) {
        SCOPED_TRACE(kind.element);
        const std::string name = kind.element;
        const std::string source = "<" + name +
                                   " xmlns='http://www.lotus.com/dxl' replicaid='C12589A100345F20' name='Element' "
                                   "alias='el' noreplace='true'><body><richtext><par def='1'>one <run>two</run></par>"
                                   "</richtext></body><item name='Own'><text>value</text></item></" +
                                   name + ">";
        EXPECT_EQ(Missing(source, ThereAndBack(source)), NoPaths());
        const auto database = Open("a.nsf");
        int found = 0;
        Database::SearchRequest request;
        request.classMask = kind.noteClass;
        EXPECT_EQ(database->Search(request,
                                   [&](const Database::Match& match) {
                                       OpenNote note;
                                       database->ReadNote(match.head.id, note);
                                       EXPECT_EQ(ItemText(note.items, "$TITLE"), kind.title);
                                       EXPECT_EQ(ItemText(note.items, "$Flags"), kind.flags);
                                       EXPECT_EQ(ItemText(note.items, "own"), "value");
                                       ++found;
                                       return NOERROR;
                                   }),
                  NOERROR);
        EXPECT_EQ(found, 1);
    }
}

// ---- What operations leave of it

TEST_F(Lossless, SavingAndCopyingCarryAlongWhatIsKept) {
    for (const char* fixture : {"database", "agent", "view", "note", "unknown"}) {
        SCOPED_TRACE(fixture);
        const std::string source = ReadFile(fixtures / (fixture + std::string(".dxl")));
        Import("a.nsf", source, DxlImportInto::replacedDatabase);
        {
            const auto database = Open("a.nsf");
            size_t touched = 0;
            for (NOTEID id = 4; id < database->GetStore().NextId(); ++id) {
                NoteHead head;
                if (database->GetStore().ReadHead(id, head)) {
                    ++touched;
                    OpenNote note;
                    database->ReadNote(id, note);
                    note.items.Set({"Touched", TYPE_TEXT, ITEM_SUMMARY, "yes"});
                    note.items.Erase("Touched");
                    database->UpdateNote(note, false);
                }
            }
            EXPECT_GT(touched, 0U);
            CopyDatabase(*database, In("copy.nsf"), NOTE_CLASS_ALL, std::nullopt);
        }
        // Saving changes the sequence and the times, which the stable form leaves out.
        Import("untouched.nsf", source, DxlImportInto::replacedDatabase);
        const Tree wanted = TreeOf(Exported("untouched.nsf", true));
        std::vector<std::string> missing;
        Compare(wanted, TreeOf(Exported("copy.nsf", true)), "", missing);
        EXPECT_EQ(missing, NoPaths());
        std::filesystem::remove(In("copy.nsf"));
    }
}

TEST_F(Lossless, AnItemThatIsKeptAsXmlIsFoundReplacedAndDeletedByItsName) {
    Import("a.nsf", ReadFile(fixtures / "database.dxl"), DxlImportInto::newDatabase);
    auto database = Open("a.nsf");
    OpenNote note;
    database->ReadNote(0x8F6, note);
    EXPECT_TRUE(note.items.Find("body"));
    EXPECT_EQ(ItemText(note.items, "Body"), "");
    note.items.Set({"Body", TYPE_TEXT, ITEM_SUMMARY, "replaced"});
    EXPECT_TRUE(
        note.items.Erase("Share", true)); // the first of its name: what describes it has nothing to stand behind
    EXPECT_TRUE(note.items.Erase("$FILE"));
    EXPECT_FALSE(note.items.Find("$FILE"));
    database->UpdateNote(note, false);
    database->GetStore().Commit();
    const std::string dxl = Exported("a.nsf");
    EXPECT_EQ(dxl.find("Was diese Regel tut"), std::string::npos);
    EXPECT_EQ(dxl.find("filedata"), std::string::npos);
    EXPECT_NE(dxl.find("<item name='Body'><text>replaced</text></item>"), std::string::npos);
    EXPECT_NE(dxl.find("<item name='Priority'><number>10</number></item>"), std::string::npos);
    EXPECT_NE(dxl.find("<wassignedby>"), std::string::npos);
    // An item that is changed no longer follows from the element's attributes.
    OpenNote form;
    database->ReadNote(0x902, form);
    form.items.Set({"$TITLE", TYPE_TEXT, ITEM_SUMMARY, "Renamed"});
    database->UpdateNote(form, false);
    note = {};
    form = {};
    database.reset();
    const std::string renamed = ThereAndBack(Exported("a.nsf"));
    EXPECT_NE(renamed.find("<item name='$TITLE'><text>Renamed</text></item>"), std::string::npos);
}

std::string Repeated(std::string_view text, size_t times) {
    std::string out;
    while (times-- > 0) {
        out += text;
    }
    return out;
}

constexpr const char* spaces = " xmlns='http://www.lotus.com/dxl' xmlns:krx='urn:updkrx:embedded-notes' ";

std::string NoteOf(const std::string& content, const std::string& start = {}) {
    return start + "<note" + spaces + "class='form'>" + content + "</note>";
}

std::string ItemOf(const std::string& value) {
    return NoteOf("<item name='a'>" + value + "</item>");
}

std::string DatabaseOf(const std::string& content, const std::string& attributes = "replicaid='C12589A100345F20'") {
    return "<database" + std::string(spaces) + attributes + ">" + content + "</database>";
}

TEST_F(Lossless, WhatIsOtherThanExportWouldWriteItStaysSo) {
    const auto compiled = CompileFormula("SELECT Form = \"a\"");
    std::string attributes;
    for (int i = 0; i < 70; ++i) {
        attributes += "a" + std::to_string(i) + "='' ";
    }
    const std::string cases[] = {
        // Spelling
        ItemOf("<numberlist><number>1.50</number><number> 3 </number></numberlist>"),
        ItemOf("<datetimelist><datetime>T060306</datetime><datetimepair><datetime dst='false'>20010522T103636,81-0400"
               "</datetime><datetime>20010522T103637Z</datetime></datetimepair></datetimelist>"),
        NoteOf("<revisions><datetime>20010522T103636-04</datetime></revisions>"),
        NoteOf("<noteinfo><modified><datetime dst='false' zone='x'>20240112T103012,07+01</datetime></modified>"
               "<revised a='1'><datetime>20240112T103012Z</datetime></revised></noteinfo>"),
        // The element of the value
        ItemOf("<rawitemdata type='600'>AAEC</rawitemdata>"),
        ItemOf("<rawitemdata type='500'>YWJj</rawitemdata>"),
        ItemOf("<itemdata type='1'>YWJj</itemdata>"),
        ItemOf("<text compiled='true'>abc</text>"),
        ItemOf("<formula compiled='true'>" + Base64FromBytes(std::get<std::string>(compiled)) + "</formula>"),
        // Attributes and their namespaces
        ItemOf("<a xmlns:krx='urn:1' xmlns:krx-='urn:2' krx:b='1' krx-:b='2'/>"),
        NoteOf("<item name='b' krx:name='Rm9v'><text/></item>"),
        NoteOf("<item name='b' authors='false' krx:flags='0020'><text/></item>"),
        DatabaseOf("", attributes + "replicaid='C12589A100345F20'"),
        DatabaseOf("<acl name='x'/>"),
        DatabaseOf("<acl><aclentry name='a' gr\xC3\xB6\xC3\x9F"
                   "e='1'/></acl>"),
        // Up to the limits
        ItemOf(Repeated("<a>", 254) + Repeated("</a>", 254)),
        ItemOf("<a b=\"" + std::string(170'000, '\'') + "\"/>"),
        // Headings of files
        NoteOf("<item name='a'><text>&amp;</text></item>", "<!DOCTYPE note SYSTEM 'y' [<!-- c -->]>"),
    };
    for (const std::string& source : cases) {
        SCOPED_TRACE(source.substr(0, 400));
        EXPECT_EQ(Missing(source, ThereAndBack(source)), NoPaths());
    }
    std::string utf16 = "\xFF\xFE";
    for (const char16_t unit :
         std::u16string_view(u"<!DOCTYPE note SYSTEM 'y'><note xmlns='http://www.lotus.com/dxl' "
                             u"class='form'><item name='\u0426\u2605&lt;'><text/></item></note>")) {
        utf16 += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    }
    EXPECT_EQ(Missing(utf16, ThereAndBack(utf16)), NoPaths());
}

TEST_F(Lossless, WhatCannotIdentifyANoteOrDatabaseIsKeptBesideWhatDoes) {
    const std::pair<std::string, const char*> cases[] = {
        {NoteOf("<noteinfo noteid='0x8f6' unid='' sequence='-1'/>"),
         " krx:noteid='0x8f6' krx:unid='' krx:sequence='-1'"},
        {NoteOf("<noteinfo noteid='80000000' unid='5E0D' sequence='65536'/>"),
         " krx:noteid='80000000' krx:unid='5E0D' krx:sequence='65536'"},
        {DatabaseOf("", "replicaid='C12589A1:00345F20'"), " krx:replicaid='C12589A1:00345F20'"},
    };
    for (const auto& [source, kept] : cases) {
        EXPECT_NE(ThereAndBack(source).find(kept), std::string::npos) << kept;
    }
}

// ---- Values of any size

TEST_F(Lossless, LongValuesStandApartAndComeOutAgain) {
    std::string data;
    for (unsigned i = 0; i < 400'000; ++i) {
        data += static_cast<char>(i * 2654435761u >> 24);
    }
    const std::string text(100'000, 'x');
    const std::string source =
        "<document xmlns='http://www.lotus.com/dxl' form='F'><item name='Body'><richtext><par def='1'>" + text +
        "</par></richtext></item><item name='$FILE' summary='true'><object><file name='a'><filedata>" +
        Base64FromBytes(data) + "</filedata></file></object></item><item name='Raw'><rawitemdata type='1'>" +
        Base64FromBytes(data) + "</rawitemdata></item><item name='Text'><text>" + text + "</text></item></document>";
    EXPECT_EQ(Missing(source, ThereAndBack(source)), NoPaths());
    const auto store = Store::Open(In("b.nsf"), StoreAccess::readOnly);
    size_t largest = 0;
    store->Scan(0, 1, [&](const NoteHead&, std::string_view items) { largest = items.size(); });
    EXPECT_LT(largest, 1000u);
}

// ---- One more note

TEST_F(Lossless, ANoteGoesIntoADatabaseAndTakesThePlaceOfItsUnid) {
    Import("a.nsf", ReadFile(fixtures / "database.dxl"), DxlImportInto::newDatabase);
    const std::string before = Exported("a.nsf");
    const std::string agent = ReadFile(fixtures / "agent.dxl");
    EXPECT_EQ(Import("a.nsf", agent, DxlImportInto::existingDatabase), DxlRemarks());
    const std::string with = Exported("a.nsf");
    const auto remarks = Import("a.nsf", agent, DxlImportInto::existingDatabase);
    EXPECT_EQ(remarks, DxlRemarks{"the note of the UNID 9A0D3A1164B4D0C1C12589A1003471AD is replaced"});
    EXPECT_EQ(Exported("a.nsf"), with);
    const size_t end = with.find("  <agent ");
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(with.substr(0, end) + "</database>\n", before);

    const std::string bytes = ReadFile(In("a.nsf"));
    const auto untouched = [&](uint64_t, uint64_t) {
        const auto other = Store::Open(In("a.nsf"), StoreAccess::readWrite);
        EXPECT_NO_THROW(other->SetProperty("a", "b")); // not when somebody has begun to write
        other->Rollback();
        return true;
    };
    const std::string junk = agent + "<!--" + std::string(200'000, 'x') + "--><a/>";
    for (const std::string& refused : {junk, ReadFile(fixtures / "view.dxl").substr(0, 900), before}) {
        WriteFile(In("in.dxl"), refused);
        EXPECT_THROW(ImportDxl(In("a.nsf"), In("in.dxl"), DxlImportInto::existingDatabase, untouched), StatusError);
        EXPECT_EQ(Exported("a.nsf"), with);
    }
    EXPECT_EQ(ReadFile(In("a.nsf")), bytes);
    Import("full.nsf", NoteOf("<noteinfo noteid='7fffffff'/>"), DxlImportInto::newDatabase);
    EXPECT_THROW(Import("full.nsf", agent, DxlImportInto::existingDatabase), StatusError);
}

TEST_F(Lossless, UnknownElementsAreToldOnce) {
    const auto remarks = Import("a.nsf", ReadFile(fixtures / "unknown.dxl"), DxlImportInto::newDatabase);
    const DxlRemarks expected = {
        "<futuresettings> in <database>: not known, kept as it is",
        "<futurepart> in <futuresettings>: not known, kept as it is",
        "<futurerule> in <acl>: not known, kept as it is",
        "<futuredate> in <noteinfo>: not known, kept as it is",
        "<futurevalue> in <note>: not known, kept as it is",
    };
    EXPECT_EQ(remarks, expected);
    EXPECT_EQ(Import("c.nsf", NoteOf("<" + std::string(100, 'u') + "/>"), DxlImportInto::newDatabase),
              DxlRemarks{"<" + std::string(64, 'u') + "> in <note>: not known, kept as it is"});
    EXPECT_EQ(Import("b.nsf", ReadFile(fixtures / "database.dxl"), DxlImportInto::newDatabase), DxlRemarks());
}

} // namespace
} // namespace embedded
