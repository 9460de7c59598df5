// The helpers between the module and the Notes API: owners, searches, texts, UNID texts.
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "foundation/exception_barrier.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/unid_text.h"
#include "support/server_fixture.h"
#include "support/system.h"

namespace updkrx {
namespace {

constexpr const char* databasePath = "krx/test.nsf";

class NotesHelpersTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        MakeDatabase(databasePath, "<document form='A'><item name='T'><text>one</text></item></document>"
                                   "<document form='B'><item name='T'><text>two</text></item></document>");
    }
};

/** The parameter of CollectText. */
struct TextSearch {
    DBHANDLE database;
    STATUS answer;
    std::string texts;
};

STATUS LNCALLBACK CollectText(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    const SEARCH_MATCH found = CopyMatch(match);
    if (!IsMatch(found)) {
        return NOERROR;
    }
    TextSearch& search = *static_cast<TextSearch*>(parameter);
    ScopedNote note;
    EXPECT_EQ(NSFNoteOpen(search.database, found.ID.NoteID, 0, note.Out()), NOERROR);
    char text[16];
    const WORD length = GetItemText(note.Get(), "T", text, sizeof text);
    EXPECT_EQ(length, std::strlen(text));
    search.texts += text;
    return search.answer;
}

TEST_F(NotesHelpersTest, OwnersCloseOnceOnEveryPath) {
    {
        ScopedDatabase database;
        ASSERT_EQ(NSFDbOpen(databasePath, database.Out()), NOERROR);
        ASSERT_EQ(NSFDbOpen(databasePath, database.Out()), NOERROR); // closes the first
        EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_DATABASE), 1U);
        ScopedDatabase moved(std::move(database));
        EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_DATABASE), 1U);
        ScopedDatabase other;
        ASSERT_EQ(NSFDbOpen(databasePath, other.Out()), NOERROR);
        other = std::move(moved);
        EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_DATABASE), 1U);
        EXPECT_NE(other.Get(), DBHANDLE{NULLHANDLE});
    }
    EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_DATABASE), 0U);

    ScopedDatabase database;
    ASSERT_EQ(NSFDbOpen(databasePath, database.Out()), NOERROR);
    ASSERT_EQ(EmbFaultArm("NSFDbClose", 1, ERR_NOACCESS, 0), NOERROR);
    EXPECT_EQ(database.Close(), ERR_NOACCESS) << "the status comes back";
    EXPECT_EQ(database.Get(), DBHANDLE{NULLHANDLE});
    EXPECT_EQ(database.Close(), NOERROR);
}

TEST_F(NotesHelpersTest, SearchesWhatTheFormulaSelects) {
    TextSearch search = {};
    ScopedDatabase database;
    ASSERT_EQ(NSFDbOpen(databasePath, database.Out()), NOERROR);
    search.database = database.Get();
    ScopedFormula formula;
    ASSERT_EQ(CompileSelection("Form=\"B\"", maxSelectionLength, formula), NOERROR);
    EXPECT_EQ(SearchNotes(database.Get(), formula.Get(), NOTE_CLASS_DOCUMENT, CollectText, &search), NOERROR);
    EXPECT_EQ(search.texts, "two") << "what is delivered without a match is passed over";
    search.texts.clear();
    EXPECT_EQ(SearchNotes(database.Get(), NULLHANDLE, NOTE_CLASS_DOCUMENT, CollectText, &search), NOERROR);
    EXPECT_EQ(search.texts.size(), 6U);
    search.texts.clear();
    EXPECT_EQ(SearchNotes(database.Get(), NULLHANDLE, NOTE_CLASS_FORM, CollectText, &search), NOERROR);
    EXPECT_EQ(search.texts, "");
    search.answer = ERR_MEMORY;
    EXPECT_EQ(SearchNotes(database.Get(), NULLHANDLE, NOTE_CLASS_DOCUMENT, CollectText, &search), ERR_MEMORY);
    EXPECT_EQ(search.texts.size(), 3U) << "ended by the first step";
    ASSERT_EQ(EmbFaultArm("NSFSearch", 1, ERR_NOACCESS, 0), NOERROR);
    EXPECT_EQ(SearchNotes(database.Get(), NULLHANDLE, NOTE_CLASS_DOCUMENT, CollectText, &search), ERR_NOACCESS);
}

