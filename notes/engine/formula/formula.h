// Selection formulas: the part of the formula language that selections of mail databases use.
//
//   formula     = {statement} ["SELECT"] disjunction
//   statement   = "REM" text ";" | name ":=" disjunction ";"
//   disjunction = conjunction {"|" conjunction}
//   conjunction = negation {"&" negation}
//   negation    = "!" negation | comparison                     so !Form = "a" negates the comparison
//   comparison  = sum [("=" | "!=" | "<>" | "<" | ">" | "<=" | ">=") sum]
//   sum         = product {("+" | "-") product}
//   product     = sign {("*" | "/") sign}
//   sign        = "-" sign | list
//   list        = operand {":" operand}                         so -1 : 2 negates both
//   operand     = name | text | number | time | function ["(" disjunction {";" disjunction} ")"]
//               | "(" disjunction ")"
//
// operation.h has the operators and functions, literal.h numbers and times. Keywords and names are without regard to
// case. What is compared or computed must be a value, and what is joined, negated or selected by a condition; a
// variable is what was assigned to it. In a text \" and \\ stand for " and \.
//
// All values are lists. An item that is absent or of another type is the empty text. Operators take two lists in
// pairs, the last element of the shorter one again and again; for a comparison one pair that fits is enough. Texts
// compare byte by byte, a time without a day or a list with ranges equals nothing, nor do values of two types. Any
// other operation on values of wrong types is an error, and what an error is used for selects nothing.
//
// The compiled form is the tree in prefix order, so that it can be evaluated without being unpacked and turned
// back into text:
//   magic "EmF1" (4 bytes), then one node: the code of an operation and its operands, one behind the other. Leaves:
//     'F' WORD length, name        a field (LMBCS)
//     'T' WORD length, text        a text (LMBCS)
//     In this form numbers and times equal nothing, as always; databases hold such formulas.
//   magic "EmF2" when the formula has statements or operations that the first form has not:
//     'V' WORD length, name, node  an assignment, in front of the selection
//     'R' WORD length, text        a remark, likewise
//     'N' 8 bytes                  a number (double)
//     'D' 8 bytes                  a time (TIMEDATE)
#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace embedded {

/** Parentheses and negations around one place of a formula; more are an error. */
constexpr size_t maxFormulaNesting = 100;
/** Bytes of a compiled formula, which an item must be able to hold. */
constexpr size_t maxFormulaSize = 0xFFFF;

/** Where and why a formula does not compile; positions are in bytes of the LMBCS text. */
struct FormulaError {
    std::string message; // UTF-8
    size_t line = 1;     // from 1
    size_t column = 1;   // from 1
    size_t offset = 0;   // from 0
    size_t length = 0;   // of the offending piece
};

/** Compiles an LMBCS text; the result is the compiled bytes or the error. */
std::variant<std::string, FormulaError> CompileFormula(std::string_view text);

/** Whether bytes are a whole compiled formula of this platform. */
bool IsFormula(std::string_view compiled) noexcept;

/** The text (LMBCS) of a compiled formula, with SELECT before its condition; compiling it gives the same bytes.
 *  `compiled` must pass IsFormula. */
std::string FormulaText(std::string_view compiled);

/** Whether the formula selects a note of these encoded items; not when it makes work out of all proportion. `compiled`
 *  must pass IsFormula. Throws as FindItem. */
bool FormulaSelects(std::string_view compiled, std::string_view encodedItems);

} // namespace embedded
