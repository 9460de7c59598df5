// The scanner and the parser turn text into the compiled form, the rest reads the compiled form: the check, the way
// back to text, and the evaluation. A long chain of | or & leans to the right in the compiled form, and whatever
// reads it goes to the right in a loop, so that only nesting, which is bounded, makes calls deep.
#include "engine/formula/formula.h"

#include <algorithm>
#include <vector>

#include "engine/values/charset.h"
#include "engine/values/item_codec.h"

namespace embedded {

namespace {

constexpr std::string_view magic = "EmF1";

constexpr char opAll = 'A';
constexpr char opField = 'F';
constexpr char opText = 'T';
constexpr char opEqual = '=';
constexpr char opUnequal = '#';
constexpr char opOr = '|';
constexpr char opAnd = '&';
constexpr char opNot = '!';

// ---- Scanner

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/** Field names are of ASCII letters, digits, _ and $, and of all other characters but controls. */
bool IsNameCharacter(std::string_view character) {
    const auto lead = static_cast<unsigned char>(character.front());
    if (lead >= 0x20 && lead < 0x80) {
        return (lead >= 'A' && lead <= 'Z') || (lead >= 'a' && lead <= 'z') || IsDigit(character.front()) ||
               lead == '_' || lead == '$';
    }
    return lead >= 0x80 || (character.size() > 1 && lead != 0x0F);
}

/** The length of the name characters that `text` begins with. */
size_t NameLength(std::string_view text) {
    size_t length = 0;
    while (const size_t next = LmbcsCharacterLength(text.substr(length))) {
        if (!IsNameCharacter(text.substr(length, next))) {
            break;
        }
        length += next;
    }
    return length;
}

bool IsName(std::string_view text) {
    return !text.empty() && !IsDigit(text.front()) && NameLength(text) == text.size();
}

bool IsWholeCharacters(std::string_view text) {
    while (const size_t next = LmbcsCharacterLength(text)) {
        text.remove_prefix(next);
    }
    return text.empty();
}

enum class TokenKind { end, name, text, all, symbol };

struct Token {
    TokenKind kind = TokenKind::end;
    size_t offset = 0;
    std::string_view source;
    std::string literal; // of a text: without quotes and escapes

    [[nodiscard]] bool Is(std::string_view symbol) const { return kind == TokenKind::symbol && source == symbol; }
    [[nodiscard]] size_t end() const { return offset + source.size(); }
};

/** The text of a formula, one token after the other. Walks characters, because the second byte of a character may
 *  look like a quote or a backslash. Throws FormulaError. */
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    Token Next();
    [[noreturn]] void Fail(size_t offset, size_t length, const std::string& message) const;

private:
    [[nodiscard]] std::string_view Rest() const { return text_.substr(at_); }
    std::string_view Take();
    std::string Literal(size_t start);
    Token MakeToken(TokenKind kind, size_t length);
    [[noreturn]] void Unsupported(size_t length, const std::string& what) const;

