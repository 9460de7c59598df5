// The compiled form of a formula, walked without being unpacked. formula.h says what it consists of.
#pragma once

#include <string>
#include <string_view>

#include "engine/formula/operation.h"
#include "engine/values/bytes.h"

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
    const Operation& Take() {
        const Operation& operation = Peek();
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return operation;
    }
    /** Takes the operations, all of `strength`, that a chain begins with: the last one joins the first two operands. */
    std::string_view TakeChain(int strength);
    /** Takes what follows the code of a leaf or statement; without data when it is cut off. */
    std::string_view TakePayload(char code);
    /** Takes an assignment, up to its expression, or a remark; false when neither is next. */
    bool TakeStatement(char& code, std::string_view& payload);
    /** Passes over one condition or value. */
    void Skip();

private:
    std::string_view rest_;
};

inline std::string_view Code::TakePayload(char code) {
    const bool fixed = code == op::number || code == op::time;
    const size_t head = fixed ? 0 : 2;
    if (rest_.size() < head) {
        return {};
    }
    const size_t length = fixed ? 8 : ValueAt<WORD>(rest_.data());
    if (rest_.size() - head < length) {
        return {};
    }
    const std::string_view payload = rest_.substr(head, length);
    rest_.remove_prefix(head + length);
    return payload;
}

} // namespace embedded
