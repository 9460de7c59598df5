// What reads a compiled formula goes to the right of a chain of | or &, and along the start of one of + or *, in a
// loop, so that only nesting, which is bounded, makes calls deep.
#include "engine/formula/code.h"

#include "engine/formula/formula.h"
#include "engine/formula/literal.h"

namespace embedded {

namespace {

/** Whether code is a whole formula of the form that its magic says. Nesting is counted as the parser does, so that the
 *  formula's text compiles again. */
class Checker {
public:
    explicit Checker(std::string_view compiled) : code_(compiled), grownExpected_(compiled.starts_with(grownMagic)) {}

    bool Whole() { return Statements() && Node(Kind::condition, 0) && code_.AtEnd() && grown_ == grownExpected_; }

private:
    bool Statements();
    bool Node(Kind wanted, size_t nesting);
    bool Leaf(char code, Kind wanted);
    bool Operands(const Operation& operation, size_t nesting);
    bool Chain(const Operation& operation, size_t nesting);
    /** What the next node is. */
    [[nodiscard]] Kind NextKind() const;

    Code code_;
    bool grownExpected_;
    bool grown_ = false;
    VariableKinds variables_;
};

bool Checker::Statements() {
    char statement = '\0';
    for (std::string_view payload; code_.TakeStatement(statement, payload);) {
        grown_ = true;
        if (statement == op::remark) {
            if (!payload.data() || !IsWholeCharacters(payload)) {
                return false;
            }
            continue;
        }
        const Kind kind = NextKind();
        if (!IsName(payload) || SameItemName(payload, "SELECT") || !Node(kind, 0)) {
            return false;
        }
        variables_.Add(payload, kind);
    }
    return true;
}

Kind Checker::NextKind() const {
    if (code_.Next() != op::field) {
        return code_.Peek().result;
    }
    Code ahead = code_;
    ahead.Take();
    return variables_.Find(ahead.TakePayload(op::field)).value_or(Kind::value);
}

bool Checker::Node(Kind wanted, size_t nesting) {
    while (nesting <= maxFormulaNesting) {
        const Operation& operation = code_.Take();
        grown_ = grown_ || operation.grown;
        if (operation.shape == Shape::leaf) {
            return Leaf(operation.code, wanted);
        }
        if (operation.result != wanted) {
            return false;
        }
        switch (operation.shape) {
        case Shape::prefix:
            ++nesting;
            break;
        case Shape::logical:
            if (!Node(Kind::condition, nesting + NeedsParentheses(operation, Side::left, code_.Peek()))) {
                return false;
            }
            break;
        case Shape::chain:
            return Chain(operation, nesting);
        case Shape::none:
            return false;
        default:
            return Operands(operation, nesting);
        }
        nesting += NeedsParentheses(operation, Side::right, code_.Peek());
    }
    return false;
}

bool Checker::Leaf(char code, Kind wanted) {
    const std::string_view payload = code_.TakePayload(code);
    if (!payload.data() || !LeafText(code, payload)) {
        return false;
    }
    if (code != op::field) {
        return wanted == Kind::value;
    }
    const auto variable = variables_.Find(payload);
    return wanted == Kind::fieldName ? !variable : wanted == variable.value_or(Kind::value);
}

bool Checker::Operands(const Operation& operation, size_t nesting) {
    for (int i = 0; i < operation.operandCount; ++i) {
        if (!Node(operation.operand, nesting + (operation.shape == Shape::function))) {
            return false;
        }
    }
    return true;
}

bool Checker::Chain(const Operation& operation, size_t nesting) {
    size_t rightSides = 1 + code_.TakeChain(operation.strength).size();
    if (!Node(Kind::value, nesting + NeedsParentheses(operation, Side::left, code_.Peek()))) {
        return false;
    }
    for (; rightSides > 0; --rightSides) {
        if (!Node(Kind::value, nesting + NeedsParentheses(operation, Side::right, code_.Peek()))) {
            return false;
        }
    }
    return true;
}

/** Turns code back into text. */
class Writer {
public:
    explicit Writer(std::string_view compiled) : code_(compiled) {}

    std::string Whole();

private:
    void Node();
    void Parenthesised(bool parentheses);
    void Function(const Operation& function);
    void Chain(const Operation& operation);
    void Joint(const Operation& operation);

    Code code_;
    std::string text_;
};

std::string Writer::Whole() {
    char statement = '\0';
    for (std::string_view payload; code_.TakeStatement(statement, payload);) {
        if (statement == op::remark) {
            text_.append("REM ").append(*LeafText(op::text, payload));
        } else {
            text_.append(payload).append(" := ");
            Node();
        }
        text_ += "; ";
    }
    text_ += "SELECT ";
    Node();
    return std::move(text_);
}

void Writer::Node() {
    for (;;) {
        const Operation& operation = code_.Take();
        switch (operation.shape) {
        case Shape::leaf:
            text_ += LeafText(operation.code, code_.TakePayload(operation.code)).value_or("");
            return;
        case Shape::prefix:
            text_ += operation.symbol;
            break;
        case Shape::logical:
            Parenthesised(NeedsParentheses(operation, Side::left, code_.Peek()));
            Joint(operation);
            break;
        case Shape::comparison:
            Node();
            Joint(operation);
            break;
        case Shape::chain:
            return Chain(operation);
        default:
            return Function(operation);
        }
        if (NeedsParentheses(operation, Side::right, code_.Peek())) {
            return Parenthesised(true);
        }
    }
}

void Writer::Parenthesised(bool parentheses) {
    text_ += parentheses ? "(" : "";
    Node();
    text_ += parentheses ? ")" : "";
}

void Writer::Function(const Operation& function) {
    text_ += function.symbol;
    for (int i = 0; i < function.operandCount; ++i) {
        text_ += i == 0 ? "(" : "; ";
        Node();
    }
    text_ += function.operandCount > 0 ? ")" : "";
}

void Writer::Chain(const Operation& operation) {
    const std::string_view others = code_.TakeChain(operation.strength);
    Parenthesised(NeedsParentheses(operation, Side::left, code_.Peek()));
    for (size_t i = others.size() + 1; i-- > 0;) {
        Joint(i == 0 ? operation : OperationOf(others[i - 1]));
        Parenthesised(NeedsParentheses(operation, Side::right, code_.Peek()));
    }
}

void Writer::Joint(const Operation& operation) {
    text_.append(" ").append(operation.symbol).append(" ");
}

} // namespace

std::string_view Code::TakeChain(int strength) {
    size_t length = 0;
    while (length < rest_.size() && OperationOf(rest_[length]).strength == strength) {
        ++length;
    }
    const std::string_view chain = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return chain;
}

bool Code::TakeStatement(char& code, std::string_view& payload) {
    code = Next();
    if (code != op::assignment && code != op::remark) {
        return false;
    }
    Take();
    payload = TakePayload(code);
    return true;
}

void Code::Skip() {
    for (int nodes = 1; nodes > 0; --nodes) {
        const Operation& operation = Take();
        nodes += operation.operandCount;
        if (operation.shape == Shape::leaf) {
            TakePayload(operation.code);
        }
    }
}

bool IsFormula(std::string_view compiled) noexcept {
    const bool known = compiled.starts_with(firstMagic) || compiled.starts_with(grownMagic);
    return compiled.size() <= maxFormulaSize && known && Checker(compiled).Whole();
}

std::string FormulaText(std::string_view compiled) {
    return Writer(compiled).Whole();
}

} // namespace embedded
