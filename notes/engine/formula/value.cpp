#include "engine/formula/value.h"

#include <cmath>
#include <functional>
#include <type_traits>

#include "engine/values/charset.h"
#include "engine/values/timedate.h"

namespace embedded {

namespace {

/** The platform's limit on what one value holds. */
constexpr size_t maxElements = 0x7FFF;
constexpr size_t maxWork = 16'000'000;
/** What looking at a pair of texts costs besides their bytes. */
constexpr size_t pairWork = 8;

using TextList = std::vector<std::string_view>;

bool IsText(const Value& value) {
    return value.type == ValueType::text;
}

Value OfType(ValueType type, double number = 0) {
    Value value;
    value.type = type;
    value.one.number = number;
    return value;
}

Value Single(WORD type, std::string_view bytes) {
    if (type == TYPE_TIME && bytes.size() == sizeof(TIMEDATE)) {
        return TimeValue(ValueAt<TIMEDATE>(bytes.data()));
    }
    if (type == TYPE_NUMBER && bytes.size() == sizeof(double)) {
        return NumberValue(ValueAt<double>(bytes.data()));
    }
    return OfType(ValueType::other);
}

Value EmptyText(bool absent) {
    Value value;
    value.absent = absent;
    return value;
}

Value TextListValue(std::string_view bytes) {
    Value value;
    for (const std::string_view entry : TextEntries(TYPE_TEXT_LIST, bytes).value_or(TextList{})) {
        value.list.push_back({entry});
    }
    return value;
}

/** Of the bytes of a number or time list: WORD entries, WORD pairs, the entries of 8 bytes each. */
Value ListOf(WORD type, std::string_view bytes) {
    constexpr size_t headSize = 4;
    constexpr size_t entrySize = 8;
    const size_t entries = bytes.size() < headSize ? 0 : ValueAt<WORD>(bytes.data());
    if (entries == 0 || bytes.size() != headSize + entries * entrySize) {
        return OfType(ValueType::other);
    }
    Value value;
    for (size_t i = 0; i < entries; ++i) {
        Value entry = Single(type, bytes.substr(headSize + i * entrySize, entrySize));
        if (entry.type == ValueType::other) {
            return entry;
        }
        value.type = entry.type;
        value.list.push_back(entry.one);
    }
    return value;
}

/** Whether the relation holds for one pair of elements. */
template<typename Relation>
bool AnyPair(Workspace& work, const Value& left, const Value& right) {
    constexpr bool ordering =
        !std::is_same_v<Relation, std::equal_to<>> && !std::is_same_v<Relation, std::not_equal_to<>>;
    constexpr Relation relation;
    if (left.type == ValueType::error || right.type == ValueType::error) {
        work.Fail();
        return false;
    }
    if (left.type != right.type || left.type == ValueType::other) {
        if (ordering) {
            work.Fail();
        }
        return !ordering && relation(0, 1); // values of two types are unequal
    }
    for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        if (IsText(left) ? relation(left[i].text, right[i].text) : relation(left[i].number, right[i].number)) {
            return true;
        }
    }
    return false;
}

bool BothTexts(Workspace& work, const Value& left, const Value& right) {
    if (IsText(left) && IsText(right)) {
        return true;
    }
    work.Fail();
    return false;
}

/** Whether the relation holds between any text of `left` and any of `right`. */
template<typename Relation>
bool AnyOfEach(Workspace& work, const Value& left, const Value& right, Relation relation) {
    for (size_t i = 0; BothTexts(work, left, right) && i < left.size(); ++i) {
        for (size_t j = 0; j < right.size(); ++j) {
            const std::string_view text = left[i].text;
            const std::string_view part = right[j].text;
            const size_t places = text.size() - std::min(text.size(), part.size());
            work.Spend(pairWork + text.size() + places * (part.size() / 64));
            if (relation(text, part)) {
                return true;
            }
        }
    }
    return false;
}

/** Gives what `make` makes of each text. */
template<typename Make>
Value EachText(Workspace& work, Value value, Make make) {
    if (!IsText(value)) {
        return ErrorValue();
    }
    const auto change = [&](Element& element) { element.text = work.Keep(make(element.text)); };
    change(value.one);
    std::ranges::for_each(value.list, change);
    return value;
}

/** Computes in pairs, the last element of the shorter list again and again. */
template<typename Combine>
Value EachPair(Workspace& work, ValueType type, const Value& left, const Value& right, Combine combine) {
    Value result;
    result.type = type;
    result.one = combine(left[0], right[0]);
    if (const size_t count = std::max(left.size(), right.size()); count > 1) {
        work.Spend(count * sizeof(Element));
        result.list.push_back(result.one);
        for (size_t i = 1; i < count; ++i) {
            result.list.push_back(combine(left[i], right[i]));
        }
    }
    return result;
}

/** Computes with numbers; a result that is none, as of a division by zero, is an error. */
template<typename Operator>
Value EachNumber(Workspace& work, const Value& left, const Value& right, Operator compute) {
    bool finite = true;
    Value result = EachPair(work, ValueType::number, left, right, [&](const Element& a, const Element& b) {
        const Element element{{}, compute(a.number, b.number)};
        finite = finite && std::isfinite(element.number);
        return element;
    });
    return finite ? result : ErrorValue();
}

bool AreOf(ValueType type, const Value& left, const Value& right) {
    return left.type == type && right.type == type;
}

Value Concatenate(Workspace& work, const Value& left, const Value& right) {
    bool fits = true;
    Value result = EachPair(work, ValueType::text, left, right, [&](const Element& a, const Element& b) {
        fits = fits && a.text.size() + b.text.size() <= maxItemValue;
        return fits ? Element{work.Keep(std::string(a.text).append(b.text))} : Element{};
    });
    return fits ? result : ErrorValue();
}

bool Contains(std::string_view text, std::string_view part) {
    size_t character = 0; // where one begins, at or before what was found: half a character is no part
    for (size_t found = text.find(part); found != std::string_view::npos; found = text.find(part, found + 1)) {
        while (character < found) {
            character += LmbcsStepLength(text.substr(character));
        }
        if (character == found) {
            return true;
        }
    }
    return false;
}

bool EndsWith(std::string_view text, std::string_view part) {
    while (text.size() > part.size()) {
        text.remove_prefix(LmbcsStepLength(text));
    }
    return text == part;
}

/** Without the blanks around it, and with one between words. */
std::string TrimmedText(std::string_view text) {
    std::string trimmed;
    bool blank = false;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, LmbcsStepLength(text));
        if (character != " ") {
            trimmed.append(blank && !trimmed.empty() ? " " : "").append(character);
        }
        blank = character == " ";
        text.remove_prefix(character.size());
    }
    return trimmed;
}

} // namespace

