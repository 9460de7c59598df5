#include "engine/formula/formula.h"

#include <array>
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/values/charset.h"
#include "engine/values/item_codec.h"
#include "engine/values/timedate.h"

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

template<typename T>
std::string Bytes(const T& value) {
    std::string bytes;
    AppendValue(bytes, value);
    return bytes;
}

/** A list of numbers or times, without pairs. */
template<typename... T>
std::string RangeOf(const T&... values) {
    return Bytes(static_cast<WORD>(sizeof...(T))) + std::string(2, '\0') + (Bytes(values) + ...);
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
        {"Size", TYPE_NUMBER, 0, Bytes(5.0)},
        {"Sizes", TYPE_NUMBER_RANGE, 0, RangeOf(1.0, 7.5)},
        {"When", TYPE_TIME, 0, Bytes(*TimedateFromDxl("20261225T123000,00+02", false))},
        {"Day", TYPE_TIME, 0, Bytes(*TimedateFromDxl("20261225", false))},
        {"Days", TYPE_TIME_RANGE, 0, RangeOf(*TimedateFromDxl("20200101", false), *TimedateFromDxl("20270101", false))},
        {"Noon", TYPE_TIME, 0, Bytes(*TimedateFromDxl("T120000", false))},
        {"Pairs", TYPE_NUMBER_RANGE, 0, std::string("\0\0\1\0", 4) + Bytes(1.0) + Bytes(2.0)},
        TextItem("Subject", "  Re:  Hello   World "),
        ListItem("Names", {"Ann", "", " Bob  B "}),
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
    EXPECT_EQ(Compiled(R"(rem "r"; v := -a + b - c; @Contains(v; "x"))"), "EmF2R\1\0rV\1\0v-+~F\1\0aF\1\0bF\1\0c"
                                                                          "cF\1\0vT\1\0x"s);
    EXPECT_EQ(FormulaText(Compiled(R"(rem "r"; v := -a + b - c; @Contains(v; "x"))")),
              R"(REM "r"; v := -a + b - c; SELECT @Contains(v; "x"))");
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
        {R"((@All | !(-Size : 1 > Sizes) & @Begins(Form; "x" : [1/1/2020])) & @False)", false},
        // Numbers: the first form knows none.
        {R"(Number = Number & @True)", true},
        {R"(Size = 5)", true},
        {R"(Size <> 5)", false},
        {R"(Size = "5")", false},
        {R"(Size != "5")", true},
        {R"(Size < 5 | Size > 5)", false},
        {R"(Size <= 5 & Size >= 5)", true},
        {R"(1 + 2 * 3 - 4 / 2 = 5)", true},
        {R"(10 - 4 - 3 = 3 & 16 / 4 / 2 = 2)", true},
        {R"((1 + 2) * -3 = -9 & --Size = 5)", true},
        {R"(.5 = 0.5 & 5. = 5 & 1.5e2 = 150 & 1E-2 = 0.01)", true},
        {R"("9" > "10" & "a" < "b" & "A" < "a")", true},
        // Times.
        {R"(When = [12/25/2026 10:30:00] & When = [12/25/2026 10:30 AM])", true},
        {R"(When >= [12/26/2026] | When < [12/25/2026])", false},
        {R"([1/2/2027 12:00 am] = [1/2/2027] & [1/2/2027 12:05 PM] = [01/02/2027 12:05])", true},
        {R"(When - Day = 10.5 * 3600)", true},
        {R"(Noon != Noon & Pairs != Pairs & Noon != 1)", true}, // what no operator can use
        {R"(Noon = Noon | Pairs = 1)", false},
        // Lists: in pairs, the last element again and again.
        {R"(Sizes + 1 = 8.5)", true},
        {R"(Sizes * (1 : 2 : 10) = 75)", true},
        {R"(Sizes * (1 : 2 : 10) = 7.5)", false},
        {R"(1 : 2 : 3 = 9 : 3)", true}, // 3 and 3
        {R"(1 : 2 : 3 = 3 : 9)", false},
        {R"(Days > When)", true},
        {R"(Days = When)", false},
        {R"(-1 : 2 = 9 : (-2))", true}, // the sign is the whole list's
        {R"(List + "x" : "y" = "by")", true},
        {R"(Form + "-" + Quoted = "rule-a \"b\" \\c")", true},
        // Functions of texts.
        {R"(@Contains(Quoted; "zz" : "\"b"))", true},
        {R"(@Contains(Form; "Rule"))", false},
        {R"(@Contains(Form; ""))", true},
        {R"(@Begins(List : Form; "ru") & @Ends(Form : "x"; "le"))", true},
        {R"(@Begins(Form; "le") | @Ends(Form; "ru") | @Ends("x"; "xx"))", false},
        {"@Contains(\"\x10\x95\x5C\\\\\"; \"\\\\\") & @Ends(\"\x10\x95\x5C\\\\\"; \"\\\\\")", true},
        {"@Contains(\"\x10\x95\x5C\"; \"\\\\\") | @Ends(\"\x10\x95\x5C\"; \"\\\\\")", false}, // half a character
        {R"(@LowerCase("AbC") = "abc" & @UpperCase(List) = "B")", true},
        {R"(@Trim(Subject) = "Re: Hello World" & @Trim("   ") = "")", true},
        {R"(@Elements(@Trim(Names)) = 2 & @Trim(Names) = "x" : "Bob B")", true},
        // Members and elements.
        {R"(@IsMember("b"; List) & @IsMember(List; "c" : "b" : "a"))", true},
        {R"(@IsMember("B"; List) | @IsMember(List : "z"; List))", false},
        {R"(@Elements(Empty) = 0 & @Elements(Form) = 1 & @Elements(Sizes : Size) = 3 & @Elements("" : "") = 2)", true},
        {R"(@IsAvailable(Empty) & @IsUnavailable(Absent) & @IsAvailable(Noon))", true},
        {R"(@IsAvailable(Absent) | @IsUnavailable(Form))", false},
        // Variables and remarks.
        {R"(x := "RULE"; X := @LowerCase(x); REM "x"; SELECT Form = x)", true},
        {R"(Form := Absent; SELECT Form = "rule")", false}, // hides the field
        {R"(big := Size > 3; none := !big; big & !none)", true},
        {R"(v := 1 : 2; w := v + v; SELECT w = 0 : 4)", true},
        {R"(rem = "" & REM != "x")", true}, // a field
        // An error that nobody uses.
        {R"(bad := Absent > 1; worse := -Form; @All)", true},
        {R"(Form = "rule" | Form > 5)", true},
    };
    for (const auto& [text, expected] : table) {
        EXPECT_EQ(FormulaSelects(Compiled(text), Note()), expected) << text;
    }
    EXPECT_TRUE(FormulaSelects(Compiled(LmbcsFromUtf8(R"(Größe = "groß")")),
                               EncodeItems({TextItem(LmbcsFromUtf8("Größe").c_str(), LmbcsFromUtf8("groß"))})));
    EXPECT_TRUE(
        FormulaSelects(Compiled(LmbcsFromUtf8(R"(@LowerCase("ÄЖソ") = "äжソ" & @UpperCase("äжÿß") = "ÄЖŸß")")), ""));
    EXPECT_TRUE(FormulaSelects(Compiled("@All"), ""));
}

