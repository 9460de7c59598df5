// The compiled form of a formula, walked without being unpacked. formula.h says what it consists of.
#pragma once

#include <string>
#include <string_view>

#include "engine/formula/operation.h"

namespace embedded {

/** The first form, and the one of what it has no codes for. */
constexpr std::string_view firstMagic = "EmF1";
constexpr std::string_view grownMagic = "EmF2";

/** Walks the compiled form from left to right. */
class Code {
public:
    explicit Code(std::string_view compiled) : rest_(compiled.substr(firstMagic.size())) {}

    [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
    /** The code that is next; '\0' at the end. */
    [[nodiscard]] char Next() const { return rest_.empty() ? '\0' : rest_.front(); }
    [[nodiscard]] const Operation& Peek() const { return OperationOf(Next()); }
    const Operation& Take();
    /** Takes the operations, all of `strength`, that a chain begins with: the last one joins the first two operands. */
    std::string_view TakeChain(int strength);
    /** Takes what follows the code of a leaf or statement; without data when it is cut off. */
    std::string_view TakePayload(char code);
    /** Passes over one condition or value. */
    void Skip();

private:
    std::string_view rest_;
};

} // namespace embedded