    std::string_view text_;
    size_t at_ = 0;
};

void Scanner::Fail(size_t offset, size_t length, const std::string& message) const {
    FormulaError error;
    error.message = message;
    error.offset = offset;
    error.length = length;
    size_t lineStart = 0;
    for (size_t at = 0; at < offset; at += std::max<size_t>(LmbcsCharacterLength(text_.substr(at)), 1)) {
        if (text_[at] == '\n') {
            ++error.line;
            lineStart = at + 1;
        }
    }
    error.column = offset - lineStart + 1;
    throw error;
}

void Scanner::Unsupported(size_t length, const std::string& what) const {
    Fail(at_, length, what + " " + Utf8FromLmbcs(text_.substr(at_, length)) + " is not supported");
}

/** Takes one character. */
std::string_view Scanner::Take() {
    const size_t length = LmbcsCharacterLength(Rest());
    if (length == 0) {
        Fail(at_, 1, "bytes that are no character of LMBCS");
    }
    at_ += length;
    return text_.substr(at_ - length, length);
}

Token Scanner::MakeToken(TokenKind kind, size_t length) {
    at_ += length;
    return {kind, at_ - length, text_.substr(at_ - length, length), {}};
}

/** Takes the rest of a literal whose opening quote is at `start`. */
std::string Scanner::Literal(size_t start) {
    std::string content;
    while (at_ < text_.size()) {
        const std::string_view character = Take();
        if (character == "\"") {
            return content;
        }
        if (character != "\\") {
            content += character;
        } else if (Rest().starts_with('"') || Rest().starts_with('\\')) {
            content += Take();
        } else if (at_ < text_.size()) {
            Fail(at_ - 1, 1, "a backslash that stands before neither a quote nor a backslash");
        }
    }
    Fail(start, text_.size() - start, "a text without a closing quote");
}

Token Scanner::Next() {
    at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
    if (Rest().empty()) {
        return MakeToken(TokenKind::end, 0);
    }

    if (IsDigit(Rest().front())) {
        Unsupported(std::min(Rest().find_first_not_of("0123456789."), Rest().size()), "the number");
    }
    if (Rest().front() == '@') {
        const size_t length = 1 + NameLength(Rest().substr(1));
        if (!SameItemName(Rest().substr(0, length), "@All")) {
            Unsupported(length, "the function");
        }
        return MakeToken(TokenKind::all, length);
    }
    if (const size_t length = NameLength(Rest())) {
        return MakeToken(TokenKind::name, length);
    }

    const size_t start = at_;
    if (Take() == "\"") {
        std::string content = Literal(start);
        return {TokenKind::text, start, text_.substr(start, at_ - start), std::move(content)};
    }
    for (const std::string_view symbol : {"!=", "=", "|", "&", "!", "(", ")"}) {
        at_ = start;
        if (Rest().starts_with(symbol)) {
            return MakeToken(TokenKind::symbol, symbol.size());
        }
    }
    Unsupported(Rest().starts_with(":=") ? 2 : LmbcsCharacterLength(Rest()), "the symbol");
}

// ---- Parser

/** A piece of the formula that has been compiled: whether it is a condition or something to compare, and where. */
struct Piece {
    bool condition;
    size_t start;
    size_t end;
};

/** Recursive descent, one operation for each line of the grammar. An operator goes in front of what has been compiled
 *  of its left side. Throws FormulaError. */
class Parser {
public:
    explicit Parser(std::string_view text) : text_(text), scanner_(text), token_(scanner_.Next()) {}

    std::string Formula();

private:
    using Rule = Piece (Parser::*)();

    Piece Disjunction() { return Chain("|", opOr, &Parser::Conjunction); }
    Piece Conjunction() { return Chain("&", opAnd, &Parser::Negation); }
    Piece Chain(std::string_view symbol, char op, Rule part);
    Piece Negation();
    Piece Comparison();
    Piece ParseOperand();
    Piece Parenthesised();

    void Advance();
    void Leaf(char op, std::string_view value);
    void Nest();
    void Require(const Piece& piece, bool condition) const;
    [[noreturn]] void Unexpected(const std::string& expected) const;

    std::string_view text_;
    Scanner scanner_;
    Token token_;
    size_t lastEnd_ = 0; // of the token before token_
    size_t nesting_ = 0;
    std::string code_{magic};
};

std::string Parser::Formula() {
    if (token_.kind == TokenKind::name && SameItemName(token_.source, "SELECT")) {
        Advance();
    }
    if (token_.kind == TokenKind::end) {
        scanner_.Fail(token_.offset, 0, "the formula is empty");
    }
    const Piece whole = Disjunction();
    if (token_.kind != TokenKind::end) {
        Unexpected("the end of the formula");
    }
    Require(whole, true);
    if (code_.size() > maxFormulaSize) {
        scanner_.Fail(0, text_.size(), "the formula is too long");
    }
    return std::move(code_);
}

Piece Parser::Chain(std::string_view symbol, char op, Rule part) {
    size_t place = code_.size();
    Piece piece = (this->*part)();
    while (token_.Is(symbol)) {
        Require(piece, true);
        Advance();
        code_.insert(place, 1, op);
        place = code_.size();
        const Piece right = (this->*part)();
        Require(right, true);
        piece.end = right.end;
    }
    return piece;
}

Piece Parser::Negation() {
    if (!token_.Is("!")) {
        return Comparison();
    }
    const size_t start = token_.offset;
    Nest();
    Advance();
    code_ += opNot;
    const Piece negated = Negation();
    Require(negated, true);
    --nesting_;
    return {true, start, negated.end};
}

Piece Parser::Comparison() {
    const size_t place = code_.size();
    const Piece left = ParseOperand();
    if (!token_.Is("=") && !token_.Is("!=")) {
        return left;
    }
    Require(left, false);
    code_.insert(place, 1, token_.Is("=") ? opEqual : opUnequal);
    Advance();
    const Piece right = ParseOperand();
    Require(right, false);
    return {true, left.start, right.end};
}

Piece Parser::ParseOperand() {
    const Token token = token_;
    switch (token.kind) {
    case TokenKind::name:
        Leaf(opField, token.source);
        return {false, token.offset, token.end()};
    case TokenKind::text:
        Leaf(opText, token.literal);
        return {false, token.offset, token.end()};
    case TokenKind::all:
        code_ += opAll;
        Advance();
        return {true, token.offset, token.end()};
    default:
        return Parenthesised();
    }
}

Piece Parser::Parenthesised() {
    if (!token_.Is("(")) {
        Unexpected("a field, a text or a condition");
    }
    const size_t start = token_.offset;
    Nest();
    Advance();
    const Piece inner = Disjunction();
    if (!token_.Is(")")) {
        Unexpected("a closing parenthesis");
    }
    Advance();
    --nesting_;
    return {inner.condition, start, lastEnd_};
}

void Parser::Advance() {
    lastEnd_ = token_.end();
    token_ = scanner_.Next();
}

/** Compiles the token. A value too long for its length bytes makes the whole formula too long. */
void Parser::Leaf(char op, std::string_view value) {
    code_ += op;
    code_ += static_cast<char>(value.size() & 0xFF);
    code_ += static_cast<char>(value.size() >> 8 & 0xFF);
    code_ += value;
    Advance();
}

void Parser::Nest() {
    if (++nesting_ > maxFormulaNesting) {
        scanner_.Fail(token_.offset, token_.source.size(), "the formula is nested too deeply");
    }
}

void Parser::Require(const Piece& piece, bool condition) const {
    if (piece.condition == condition) {
        return;
    }
    const std::string source = Utf8FromLmbcs(text_.substr(piece.start, piece.end - piece.start));
    scanner_.Fail(piece.start, piece.end - piece.start,
                  source + (condition ? " is no condition" : " cannot be compared, it is a condition"));
}

void Parser::Unexpected(const std::string& expected) const {
    const std::string found = token_.kind == TokenKind::end ? "the end of the formula" : Utf8FromLmbcs(token_.source);
    scanner_.Fail(token_.offset, token_.source.size(), found + " where " + expected + " is expected");
}

// ---- Compiled form

struct Operand {
    char op = '\0';
    std::string_view value;
};

/** Walks the compiled form from left to right. */
class Code {
public:
    explicit Code(std::string_view rest) : rest_(rest) {}

