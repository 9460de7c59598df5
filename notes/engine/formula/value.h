// What a formula computes with: values, which are lists, and what the operators and functions make of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <forward_list>
#include <string>
#include <string_view>
#include <vector>

#include "engine/values/item_codec.h"

namespace embedded {

/** `other`: numbers or times that no operator can use, such as ranges and times of no day. `error`: what a failed
 *  operation gives, and every operation on an error. */
enum class ValueType : uint8_t { text, number, time, other, error };

/** One text (LMBCS), or a number; a time is the number of hundredths of a second since 1970. */
struct Element {
    std::string_view text;
    double number = 0;
};

/** One element, by far the commonest and without memory of its own, or a list of several. A text list without entries
 *  is the empty text. */
struct Value {
    ValueType type = ValueType::text;
    bool absent = false; // a field that the note does not have
    Element one;
    std::vector<Element> list;

    [[nodiscard]] size_t size() const { return std::max<size_t>(list.size(), 1); }
    /** The last one for an index beyond the end. */
    [[nodiscard]] const Element& operator[](size_t index) const {
        return list.empty() ? one : list[std::min(index, list.size() - 1)];
    }
};

Value TextValue(std::string_view text);
Value NumberValue(double number);
Value TimeValue(const TIMEDATE& time);
Value ErrorValue();
/** The value that a field of encoded items has. It points into them. Throws as FindItem. */
Value FieldValue(std::string_view items, std::string_view name);

/** More work than any formula needs for one note. */
struct TooMuchWork {};

/** What the evaluation for one note has made and done. */
class Workspace {
public:
    /** Keeps a text that was made; the view is valid as long as the workspace. */
    std::string_view Keep(std::string text);
    /** Counts work, in bytes handled. Throws TooMuchWork. */
    void Spend(size_t work);
    /** A condition had an operand that it cannot judge: the note is not selected. */
    void Fail() noexcept { failed_ = true; }
    [[nodiscard]] bool Failed() const noexcept { return failed_; }
    void ForgetFailure() noexcept { failed_ = false; }

private:
    std::forward_list<std::string> texts_;
    size_t work_ = 0;
    bool failed_ = false;
};

// Conditions and functions of one operand leave the right one alone.

using Test = bool (*)(Workspace& work, const Value& left, const Value& right);
using Compute = Value (*)(Workspace& work, Value left, const Value& right);

bool IsTrue(Workspace& work, const Value& left, const Value& right);
bool IsFalse(Workspace& work, const Value& left, const Value& right);
bool IsEqual(Workspace& work, const Value& left, const Value& right);
bool IsUnequal(Workspace& work, const Value& left, const Value& right);
bool IsLess(Workspace& work, const Value& left, const Value& right);
bool IsGreater(Workspace& work, const Value& left, const Value& right);
bool IsLessOrEqual(Workspace& work, const Value& left, const Value& right);
bool IsGreaterOrEqual(Workspace& work, const Value& left, const Value& right);
bool IsContained(Workspace& work, const Value& left, const Value& right);
bool IsBeginning(Workspace& work, const Value& left, const Value& right);
bool IsEnding(Workspace& work, const Value& left, const Value& right);
bool IsMember(Workspace& work, const Value& left, const Value& right);
bool IsAvailable(Workspace& work, const Value& left, const Value& right);
bool IsUnavailable(Workspace& work, const Value& left, const Value& right);

Value Join(Workspace& work, Value left, const Value& right);
Value Add(Workspace& work, Value left, const Value& right);
Value Subtract(Workspace& work, Value left, const Value& right);
Value Multiply(Workspace& work, Value left, const Value& right);
Value Divide(Workspace& work, Value left, const Value& right);
Value Negate(Workspace& work, Value left, const Value& right);
Value LowerCase(Workspace& work, Value left, const Value& right);
Value UpperCase(Workspace& work, Value left, const Value& right);
Value Trim(Workspace& work, Value left, const Value& right);
Value CountElements(Workspace& work, Value left, const Value& right);

} // namespace embedded
