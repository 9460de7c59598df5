#include "engine/formula/code.h"
#include "engine/formula/formula.h"

namespace embedded {

namespace {

/** Evaluates one formula for one note. */
class Evaluation {
public:
    Evaluation(std::string_view compiled, std::string_view items)
        : code_(compiled), textsOnly_(compiled.starts_with(firstMagic)), items_(items) {}

    bool Selects();

private:
    void Statements();
    bool Holds();
    Value Assigned();
    Value Evaluate();
    Value Leaf(char code);
    Value Chain(const Operation& operation);
    Value Named(std::string_view name);
    Value Field(std::string_view name);

    struct Variable {
        std::string_view name;
        Value value; // a condition is the number 1 or 0
    };

    Code code_;
    bool textsOnly_; // the first form did not know numbers and times, which equalled nothing
    std::string_view items_;
    std::vector<Variable> variables_;
    Workspace work_;
};

bool Evaluation::Selects() {
    Statements();
    const bool selects = Holds();
    return selects && !work_.Failed();
}

void Evaluation::Statements() {
    while (code_.Next() == op::assignment || code_.Next() == op::remark) {
        const char statement = code_.Next();
        code_.Take();
        const std::string_view payload = code_.TakePayload(statement);
        if (statement == op::assignment) {
            variables_.push_back({payload, Assigned()});
        }
    }
}

bool Evaluation::Holds() {
    bool wanted = true; // turned by each negation on the way
    for (;;) {
        const Operation& operation = code_.Take();
        switch (operation.shape) {
        case Shape::prefix:
            wanted = !wanted;
            break;
        case Shape::logical: {
            const bool decisive = operation.code == op::logicalOr;
            if (Holds() == decisive) {
                code_.Skip();
                return decisive == wanted;
            }
            break; // the right side decides
        }
        case Shape::leaf: {
            const Value value = Named(code_.TakePayload(operation.code));
            if (value.type == ValueType::error) {
                work_.Fail();
            }
            return (value.one.number != 0) == wanted;
        }
        default: {
            const Value left = operation.operandCount > 0 ? Evaluate() : Value();
            const Value right = operation.operandCount > 1 ? Evaluate() : Value();
            return operation.test(work_, left, right) == wanted;
        }
        }
    }
}

Value Evaluation::Assigned() {
    if (code_.Peek().result != Kind::condition) {
        return Evaluate();
    }
    const bool holds = Holds();
    const bool failed = work_.Failed();
    work_.ForgetFailure(); // the variable has it, and fails where it is used
    return failed ? ErrorValue() : NumberValue(holds ? 1 : 0);
}

Value Evaluation::Evaluate() {
    const Operation& operation = code_.Take();
    switch (operation.shape) {
    case Shape::leaf:
        return Leaf(operation.code);
    case Shape::chain:
        return Chain(operation);
    default: // a function or sign, all of one operand
        return operation.compute(work_, Evaluate(), Value());
    }
}

Value Evaluation::Leaf(char code) {
    const std::string_view payload = code_.TakePayload(code);
    switch (code) {
    case op::field:
        return Named(payload);
    case op::number:
        return NumberValue(ValueAt<double>(payload.data()));
    case op::time:
        return TimeValue(ValueAt<TIMEDATE>(payload.data()));
    default:
        return TextValue(payload);
    }
}

Value Evaluation::Chain(const Operation& operation) {
    const std::string_view others = code_.TakeChain(operation.strength);
    Value result = Evaluate();
    for (size_t i = others.size() + 1; i-- > 0;) {
        const Operation& next = i == 0 ? operation : OperationOf(others[i - 1]);
        result = next.compute(work_, std::move(result), Evaluate());
    }
    return result;
}

/** The value of a variable, or of a field when there is none of that name. */
Value Evaluation::Named(std::string_view name) {
    for (size_t i = variables_.size(); i-- > 0;) {
        if (SameItemName(variables_[i].name, name)) {
            work_.Spend(variables_[i].value.list.size() * sizeof(Element));
            return variables_[i].value;
        }
    }
    return Field(name);
}

Value Evaluation::Field(std::string_view name) {
    Value value = FieldValue(items_, name);
    if (textsOnly_ && value.type != ValueType::text) {
        value.type = ValueType::other;
    }
    return value;
}

} // namespace

bool FormulaSelects(std::string_view compiled, std::string_view encodedItems) {
    try {
        return Evaluation(compiled, encodedItems).Selects();
    } catch (const TooMuchWork&) {
        return false;
    }
}

} // namespace embedded