    [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
    /** The operator that Next() would give; '\0' at the end. */
    [[nodiscard]] char Peek() const { return rest_.empty() ? '\0' : rest_.front(); }
    char Next() {
        const char op = Peek();
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return op;
    }
    /** A field or literal; without an operator when there is none. */
    Operand TakeOperand();

private:
    std::string_view rest_;
};

Operand Code::TakeOperand() {
    if (rest_.size() < 3) {
        return {};
    }
    const size_t length = static_cast<unsigned char>(rest_[1]) + static_cast<unsigned char>(rest_[2]) * size_t{256};
    if (rest_.size() - 3 < length) {
        return {};
    }
    const Operand operand{rest_[0], rest_.substr(3, length)};
    rest_.remove_prefix(3 + length);
    return operand;
}

Code CodeOf(std::string_view compiled) {
    return Code(compiled.substr(magic.size()));
}

// ---- Check and text

enum class Side { left, right };

int Strength(char op) {
    return op == opOr ? 1 : op == opAnd ? 2 : op == opNot ? 3 : 4;
}

/** Whether an operand of `op` that has the operator `inner` needs parentheses to stay its operand. The operand of a
 *  negation is a right one. */
bool NeedsParentheses(char op, Side side, char inner) {
    return side == Side::left ? Strength(inner) <= Strength(op) : Strength(inner) < Strength(op);
}

bool IsOperand(const Operand& operand) {
    return operand.op == opField ? IsName(operand.value) : operand.op == opText && IsWholeCharacters(operand.value);
}

/** Takes one condition. The nesting is counted as the parser does, so that the formula's text compiles again. */
bool TakeCondition(Code& code, size_t nesting) {
    while (nesting <= maxFormulaNesting) {
        const char op = code.Next();
        switch (op) {
        case opAll:
            return true;
        case opEqual:
        case opUnequal:
            return IsOperand(code.TakeOperand()) && IsOperand(code.TakeOperand());
        case opNot:
            ++nesting;
            break;
        case opOr:
        case opAnd:
            if (!TakeCondition(code, nesting + NeedsParentheses(op, Side::left, code.Peek()))) {
                return false;
            }
            break;
        default:
            return false;
        }
        nesting += NeedsParentheses(op, Side::right, code.Peek());
    }
    return false;
}

void Write(const Operand& operand, std::string& text) {
    if (operand.op == opField) {
        text += operand.value;
        return;
    }
    text += '"';
    for (std::string_view rest = operand.value; !rest.empty();) {
        const std::string_view character = rest.substr(0, LmbcsCharacterLength(rest));
        if (character == "\"" || character == "\\") {
            text += '\\';
        }
        text += character;
        rest.remove_prefix(character.size());
    }
    text += '"';
}

void Write(Code& code, std::string& text);

void WriteParenthesised(Code& code, std::string& text) {
    text += '(';
    Write(code, text);
    text += ')';
}

/** Writes one condition. */
void Write(Code& code, std::string& text) {
    for (;;) {
        const char op = code.Next();
        switch (op) {
        case opAll:
            text += "@All";
            return;
        case opEqual:
        case opUnequal:
            Write(code.TakeOperand(), text);
            text += op == opEqual ? " = " : " != ";
            Write(code.TakeOperand(), text);
            return;
        case opNot:
            text += '!';
            break;
        default:
            if (NeedsParentheses(op, Side::left, code.Peek())) {
                WriteParenthesised(code, text);
            } else {
                Write(code, text);
            }
            text += op == opOr ? " | " : " & ";
        }
        if (NeedsParentheses(op, Side::right, code.Peek())) {
            return WriteParenthesised(code, text);
        }
    }
}

// ---- Evaluation

/** What a field or literal stands for in a comparison: the texts, at least one, or nothing that equals a text. One
 *  text, by far the commonest, takes no memory. */
class Values {
public:
    Values(const Operand& operand, std::string_view items) {
        if (operand.op == opText) {
            text_ = operand.value;
            return;
        }
        const auto item = FindItem(items, operand.value);
        if (!item) {
            return;
        }
        switch (item->type) {
        case TYPE_TEXT:
            text_ = item->value;
            break;
        case TYPE_TEXT_LIST:
            list_ = TextEntries(item->type, item->value).value_or(std::vector<std::string_view>{});
            break;
        case TYPE_NUMBER:
        case TYPE_NUMBER_RANGE:
        case TYPE_TIME:
        case TYPE_TIME_RANGE:
            comparable_ = false;
            break;
        default:
            break;
        }
    }

