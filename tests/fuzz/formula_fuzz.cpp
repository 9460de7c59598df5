// The input as the text of a formula and as a compiled one.
#include "engine/formula/formula.h"

#include <algorithm>
#include <optional>
#include <string>

#include "engine/values/charset.h"
#include "engine/values/item_codec.h"
#include "fuzz_target.h"

namespace fuzz {
namespace {

using namespace embedded;

const std::string& Note() {
    static const std::string items = EncodeItems({
        {"F", TYPE_TEXT, 0, "a"},
        {"E", TYPE_TEXT, 0, ""},
        {"L", TYPE_TEXT_LIST, 0, EncodeTextList({"a", "b"})},
        {"M", TYPE_TEXT_LIST, 0, EncodeTextList({"b", "a", "c"})},
        {"N", TYPE_NUMBER, 0, std::string(8, '\0')},
        {"R", TYPE_NUMBER_RANGE, 0, std::string("\2\0\0\0\0\0\0\0\0\0\xF0\x3F\0\0\0\0\0\0\0\x40", 20)},
        {"D", TYPE_TIME, 0, std::string("\0\0\0\0\x8C\x3D\x25\0", 8)},
        {"B", TYPE_TEXT_LIST, 0, "\xFF\xFF"},
    });
    return items;
}

std::optional<std::string> Compiled(const std::string& text) {
    const auto result = CompileFormula(text);
    if (const auto* code = std::get_if<std::string>(&result)) {
        return *code;
    }
    return std::nullopt;
}

void ExpectPlace(const FormulaError& error, std::string_view text) {
    const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    const std::string again = Utf8FromLmbcs(LmbcsFromUtf8(error.message)); // with replacements if it is not UTF-8
    Expect(!error.message.empty() && again == error.message, "an error says why");
    Expect(error.offset <= text.size() && error.length <= text.size() - error.offset, "its place is in the text");
    Expect(error.line >= 1 && error.line <= lines && error.column >= 1 && error.column <= error.offset + 1,
           "and its line and column are");
}

/** Whether a formula made of a sound one selects the note; nothing when it has become too deep or too long. */
std::optional<bool> Selects(const std::string& text) {
    const auto result = CompileFormula(text);
    if (const auto* code = std::get_if<std::string>(&result)) {
        return FormulaSelects(*code, Note());
    }
    const std::string& why = std::get<FormulaError>(result).message;
    Expect(why == "the formula is nested too deeply" || why == "the formula is too long", "sound parts join");
    return std::nullopt;
}

void ExpectSound(const std::string& code) {
    Expect(IsFormula(code), "what was compiled is a formula");
    const std::string text = FormulaText(code);
    Expect(Compiled(text) == code, "its text compiles to it");
    if (!text.starts_with("SELECT ")) {
        FormulaSelects(code, Note());
        return; // statements do not stand within a condition
    }
    const std::string condition = "(" + text.substr(std::string_view("SELECT ").size()) + ")";
    const bool selected = FormulaSelects(code, Note());
    Expect(Selects(condition).value_or(selected) == selected, "parentheses change nothing");
    Expect(!Selects(condition + "&!" + condition).value_or(false), "nothing is and is not");
    if (code.starts_with("EmF1")) { // it knows no errors
        Expect(Selects("!" + condition).value_or(!selected) != selected, "a negation turns it");
        Expect(Selects("!" + condition + "|" + condition).value_or(true), "everything is or is not");
    }
}

} // namespace

void formula(std::string_view input) {
    const auto result = CompileFormula(input);
    if (const auto* code = std::get_if<std::string>(&result)) {
        ExpectSound(*code);
    } else {
        ExpectPlace(std::get<FormulaError>(result), input);
    }
    for (const std::string magic : {"", "EmF1", "EmF2"}) {
        if (IsFormula(magic + std::string(input))) {
            ExpectSound(magic + std::string(input));
        }
    }
}

} // namespace fuzz
