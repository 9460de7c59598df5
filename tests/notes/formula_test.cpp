#include "engine/formula/formula.h"

#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/values/charset.h"
#include "engine/values/item_codec.h"

namespace embedded {
namespace {

using namespace std::string_literals;

std::string Compiled(std::string_view text) {
    const auto result = CompileFormula(text);
    if (const auto* error = std::get_if<FormulaError>(&result)) {
        ADD_FAILURE() << text.substr(0, 200) << ": " << error->message << " at " << error->offset;
        return {};
    }
    return std::get<std::string>(result);
}

FormulaError ErrorOf(std::string_view text) {
    const auto result = CompileFormula(text);
    if (const auto* error = std::get_if<FormulaError>(&result)) {
        return *error;
    }
    ADD_FAILURE() << text << " compiles";
    return {};
}

std::string Repeated(std::string_view text, size_t times) {
    std::string all;
    for (size_t i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

Item TextItem(const char* name, const std::string& value) {
    return {name, TYPE_TEXT, 0, value};
}

Item ListItem(const char* name, const std::vector<std::string_view>& entries) {
    return {name, TYPE_TEXT_LIST, 0, EncodeTextList(entries)};
}

const std::string& Note() {
    static const std::string items = EncodeItems({
        TextItem("Form", "rule"),
        TextItem("Empty", ""),
        TextItem("Form", "second item of the name"),
        ListItem("List", {"a", "b"}),
        ListItem("SameList", {"a", "b"}),
        ListItem("Longer", {"x", "c", "b"}),
        ListItem("Twins", {"a", "a"}),
        ListItem("NoEntries", {}),
        {"Number", TYPE_NUMBER, 0, std::string(8, '\0')},
        {"Time", TYPE_TIME, 0, std::string(8, '\0')},
        {"Numbers", TYPE_NUMBER_RANGE, 0, std::string(4, '\0')},
        {"Times", TYPE_TIME_RANGE, 0, std::string(4, '\0')},
        {"Raw", 1, 0, "rule"},
        {"BadList", TYPE_TEXT_LIST, 0, "\xFF\xFF"},
        TextItem("Größe", "groß"),
        TextItem("Quoted", R"(a "b" \c)"),
        TextItem("\x10\x95\x5C", "\x10\x83\x5C"),
    });
    return items;
}

TEST(Formula, CompilesToTheTreeInPrefixOrder) {
    EXPECT_EQ(Compiled("@All"), "EmF1A");
    EXPECT_EQ(Compiled(R"(SELECT FORM="r")"), "EmF1=F\4\0FORMT\1\0r"s);
    EXPECT_EQ(Compiled(R"(a="1" | b!="" & !@All)"), "EmF1|=F\1\0aT\1\0"
                                                    "1&#F\1\0bT\0\0!A"s);
    const std::string longText(0x1234, 'x');
    EXPECT_EQ(Compiled("a=\"" + longText + "\""), "EmF1=F\1\0aT\x34\x12"s + longText);
}

TEST(Formula, Selects) {
    const std::pair<const char*, bool> table[]{
        {"@All", true},
        {"select @aLL", true},
        {"SELECT\r\n\t!@All", false},
        // One value against one.
        {R"(Form = "rule")", true},
        {R"("rule" = form)", true},
        {R"(Form = "Rule")", false},
        {R"(Form != "rule")", false},
        {R"(Form = "second item of the name")", false},
        {R"(Quoted = "a \"b\" \\c")", true},
        {"\x10\x95\x5C = \"\x10\x83\x5C\"", true}, // ends in a backslash byte, as the quote after it must not notice
        {"\x10\x95\x5C = \"\x10\x83\x5D\"", false},
        // Items without a text.
        {R"(Empty = "")", true},
        {R"(Absent = "")", true},
        {R"(Absent = Empty)", true},
        {R"(Raw = "")", true},
        {R"(Raw = "rule")", false},
        {R"(BadList = "")", true},
        {R"(NoEntries = "")", true},
        {R"(Number = "")", false},
        {R"(Numbers = "" | Times = "")", false},
        {R"(Number = Number)", false},
        {R"($Ref_2 = "")", true},
        // Lists in pairs.
        {R"(List = "a")", true},
        {R"(List = "c")", false},
        {R"(List != "a")", true},
        {R"(Twins != "a")", false},
        {R"(List != SameList)", false},
        {R"(List = Longer)", true}, // the third pair is b and b
        {R"(Twins = Longer)", false},
        // Joined.
        {R"(Form="a" | Form="b" | Form="rule")", true},
        {R"(Form="rule" & Empty="" & Absent="")", true},
        {R"(Form="rule" & Empty="x" & Absent="")", false},
        {R"(@All | @All & !@All)", true},
        {R"((@All | @All) & !@All)", false},
        {R"(!@All & @All | @All)", true},
        {R"(!@All & (@All | @All))", false},
        {R"(!@All | (@All & !(!@All | @All)) | Form = "rule")", true},
        {R"(!@All | (@All & !(!@All | @All)) | Form = "x")", false},
        {R"((!@All & Form="x" | @All) & @All)", true}, // what is passed over holds operands and operators
        {R"((@All | !Form="x" & @All) & Form="x")", false},
    };
    for (const auto& [text, expected] : table) {
        EXPECT_EQ(FormulaSelects(Compiled(text), Note()), expected) << text;
    }
    EXPECT_TRUE(FormulaSelects(Compiled(LmbcsFromUtf8(R"(Größe = "groß")")),
                               EncodeItems({TextItem(LmbcsFromUtf8("Größe").c_str(), LmbcsFromUtf8("groß"))})));
    EXPECT_TRUE(FormulaSelects(Compiled("@All"), ""));
}

TEST(Formula, TextComesBackWithTheFewestParentheses) {
    const std::pair<const char*, const char*> table[]{
        {"@all", "@All"},
        {R"(select((FORM))=("x"))", R"(FORM = "x")"},
        {R"(a="\"\\" )", R"(a = "\"\\")"},
        {R"("x"!=a)", R"("x" != a)"},
        {R"(a="1"|(b="2"|c="3"))", R"(a = "1" | b = "2" | c = "3")"},
        {R"((a="1"|b="2")|c="3")", R"((a = "1" | b = "2") | c = "3")"},
        {R"((a="1"&b="2")|(c="3"&d="4"))", R"(a = "1" & b = "2" | c = "3" & d = "4")"},
        {R"((a="1"|b="2")&(c="3"|d="4"))", R"((a = "1" | b = "2") & (c = "3" | d = "4"))"},
        {R"((a="1"&b="2")&c="3")", R"((a = "1" & b = "2") & c = "3")"},
        {R"(!(a="1"))", R"(!a = "1")"},
        {R"(!(!(a="1"&b="2")))", R"(!!(a = "1" & b = "2"))"},
        {R"((!a="1")&b="2")", R"(!a = "1" & b = "2")"},
        {"a = \"\x10\x83\x5C\\\"\"", "a = \"\x10\x83\x5C\\\"\""},
        {"Select = \"\" & @All", nullptr}, // the first word is the keyword
        {"SELECT Select = \"\" & @All", "Select = \"\" & @All"},
    };
    for (const auto& [text, expected] : table) {
        if (!expected) {
            EXPECT_EQ(ErrorOf(text).offset, 7u);
            continue;
        }
        const std::string code = Compiled(text);
        EXPECT_TRUE(IsFormula(code)) << text;
        EXPECT_EQ(FormulaText(code), "SELECT "s + expected) << text;
        EXPECT_EQ(Compiled(FormulaText(code)), code) << text;
    }
}

struct BadFormula {
    std::string text;
    size_t line;
    size_t column;
    size_t offset;
    size_t length;
    const char* message;
};

TEST(Formula, ErrorsSayWhatAndWhere) {
    const BadFormula table[]{
        {"", 1, 1, 0, 0, "the formula is empty"},
        {" SELECT ", 1, 9, 8, 0, "the formula is empty"},
        {R"(Form = 12.5)", 1, 8, 7, 4, "the number 12.5 is not supported"},
        {R"(Form := "x")", 1, 6, 5, 2, "the symbol := is not supported"},
        {R"(@Contains(Form; "x"))", 1, 1, 0, 9, "the function @Contains is not supported"},
        {R"(@All;)", 1, 5, 4, 1, "the symbol ; is not supported"},
        {"Form = \"x\n\"y\"", 2, 2, 11, 1, "y where the end of the formula is expected"},
        {"@All &\n  Form = \"x", 2, 10, 16, 2, "a text without a closing quote"},
        {R"(Form = "x\")", 1, 8, 7, 4, "a text without a closing quote"},
        {R"(Form = "C:\d")", 1, 11, 10, 1, "a backslash that stands before neither a quote nor a backslash"},
        {R"(@All "x")", 1, 6, 5, 3, "\"x\" where the end of the formula is expected"},
        {R"(Form = "x" = "y")", 1, 12, 11, 1, "= where the end of the formula is expected"},
        {R"((@All)", 1, 6, 5, 0, "the end of the formula where a closing parenthesis is expected"},
        {R"(Form =)", 1, 7, 6, 0, "the end of the formula where a field, a text or a condition is expected"},
        {R"(@All | & @All)", 1, 8, 7, 1, "& where a field, a text or a condition is expected"},
        {R"(Form = !@All)", 1, 8, 7, 1, "! where a field, a text or a condition is expected"},
        {R"(Form)", 1, 1, 0, 4, "Form is no condition"},
        {R"(@All | ("x"))", 1, 8, 7, 5, "(\"x\") is no condition"},
        {R"(Form = @All)", 1, 8, 7, 4, "@All cannot be compared, it is a condition"},
        {R"((Form = "x") = "y")", 1, 1, 0, 12, "(Form = \"x\") cannot be compared, it is a condition"},
        {"\x10\x83\x5C = \x82 | \x05", 1, 11, 10, 1, "bytes that are no character of LMBCS"},
        {"\x10\x83\x5C", 1, 1, 0, 3, "ソ is no condition"},
        {"@All |\n\x01\x0A = 1", 2, 6, 12, 1, "the number 1 is not supported"}, // a character that holds a line feed
        {"a\x0F\x21 = \"\"", 1, 2, 1, 2, "the symbol \x01 is not supported"},
        {"a\0=\"x\""s, 1, 2, 1, 1, nullptr},
    };
    for (const BadFormula& bad : table) {
        SCOPED_TRACE(bad.text);
        const FormulaError error = ErrorOf(bad.text);
        if (bad.message) {
            EXPECT_EQ(error.message, bad.message);
        }
        EXPECT_EQ(error.line, bad.line);
        EXPECT_EQ(error.column, bad.column);
        EXPECT_EQ(error.offset, bad.offset);
        EXPECT_EQ(error.length, bad.length);
    }
}

TEST(Formula, NestingAndSizeAreBounded) {
    const auto nested = [](size_t depth) { return Repeated("(", depth) + "@All" + Repeated(")", depth); };
    EXPECT_EQ(Compiled(nested(maxFormulaNesting)), Compiled("@All"));
    EXPECT_EQ(ErrorOf(nested(maxFormulaNesting + 1)).offset, maxFormulaNesting);
    EXPECT_EQ(ErrorOf(Repeated("!", maxFormulaNesting + 1) + "@All").offset, maxFormulaNesting);
    ErrorOf(Repeated("(", 1000000));

    // Trees that are as deep as can be, in each way to be deep.
    struct Shape {
        const char* outer;
        const char* innermost;
        const char* closing;
        size_t nesting; // of one outer
    };
    for (const Shape& shape : {Shape{"!", "A", "", 1}, Shape{"|", "|AA", "A", 1}, Shape{"&", "|AA", "A", 1},
                               Shape{"&", "&AA", "A", 1}, Shape{"&A|A", "A", "", 1}, Shape{"!|A", "A", "", 2}}) {
        SCOPED_TRACE(shape.outer);
        const auto code = [&shape](size_t depth) {
            return "EmF1" + Repeated(shape.outer, depth) + shape.innermost + Repeated(shape.closing, depth);
        };
        const std::string deepest = code(maxFormulaNesting / shape.nesting);
        EXPECT_TRUE(IsFormula(deepest));
        EXPECT_EQ(Compiled(FormulaText(deepest)), deepest);
        EXPECT_FALSE(IsFormula(code(maxFormulaNesting / shape.nesting + 1)));
    }

    // What stands side by side is not nested.
    Compiled(Repeated("(@All) | ", maxFormulaNesting) + "(@All)");
    Compiled(Repeated("!@All & ", maxFormulaNesting) + "!@All");

    // A chain is not nested, however long it is.
    const std::string chain = Repeated("@All & ", 32000) + "!@All";
    const std::string code = Compiled(chain);
    EXPECT_TRUE(IsFormula(code));
    EXPECT_FALSE(FormulaSelects(code, Note()));
    EXPECT_EQ(FormulaText(code), "SELECT " + chain);
    ErrorOf(Repeated("@All & ", 33000) + "@All");
    ErrorOf("a = \"" + std::string(maxFormulaSize - 11, 'x') + "\"");
    EXPECT_EQ(Compiled("a = \"" + std::string(maxFormulaSize - 12, 'x') + "\"").size(), maxFormulaSize);
}

TEST(Formula, OnlyWholeCompiledFormulasPass) {
    const std::string code = Compiled(R"(a="1" | (b!="x" | @All) & !@All)");
    for (size_t size = 0; size < code.size(); ++size) {
        EXPECT_FALSE(IsFormula(code.substr(0, size))) << size;
    }
    const std::string table[]{
        code + "A",
        "EmF0A",
        "EmF1F\1\0a"s,         // a field alone
        "EmF1=AT\0\0"s,        // a condition compared
        "EmF1|AF\1\0a"s,       // a field as a condition
        "EmF1=F\0\0T\0\0"s,    // a field without a name
        "EmF1=F\3\0a bT\0\0"s, // a name that is two
        "EmF1=F\2\0"
        "1aT\0\0"s,                           //
        "EmF1=F\1\0aT\1\0\x10"s,              // half a character
        "EmF1=F\1\0aT\2\0x"s,                 // a length beyond the end
        "EmF1=F\1\0aT\0\1x"s,                 //
        "EmF1" + Repeated("|", 60000),        //
        "EmF1" + Repeated("|A", 40000) + "A", // too long
    };
    for (const std::string& bytes : table) {
        EXPECT_FALSE(IsFormula(bytes)) << testing::PrintToString(bytes.substr(0, 100));
    }
}

} // namespace
} // namespace embedded