    [[nodiscard]] bool Comparable() const { return comparable_; }
    [[nodiscard]] size_t size() const { return std::max<size_t>(list_.size(), 1); }
    /** The last one for an index beyond the end. */
    [[nodiscard]] std::string_view operator[](size_t index) const {
        return list_.empty() ? text_ : list_[std::min(index, list_.size() - 1)];
    }

private:
    std::string_view text_;
    std::vector<std::string_view> list_;
    bool comparable_ = true;
};

bool AnyPair(bool equal, const Values& left, const Values& right) {
    if (!left.Comparable() || !right.Comparable()) {
        return !equal;
    }
    for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        if ((left[i] == right[i]) == equal) {
            return true;
        }
    }
    return false;
}

/** Passes over one condition. */
void Skip(Code& code) {
    for (size_t conditions = 1; conditions > 0;) {
        switch (code.Next()) {
        case opOr:
        case opAnd:
            ++conditions;
            break;
        case opNot:
            break;
        case opAll:
            --conditions;
            break;
        default:
            code.TakeOperand();
            code.TakeOperand();
            --conditions;
        }
    }
}

/** Evaluates one condition. */
bool Holds(Code& code, std::string_view items) {
    bool wanted = true; // turned by each negation on the way
    for (;;) {
        const char op = code.Next();
        switch (op) {
        case opAll:
            return wanted;
        case opNot:
            wanted = !wanted;
            break;
        case opOr:
        case opAnd: {
            const bool decisive = op == opOr;
            if (Holds(code, items) == decisive) {
                Skip(code);
                return decisive == wanted;
            }
            break; // the right side decides
        }
        default: {
            const Values left(code.TakeOperand(), items);
            const Values right(code.TakeOperand(), items);
            return AnyPair(op == opEqual, left, right) == wanted;
        }
        }
    }
}

} // namespace

std::variant<std::string, FormulaError> CompileFormula(std::string_view text) {
    try {
        return Parser(text).Formula();
    } catch (FormulaError& error) {
        return std::move(error);
    }
}

bool IsFormula(std::string_view compiled) noexcept {
    if (compiled.size() > maxFormulaSize || !compiled.starts_with(magic)) {
        return false;
    }
    Code code = CodeOf(compiled);
    return TakeCondition(code, 0) && code.AtEnd();
}

std::string FormulaText(std::string_view compiled) {
    std::string text = "SELECT ";
    Code code = CodeOf(compiled);
    Write(code, text);
    return text;
}

bool FormulaSelects(std::string_view compiled, std::string_view encodedItems) {
    Code code = CodeOf(compiled);
    return Holds(code, encodedItems);
}

} // namespace embedded