Value TextValue(std::string_view text) {
    Value value;
    value.one.text = text;
    return value;
}

Value NumberValue(double number) {
    return OfType(ValueType::number, number);
}

Value TimeValue(const TIMEDATE& time) {
    const TIMEDATE moment{{time.Innards[0] == anyTime ? 0 : time.Innards[0], time.Innards[1]}};
    const auto hundredths = HundredthsFromTimedate(moment);
    return hundredths ? OfType(ValueType::time, static_cast<double>(*hundredths)) : OfType(ValueType::other);
}

Value ErrorValue() {
    return OfType(ValueType::error);
}

Value FieldValue(std::string_view items, std::string_view name) {
    ItemView item{};
    if (!ItemCursor(items).Find(name, item)) {
        return EmptyText(true);
    }
    switch (item.type) {
    case TYPE_TEXT:
        return TextValue(item.value);
    case TYPE_TEXT_LIST:
        return TextListValue(item.value);
    case TYPE_NUMBER:
    case TYPE_TIME:
        return Single(item.type, item.value);
    case TYPE_NUMBER_RANGE:
        return ListOf(TYPE_NUMBER, item.value);
    case TYPE_TIME_RANGE:
        return ListOf(TYPE_TIME, item.value);
    default:
        return EmptyText(false);
    }
}

std::string_view Workspace::Keep(std::string text) {
    Spend(sizeof(std::string) + text.size());
    return texts_.emplace_front(std::move(text));
}

void Workspace::Spend(size_t work) {
    if (work > maxWork - work_) {
        throw TooMuchWork{};
    }
    work_ += work;
}

bool IsTrue(Workspace&, const Value&, const Value&) {
    return true;
}

bool IsFalse(Workspace&, const Value&, const Value&) {
    return false;
}

bool IsEqual(Workspace& work, const Value& left, const Value& right) {
    return AnyPair<std::equal_to<>>(work, left, right);
}