TEST_F(NotesHelpersTest, CutsASelectionFormulaToItsLimit) {
    ScopedFormula formula;
    EXPECT_EQ(CompileSelection("Form=\"B\" nonsense", 8, formula), NOERROR) << "cut behind the formula";
    EXPECT_NE(CompileSelection("Form=\"B\" nonsense", 31, formula) & ERR_MASK, NOERROR);
    EXPECT_EQ(formula.Get(), FORMULAHANDLE{NULLHANDLE});
    EXPECT_EQ(CompileSelection(("Form=\"B\"" + std::string(2000, ' ') + "nonsense").c_str(), MAXWORD, formula), NOERROR)
        << "never beyond its own buffer";
}

TEST_F(NotesHelpersTest, CopiesAMatchFromAnyAddress) {
    SEARCH_MATCH match = {};
    match.ID.NoteID = 0x1234;
    match.NoteClass = NOTE_CLASS_HELP;
    match.SERetFlags = SE_FMATCH | 0x02;
    match.SummaryLength = 77;
    char bytes[1 + 54];
    std::memcpy(bytes + 1, &match, 54);
    const SEARCH_MATCH copy = CopyMatch(reinterpret_cast<const SEARCH_MATCH*>(bytes + 1));
    EXPECT_EQ(copy.ID.NoteID, 0x1234U);
    EXPECT_EQ(copy.NoteClass, NOTE_CLASS_HELP);
    EXPECT_EQ(copy.SummaryLength, 77);
    EXPECT_TRUE(IsMatch(copy)) << "a further flag does not matter";
    match.SERetFlags = 0x02;
    EXPECT_FALSE(IsMatch(match));
}

TEST_F(NotesHelpersTest, TranslatesAndTerminates) {
    char lmbcs[8] = "#######";
    const std::string text = test::Native("üa");
    EXPECT_EQ(ToLmbcs(text.c_str(), lmbcs, sizeof lmbcs), 2);
    EXPECT_STREQ(lmbcs, "\x81"
                        "a");
    char native[8] = "#######";
    EXPECT_EQ(ToNative(lmbcs, native, sizeof native), text.size());
    EXPECT_EQ(native, text);
    EXPECT_EQ(ToNative("abcdef", native, 4), 3);
    EXPECT_STREQ(native, "abc");
    EXPECT_EQ(ToNative("abcdef", native, 1), 0);
    EXPECT_STREQ(native, "");
    ASSERT_EQ(EmbFaultArm("OSTranslate", 1, ERR_MEMORY, 0), NOERROR);
    EXPECT_EQ(ToLmbcs("abc", lmbcs, sizeof lmbcs), 0);
    EXPECT_STREQ(lmbcs, "");
}

TEST_F(NotesHelpersTest, ReadsTheEnvironment) {
    SetEnvironment("MailServer", "0123456789");
    char text[8] = "#######";
    EXPECT_TRUE(GetEnvironmentText("MailServer", text, sizeof text));
    EXPECT_STREQ(text, "0123456");
    EXPECT_FALSE(GetEnvironmentText("NoSuchVariable", text, sizeof text));
    EXPECT_STREQ(text, "");
}

