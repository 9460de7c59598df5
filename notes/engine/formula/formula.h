// Selection formulas: the subset SELECT, @All, field names, text literals, = != | & ! and parentheses.
//
//   formula     = ["SELECT"] disjunction
//   disjunction = conjunction {"|" conjunction}
//   conjunction = negation {"&" negation}
//   negation    = "!" negation | comparison          so !Form = "a" negates the comparison
//   comparison  = operand ["=" operand | "!=" operand]
//   operand     = field | literal | "@All" | "(" disjunction ")"
//
// Keywords and names are without regard to case. What is compared must be a field or a literal, and what is joined,
// negated or selected by must be a condition. In a literal \" and \\ stand for " and \.
//
// A text item's value is its text, a text list's are its entries, an item that is absent or of another type is the
// empty text; but numbers and times equal nothing. Values are compared in pairs, the last one of the shorter list
// again and again, byte by byte; one pair that is equal (for =) or unequal (for !=) is enough.
//
// The compiled form is the tree in prefix order, so that it can be evaluated without being unpacked and turned
// back into text:
//   magic (4 bytes), then one node:
//     'A'                          @All
//     'F' WORD length, name        a field (LMBCS)
//     'T' WORD length, text        a text literal (LMBCS)
//     '=' node node, '#' node node equal, not equal
//     '|' node node, '&' node node, '!' node
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

/** The text (LMBCS) of a compiled formula, beginning with "SELECT "; compiling it gives the same bytes. `compiled`
 *  must pass isFormula. */
std::string FormulaText(std::string_view compiled);

/** Whether the formula selects a note of these encoded items. `compiled` must pass isFormula. Throws as findItem. */
bool FormulaSelects(std::string_view compiled, std::string_view encodedItems);

} // namespace embedded