TEST(Formula, AnErrorSelectsNothing) {
    for (const std::string condition : {"Form > 5",
                                        "Noon <= Noon",
                                        "Absent + 1 = 2",
                                        "Size + Form = 2",
                                        "1 / 0 = 2",
                                        "1e300 * 1e300 = 2",
                                        "-Form = 1",
                                        "Form * 2 = 1",
                                        "Form / 2 = 1",
                                        "Form - 2 = 1",
                                        "When + 1 = 1",
                                        "1 - When = 1",
                                        "(1 : Form) = 2",
                                        "(Noon : Noon) = 2",
                                        "@Trim(1) = 1",
                                        "@LowerCase(When) = 1",
                                        "@Elements(Noon) = 0",
                                        "@Contains(Size; Form)",
                                        "@Begins(Form; Size)",
                                        "@IsMember(Size; Form)",
                                        "@IsMember(Form; Size)"}) {
        EXPECT_FALSE(FormulaSelects(Compiled(condition), Note())) << condition;
        EXPECT_FALSE(FormulaSelects(Compiled("!(" + condition + ")"), Note())) << condition;
        EXPECT_FALSE(FormulaSelects(Compiled("bad := " + condition + "; !bad"), Note())) << condition;
    }
}

TEST(Formula, WorkForOneNoteIsBounded) {
    const std::string doubled = Repeated("v := v : v; ", 14);
    for (const auto& [text, selects] : std::initializer_list<std::pair<std::string, bool>>{
             {R"(v := "a"; )" + doubled + "@Elements(v) = 16384", true},
             {R"(v := "a"; )" + doubled + "v := v : v; @Elements(v) = 32768", false}, // more than an item holds
             {R"(v := "a"; )" + Repeated("v := v + v; ", 15) + "@Contains(v; v)", true},
             {R"(v := "a"; )" + Repeated("v := v + v; ", 16) + "@Contains(v; v)", false},
             {R"(v := "a"; )" + doubled + Repeated("v := @Trim(v); ", 1000) + R"(v = "a")", false},
             {R"(v := "a"; )" + doubled + R"(@Contains(v; v + "z") | @All)", false}, // as much as all pairs
         }) {
        EXPECT_EQ(FormulaSelects(Compiled(text), ""), selects) << text.substr(text.size() - 40);
    }
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
        {"a<>b", "a != b"},
        {"a+(b+c)-((d-e)*(f:(g:1)))/2<=-(a+b):(-1)", "a + (b + c) - (d - e) * f : (g : 1) / 2 <= -(a + b) : (-1)"},
        {"(a*b)+c>((a+b))*c", "a * b + c > (a + b) * c"},
        {"(a:b):c>=--(a:1)", "a : b : c >= --a : 1"},
        {"100=1e2&0.25<12345678901234567890&1e-7=.5", "100 = 100 & 0.25 < 12345678901234567168 & 1e-07 = 0.5"},
        {"[1/2/2026]<[ 12/31/1999  1:02 pm ]&a<[1/1/2000 0:00:59]",
         "[01/02/2026] < [12/31/1999 13:02:00] & a < [01/01/2000 00:00:59]"},
        {"@isavailable(a)&@contains(@trim(a+b);(c:d))", "@IsAvailable(a) & @Contains(@Trim(a + b); c : d)"},
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
        {R"(Form = 1e999)", 1, 8, 7, 5, "the number 1e999 is not supported"},
        {R"(Form = 1.2.3)", 1, 11, 10, 2, ".3 where the end of the formula is expected"},
        {R"(Form = [13/1/2026])", 1, 8, 7, 11, "the time [13/1/2026] is not supported"},
        {"@All & [1/1/26] = \n[1/1/2026 10]", 1, 8, 7, 8, "the time [1/1/26] is not supported"},
        {"@All & \nWhen=[1/1/2026 10]", 2, 6, 13, 13, "the time [1/1/2026 10] is not supported"},
        {R"(When = [1/1/2026 0:00 AM])", 1, 8, 7, 18, "the time [1/1/2026 0:00 AM] is not supported"},
        {R"(When = [1/1/2026)", 1, 8, 7, 9, "a time without a closing bracket"},
        {R"(Form := "x")", 1, 12, 11, 0, "the end of the formula where a semicolon is expected"},
        {R"(x := "a"; )", 1, 11, 10, 0, "the formula is empty"},
        {"x := @All;\nSELECT x = 1", 2, 8, 18, 1, "x is no value, it is a condition"},
        {R"(x := 1; SELECT x)", 1, 16, 15, 1, "x is no condition"},
        {R"(x := 1; @IsAvailable(x))", 1, 22, 21, 1, "x where a field is expected"},
        {R"(@IsAvailable((x)))", 1, 14, 13, 1, "( where a field is expected"},
        {R"(@Created = 1)", 1, 1, 0, 8, "the function @Created is not supported"},
        {R"(@Contains(Form))", 1, 15, 14, 1, ") where a semicolon is expected"},
        {R"(@Contains(Form; "x"; "y"))", 1, 20, 19, 1, "; where a closing parenthesis is expected"},
        {R"(@Trim = "")", 1, 7, 6, 1, "= where an opening parenthesis is expected"},
        {R"(@Trim(a = b) = "")", 1, 7, 6, 5, "a = b is no value, it is a condition"},
        {R"(a + @All = 1)", 1, 5, 4, 4, "@All is no value, it is a condition"},
        {R"(1 : -1 = 1)", 1, 5, 4, 1, "- where a value or a condition is expected"},
        {R"(a < b < c)", 1, 7, 6, 1, "< where the end of the formula is expected"},
        {R"(@All;)", 1, 5, 4, 1, "; where the end of the formula is expected"},
        {R"(REM "x" @All)", 1, 9, 8, 4, "@All where a semicolon is expected"},
        {R"(Form *= "x")", 1, 7, 6, 1, "= where a value or a condition is expected"},
        {R"(FIELD x := 1; @All)", 1, 7, 6, 1, "x where the end of the formula is expected"},
        {R"(Form ^ 1)", 1, 6, 5, 1, "the symbol ^ is not supported"},
        {"Form = \"x\n\"y\"", 2, 2, 11, 1, "y where the end of the formula is expected"},
        {"@All &\n  Form = \"x", 2, 10, 16, 2, "a text without a closing quote"},
        {R"(Form = "x\")", 1, 8, 7, 4, "a text without a closing quote"},
        {R"(Form = "C:\d")", 1, 11, 10, 1, "a backslash that stands before neither a quote nor a backslash"},
        {R"(@All "x")", 1, 6, 5, 3, "\"x\" where the end of the formula is expected"},
        {R"(Form = "x" = "y")", 1, 12, 11, 1, "= where the end of the formula is expected"},
        {R"((@All)", 1, 6, 5, 0, "the end of the formula where a closing parenthesis is expected"},
        {R"(Form =)", 1, 7, 6, 0, "the end of the formula where a value or a condition is expected"},
        {R"(@All | & @All)", 1, 8, 7, 1, "& where a value or a condition is expected"},
        {R"(Form = !@All)", 1, 8, 7, 1, "! where a value or a condition is expected"},
        {R"(Form)", 1, 1, 0, 4, "Form is no condition"},
        {R"(@All | ("x"))", 1, 8, 7, 5, "(\"x\") is no condition"},
        {R"(Form = @All)", 1, 8, 7, 4, "@All is no value, it is a condition"},
        {R"((Form = "x") = "y")", 1, 1, 0, 12, "(Form = \"x\") is no value, it is a condition"},
        {"\x10\x83\x5C = \x82 | \x05", 1, 11, 10, 1, "bytes that are no character of LMBCS"},
        {"\x10\x83\x5C", 1, 1, 0, 3, "ソ is no condition"},
        {"@All |\n\x01\x0A = ^", 2, 6, 12, 1, "the symbol ^ is not supported"}, // a character that holds a line feed
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

    // The same with operations of the second form.
    for (const auto& [opening, closing, innermost] : {std::array<const char*, 3>{"-", "", "1"},
                                                      {"@Trim(", ")", "a"},
                                                      {"a - (", ")", "b"},
                                                      {"(a - b * (", ") : c)", "d"}}) {
        const size_t nesting = std::string_view(opening).starts_with("(") ? 2 : 1;
        const auto sum = [&, opening = opening, closing = closing, innermost = innermost](size_t depth) {
            return Repeated(opening, depth) + innermost + Repeated(closing, depth) + " < 1";
        };
        const std::string deepest = Compiled(sum(maxFormulaNesting / nesting));
        EXPECT_TRUE(IsFormula(deepest)) << opening;
        EXPECT_EQ(Compiled(FormulaText(deepest)), deepest);
        ErrorOf(sum(maxFormulaNesting / nesting + 1));
        const std::string tooDeep = "EmF2<" + Repeated("t", maxFormulaNesting + 1) + "F\1\0aN"s + std::string(8, '\0');
        EXPECT_FALSE(IsFormula(tooDeep));
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
    const std::string sum = "n = " + Repeated("1 - ", 6000) + "1";
    EXPECT_TRUE(IsFormula(Compiled(sum)));
    EXPECT_EQ(FormulaText(Compiled(sum)), "SELECT " + sum);
    EXPECT_TRUE(FormulaSelects(Compiled("n := -5999; " + sum), ""));
    ErrorOf(Repeated("@All & ", 33000) + "@All");
    ErrorOf(Repeated("v := 1; ", 8000) + "@All");
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
        "1aT\0\0"s,                        //
        "EmF1=F\1\0aT\1\0\x10"s,           // half a character
        "EmF1=F\1\0aT\2\0x"s,              // a length beyond the end
        "EmF1=F\1\0aT\0\1x"s,              //
        "EmF1" + Repeated("|", 60000),     //
        "EmF2" + Repeated("=-", 30000),    //
        "EmF2A",                           // nothing that the first form has not
        "EmF1<F\1\0aT\0\0"s,               // what the first form has not
        "EmF2<F\1\0aN"s + Bytes(-1.0),     // numbers that no text has
        "EmF2<F\1\0aN"s + Bytes(INFINITY), //
        "EmF2<F\1\0aN"s + Bytes(-0.0),     //
        "EmF2<F\1\0aN\0\0\0\0"s,           //
        "EmF2<F\1\0aD\0\0\0\0\1\0\0\0"s,   // no day
        "EmF2<F\1\0aD"s + Bytes(*TimedateFromDxl("20260101T000000,50+00", false)),
        "EmF2<F\1\0aD"s + Bytes(*TimedateFromDxl("20260101T000000,00+01", false)),
        "EmF2aT\1\0a"s,              // no field
        "EmF2V\1\0aF\1\0baF\1\0a"s,  // a variable for a field
        "EmF2V\1\0aA=F\1\0aF\1\0b"s, // a condition for a value
        "EmF2V\1\0aT\0\0F\1\0a"s,    // a value for a condition
        "EmF2V\6\0selectAA"s,        //
        "EmF2R\1\0\x10"
        "A"s,                                 // half a character
        "EmF2cF\1\0a"s,                       // an argument too few
        "EmF1" + Repeated("|A", 40000) + "A", // too long
    };
    for (const std::string& bytes : table) {
        EXPECT_FALSE(IsFormula(bytes)) << testing::PrintToString(bytes.substr(0, 100));
    }
}

} // namespace
} // namespace embedded