TEST_F(NotesHelpersTest, GivesTheTextOfAMaskedStatus) {
    char text[256];
    GetStatusText(ERR_NOEXIST, text, sizeof text);
    const std::string whole = text;
    EXPECT_FALSE(whole.empty());
    GetStatusText(static_cast<STATUS>(ERR_NOEXIST | STS_REMOTE | 0x8000), text, sizeof text);
    EXPECT_EQ(text, whole);
    GetStatusText(ERR_NOEXIST, text, 5);
    EXPECT_EQ(text, whole.substr(0, 4));

    AddServerLogStatus(ERR_NOEXIST);
    AddServerLogLine("100%s %d%n");
    AddServerLogLine(std::string(1000, 'x').c_str());
    for (const std::string& line : {whole, std::string("100%s %d%n"), std::string(255, 'x')}) {
        EXPECT_EQ(ServerLogCount(line), 1) << line;
    }
}

TEST_F(NotesHelpersTest, LetsNoExceptionOut) {
    SwitchLogOn();
    EXPECT_EQ(WithoutExceptions("step", 7, [] { return 3; }), 3);
    EXPECT_EQ(WithoutExceptions("step", 7, []() -> int { throw std::runtime_error("no reason"); }), 7);
    EXPECT_EQ(WithoutExceptions("step", 7, []() -> int { throw 1; }), 7);
    EXPECT_EQ(LogMessages(), (std::vector<std::string>{"[1]Error: step was broken off. (no reason)",
                                                       "[1]Error: step was broken off."}));
}

TEST_F(NotesHelpersTest, FormatsTheUnidOfANote) {
    MakeDatabase("krx/unid.nsf", "<document form='A'><noteinfo unid='0123456789ABCDEF00FF00EE00DD00CC'/></document>");
    ScopedDatabase database;
    ASSERT_EQ(NSFDbOpen("krx/unid.nsf", database.Out()), NOERROR);
    UNID unid = {};
    ParseUnidText("0123456789ABCDEF00FF00EE00DD00CC", unid);
    ScopedNote note;
    ASSERT_EQ(NSFNoteOpenByUNID(database.Get(), &unid, 0, note.Out()), NOERROR);
    char text[unidTextSize];
    GetUnidText(note.Get(), text);
    EXPECT_STREQ(text, "0123456789ABCDEF00FF00EE00DD00CC");
}

TEST(UnidText, HoldsTheHighWordFirst) {
    const UNID unid = {{{0x89ABCDEF, 0x01234567}}, {{0xCC, 0xFF00EE}}};
    char text[unidTextSize];
    FormatUnidText(unid, text);
    EXPECT_STREQ(text, "0123456789ABCDEF00FF00EE000000CC");
}

TEST(UnidText, IsReadBackInGroupsOfEight) {
    constexpr DWORD kept = 0x5A5A5A5A;
    const struct {
        const char* text;
        DWORD words[4]; // file high, file low, note high, note low
    } cases[] = {
        {"0123456789ABCDEF00FF00EE000000CC", {0x01234567, 0x89ABCDEF, 0x00FF00EE, 0xCC}},
        {"0123456789abcdef00ff00ee000000cc", {0x01234567, 0x89ABCDEF, 0x00FF00EE, 0xCC}},
        {"0123456789ABCDEF00FF00EE000000CCFF", {0x01234567, 0x89ABCDEF, 0x00FF00EE, 0xCC}},
        {"0123456712zzzzzz   00FF0xyzxyzxy", {0x01234567, 0x12, 0x00FF0, kept}},
        {"        89ABCDEF", {kept, 0x89ABCDEF, kept, kept}},
        {"012", {0x012, kept, kept, kept}},
        {"", {kept, kept, kept, kept}},
    };
    for (const auto& [text, words] : cases) {
        SCOPED_TRACE(text);
        UNID unid = {{{kept, kept}}, {{kept, kept}}};
        ParseUnidText(text, unid);
        EXPECT_EQ(unid.File.Innards[1], words[0]);
        EXPECT_EQ(unid.File.Innards[0], words[1]);
        EXPECT_EQ(unid.Note.Innards[1], words[2]);
        EXPECT_EQ(unid.Note.Innards[0], words[3]);
    }
}

} // namespace
} // namespace updkrx