bool IsUnequal(Workspace& work, const Value& left, const Value& right) {
    return AnyPair<std::not_equal_to<>>(work, left, right);
}

bool IsLess(Workspace& work, const Value& left, const Value& right) {
    return AnyPair<std::less<>>(work, left, right);
}

bool IsGreater(Workspace& work, const Value& left, const Value& right) {
    return AnyPair<std::greater<>>(work, left, right);
}

bool IsLessOrEqual(Workspace& work, const Value& left, const Value& right) {
    return AnyPair<std::less_equal<>>(work, left, right);
}

bool IsGreaterOrEqual(Workspace& work, const Value& left, const Value& right) {
    return AnyPair<std::greater_equal<>>(work, left, right);
}

bool IsContained(Workspace& work, const Value& left, const Value& right) {
    return AnyOfEach(work, left, right, Contains);
}

bool IsBeginning(Workspace& work, const Value& left, const Value& right) {
    return AnyOfEach(work, left, right,
                     [](std::string_view text, std::string_view part) { return text.starts_with(part); });
}

bool IsEnding(Workspace& work, const Value& left, const Value& right) {
    return AnyOfEach(work, left, right, EndsWith);
}

bool IsMember(Workspace& work, const Value& left, const Value& right) {
    for (size_t i = 0; BothTexts(work, left, right) && i < left.size(); ++i) {
        if (!AnyOfEach(work, TextValue(left[i].text), right, std::equal_to<>())) {
            return false;
        }
    }
    return IsText(left) && IsText(right);
}

bool IsAvailable(Workspace&, const Value& left, const Value&) {
    return !left.absent;
}

bool IsUnavailable(Workspace&, const Value& left, const Value&) {
    return left.absent;
}

Value Join(Workspace& work, Value left, const Value& right) {
    if (left.type != right.type || left.type == ValueType::other || left.size() + right.size() > maxElements) {
        return ErrorValue();
    }
    work.Spend(right.size() * sizeof(Element));
    if (left.list.empty()) {
        left.list.push_back(left.one);
    }
    for (size_t i = 0; i < right.size(); ++i) {
        left.list.push_back(right[i]);
    }
    return left;
}

// All operations have one signature, whether they work on the left value itself or not.
// NOLINTBEGIN(performance-unnecessary-value-param)
Value Add(Workspace& work, Value left, const Value& right) {
    return AreOf(ValueType::text, left, right)     ? Concatenate(work, left, right)
           : AreOf(ValueType::number, left, right) ? EachNumber(work, left, right, std::plus<>())
                                                   : ErrorValue();
}

Value Subtract(Workspace& work, Value left, const Value& right) {
    return AreOf(ValueType::time, left, right)     ? EachNumber(work, left, right,
                                                                [](double a, double b) {
                                                                return (a - b) / 100; // seconds
                                                            })
           : AreOf(ValueType::number, left, right) ? EachNumber(work, left, right, std::minus<>())
                                                   : ErrorValue();
}

Value Multiply(Workspace& work, Value left, const Value& right) {
    return AreOf(ValueType::number, left, right) ? EachNumber(work, left, right, std::multiplies<>()) : ErrorValue();
}

Value Divide(Workspace& work, Value left, const Value& right) {
    return AreOf(ValueType::number, left, right) ? EachNumber(work, left, right, std::divides<>()) : ErrorValue();
}

Value Negate(Workspace& work, Value left, const Value&) {
    return Multiply(work, std::move(left), NumberValue(-1));
}

Value LowerCase(Workspace& work, Value left, const Value&) {
    return EachText(work, std::move(left), LmbcsLowerCase);
}

Value UpperCase(Workspace& work, Value left, const Value&) {
    return EachText(work, std::move(left), LmbcsUpperCase);
}

Value Trim(Workspace& work, Value left, const Value&) {
    Value trimmed = EachText(work, std::move(left), TrimmedText);
    std::erase_if(trimmed.list, [](const Element& element) { return element.text.empty(); });
    return trimmed;
}

Value CountElements(Workspace&, Value left, const Value&) {
    const bool empty = IsText(left) && left.size() == 1 && left[0].text.empty();
    return left.type >= ValueType::other ? ErrorValue() : NumberValue(empty ? 0 : static_cast<double>(left.size()));
}
// NOLINTEND(performance-unnecessary-value-param)

} // namespace embedded
