// The operators and functions of formulas, in one table that the parser, the compiled form and the evaluation share.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "engine/formula/value.h"

namespace embedded {

/** What an operand may be. A field's name is an operand of functions that ask whether the note has it. */
enum class Kind : uint8_t { condition, value, fieldName };

/** How an operation is written and what follows its code. The operands always follow; a chain leans to the left, a
 *  logical operation to the right. */
enum class Shape : uint8_t { none, leaf, function, prefix, logical, comparison, chain };

// In the order of the table's columns.
struct Operation { // NOLINT(clang-analyzer-optin.performance.Padding)
    char code;
    Shape shape;
    std::string_view symbol;
    int strength; // what is stronger needs no parentheses as an operand
    int operandCount;
    Kind operand;
    Kind result;
    bool grown; // not known to the first compiled form
    Test test;
    Compute compute;
};

namespace op {

// The codes that mean more than their row in the table says.
constexpr char field = 'F';
constexpr char text = 'T';
constexpr char number = 'N';
constexpr char time = 'D';
constexpr char logicalOr = '|';
constexpr char assignment = 'V'; // WORD length, name, then the expression
constexpr char remark = 'R';     // WORD length, text

} // namespace op

/** By the byte of the code; of Shape::none where there is none. */
extern const std::array<const Operation*, 256> operationOfByte;
/** The operation of a code. A search asks for each note, hence inline. */
inline const Operation& OperationOf(char code) noexcept {
    return *operationOfByte[static_cast<unsigned char>(code)];
}
std::span<const Operation> Operations() noexcept;
/** The shape of the operations of that strength, from 1 to that of leaves. */
Shape ShapeOf(int strength) noexcept;
/** A function by its name without regard to case, with its @; nullptr when there is none. */
const Operation* FunctionOf(std::string_view name) noexcept;

enum class Side { left, right };
/** Whether an operand of `outer` that has the operation `inner` needs parentheses to stay its operand. The operand of a
 *  prefix is a right one. */
bool NeedsParentheses(const Operation& outer, Side side, const Operation& inner) noexcept;

/** The temporary variables that the statements before some place of a formula have made, and what they hold. */
class VariableKinds {
public:
    void Add(std::string_view name, Kind kind) { variables_.push_back({name, kind}); }
    /** Nothing for a name that is no variable's. */
    [[nodiscard]] std::optional<Kind> Find(std::string_view name) const noexcept;

private:
    struct Variable {
        std::string_view name;
        Kind kind;
    };
    std::vector<Variable> variables_;
};

} // namespace embedded
