// The helpers between the module and the Notes API: searches, texts, statuses, exceptions.
#include <cstring>
#include <stdexcept>
#include <string>

#include "foundation/exception_barrier.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/unid_text.h"
#include "support/server_fixture.h"
#include "support/system.h"

namespace updkrx {
namespace {

using NotesHelpersTest = test::ServerFixture;

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
    match.SERetFlags = SE_FMATCH | 0x02;
    match.SummaryLength = 77;
    char bytes[1 + 54];
    std::memcpy(bytes + 1, &match, 54);
    const SEARCH_MATCH copy = CopyMatch(reinterpret_cast<const SEARCH_MATCH*>(bytes + 1));
    EXPECT_EQ(copy.ID.NoteID, 0x1234U);
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
    EXPECT_EQ(ToLmbcs("abc", lmbcs, sizeof lmbcs), 3) << "the second time";
    ASSERT_EQ(EmbFaultArm("OSTranslate", 1, ERR_MEMORY, 1), NOERROR);
    EXPECT_EQ(ToLmbcs("abc", lmbcs, sizeof lmbcs), 0);
    EXPECT_STREQ(lmbcs, "");
}

TEST_F(NotesHelpersTest, CutsTheTextOfAnItem) {
    MakeDatabase("krx/a.nsf", "<document form='0123456789'/>");
    ScopedDatabase database;
    ScopedNote note;
    ASSERT_EQ(database.Open(NSFDbOpen, "krx/a.nsf"), NOERROR);
    ASSERT_EQ(note.Open(NSFNoteOpen, database.Get(), NOTEID{0x8F6}, WORD{0}), NOERROR);
    char text[] = "############";
    EXPECT_EQ(GetItemText(note.Get(), "Form", text, 5), 4);
    EXPECT_EQ(std::string(text, sizeof text - 1), std::string("0123\0#######", 12));
}

TEST(UnidText, IsReadInGroupsOfEightThatCountByThemselves) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"0123456789abcdef00000000FFFFFFFF12345678", "0123456789ABCDEF00000000FFFFFFFF"},
        {"85256A38005F", "85256A380000005F0000000300000004"},
        {"xyz 1234  +1a   --------0x5 junk", "000000010000001A0000000300000005"},
    };
    for (const auto& [read, written] : cases) {
        UNID unid = {{{2, 1}}, {{4, 3}}};
        ParseUnidText(read, unid);
        char text[unidTextSize];
        FormatUnidText(unid, text);
        EXPECT_STREQ(text, written);
    }
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

} // namespace
} // namespace updkrx
