#include "engine/formula/operation.h"

#include <algorithm>
#include <array>

namespace embedded {

namespace {

constexpr Kind condition = Kind::condition;
constexpr Kind value = Kind::value;
constexpr Kind fieldName = Kind::fieldName;
constexpr bool grown = true;

// clang-format off
constexpr Operation operations[] = {
    // code, shape,          symbol,          strength, operands,   result, grown, evaluation
    {'\0', Shape::none,       "",               0, 0, value,     value,     false, nullptr, nullptr},
    {'|', Shape::logical,     "|",              1, 2, condition, condition, false, nullptr, nullptr},
    {'&', Shape::logical,     "&",              2, 2, condition, condition, false, nullptr, nullptr},
    {'!', Shape::prefix,      "!",              3, 1, condition, condition, false, nullptr, nullptr},
    {'=', Shape::comparison,  "=",              4, 2, value,     condition, false, IsEqual, nullptr},
    {'#', Shape::comparison,  "!=",             4, 2, value,     condition, false, IsUnequal, nullptr},
    {'#', Shape::comparison,  "<>",             4, 2, value,     condition, false, IsUnequal, nullptr},
    {'<', Shape::comparison,  "<",              4, 2, value,     condition, grown, IsLess, nullptr},
    {'>', Shape::comparison,  ">",              4, 2, value,     condition, grown, IsGreater, nullptr},
    {'l', Shape::comparison,  "<=",             4, 2, value,     condition, grown, IsLessOrEqual, nullptr},
    {'g', Shape::comparison,  ">=",             4, 2, value,     condition, grown, IsGreaterOrEqual, nullptr},
    {'+', Shape::chain,       "+",              5, 2, value,     value,     grown, nullptr, Add},
    {'-', Shape::chain,       "-",              5, 2, value,     value,     grown, nullptr, Subtract},
    {'*', Shape::chain,       "*",              6, 2, value,     value,     grown, nullptr, Multiply},
    {'/', Shape::chain,       "/",              6, 2, value,     value,     grown, nullptr, Divide},
    {'~', Shape::prefix,      "-",              7, 1, value,     value,     grown, nullptr, Negate},
    {':', Shape::chain,       ":",              8, 2, value,     value,     grown, nullptr, Join},
    {'F', Shape::leaf,        "",               9, 0, value,     value,     false, nullptr, nullptr},
    {'T', Shape::leaf,        "",               9, 0, value,     value,     false, nullptr, nullptr},
    {'N', Shape::leaf,        "",               9, 0, value,     value,     grown, nullptr, nullptr},
    {'D', Shape::leaf,        "",               9, 0, value,     value,     grown, nullptr, nullptr},
    {'A', Shape::function,    "@All",           9, 0, value,     condition, false, IsTrue, nullptr},
    {'1', Shape::function,    "@True",          9, 0, value,     condition, grown, IsTrue, nullptr},
    {'0', Shape::function,    "@False",         9, 0, value,     condition, grown, IsFalse, nullptr},
    {'c', Shape::function,    "@Contains",      9, 2, value,     condition, grown, IsContained, nullptr},
    {'b', Shape::function,    "@Begins",        9, 2, value,     condition, grown, IsBeginning, nullptr},
    {'e', Shape::function,    "@Ends",          9, 2, value,     condition, grown, IsEnding, nullptr},
    {'m', Shape::function,    "@IsMember",      9, 2, value,     condition, grown, IsMember, nullptr},
    {'a', Shape::function,    "@IsAvailable",   9, 1, fieldName, condition, grown, IsAvailable, nullptr},
    {'n', Shape::function,    "@IsUnavailable", 9, 1, fieldName, condition, grown, IsUnavailable, nullptr},
    {'w', Shape::function,    "@LowerCase",     9, 1, value,     value,     grown, nullptr, LowerCase},
    {'u', Shape::function,    "@UpperCase",     9, 1, value,     value,     grown, nullptr, UpperCase},
    {'t', Shape::function,    "@Trim",          9, 1, value,     value,     grown, nullptr, Trim},
    {'s', Shape::function,    "@Elements",      9, 1, value,     value,     grown, nullptr, CountElements},
};
// clang-format on

constexpr auto shapes = [] {
    std::array<Shape, 10> ofStrength{};
    for (const Operation& operation : operations) {
        ofStrength[static_cast<size_t>(operation.strength)] = operation.shape;
    }
    return ofStrength;
}();

} // namespace

// The first row of each code has the spelling that a compiled formula is written back with.
constexpr std::array<const Operation*, 256> operationOfByte = [] {
    std::array<const Operation*, 256> found{};
    found.fill(&operations[0]);
    for (size_t row = std::size(operations); row-- > 0;) {
        found[static_cast<unsigned char>(operations[row].code)] = &operations[row];
    }
    return found;
}();

std::span<const Operation> Operations() noexcept {
    return operations;
}

Shape ShapeOf(int strength) noexcept {
    return shapes[static_cast<size_t>(strength)];
}

const Operation* FunctionOf(std::string_view name) noexcept {
    const auto found = std::ranges::find_if(operations, [name](const Operation& operation) {
        return operation.shape == Shape::function && SameItemName(operation.symbol, name);
    });
    return found == std::end(operations) ? nullptr : found;
}

bool NeedsParentheses(const Operation& outer, Side side, const Operation& inner) noexcept {
    // An operand on the side to which a chain does not lean would become a part of the chain.
    const bool apart =
        (outer.shape == Shape::logical && side == Side::left) || (outer.shape == Shape::chain && side == Side::right);
    return inner.strength < outer.strength + apart;
}

std::optional<Kind> VariableKinds::Find(std::string_view name) const noexcept {
    const auto last = std::find_if(variables_.rbegin(), variables_.rend(),
                                   [name](const Variable& variable) { return SameItemName(variable.name, name); });
    return last == variables_.rend() ? std::nullopt : std::optional(last->kind);
}

} // namespace embedded
