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

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/** Field names are of ASCII letters, digits, _ and $, and of all other characters but controls. */
bool isNameCharacter(std::string_view character) {
    const auto lead = static_cast<unsigned char>(character.front());
    if (lead >= 0x20 && lead < 0x80)
        return (lead >= 'A' && lead <= 'Z') || (lead >= 'a' && lead <= 'z') || isDigit(character.front()) ||
               lead == '_' || lead == '$';
    return lead >= 0x80 || (character.size() > 1 && lead != 0x0F);
}

/** The length of the name characters that `text` begins with. */
size_t nameLength(std::string_view text) {
    size_t length = 0;
    while (const size_t next = lmbcsCharacterLength(text.substr(length))) {
        if (!isNameCharacter(text.substr(length, next)))
            break;
        length += next;
    }
    return length;
}

bool isName(std::string_view text) {
    return !text.empty() && !isDigit(text.front()) && nameLength(text) == text.size();
}

bool isWholeCharacters(std::string_view text) {
    while (const size_t next = lmbcsCharacterLength(text))
        text.remove_prefix(next);
    return text.empty();
}

enum class TokenKind { end, name, text, all, symbol };

struct Token {
    TokenKind kind = TokenKind::end;
    size_t offset = 0;
    std::string_view source;
    std::string literal; // of a text: without quotes and escapes

    [[nodiscard]] bool is(std::string_view symbol) const { return kind == TokenKind::symbol && source == symbol; }
    [[nodiscard]] size_t end() const { return offset + source.size(); }
};

/** The text of a formula, one token after the other. Walks characters, because the second byte of a character may
 *  look like a quote or a backslash. Throws FormulaError. */
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    Token next();
    [[noreturn]] void fail(size_t offset, size_t length, const std::string& message) const;

private:
    [[nodiscard]] std::string_view rest() const { return text_.substr(at_); }
    std::string_view take();
    std::string literal(size_t start);
    Token token(TokenKind kind, size_t length);
    [[noreturn]] void unsupported(size_t length, const std::string& what) const;

    std::string_view text_;
    size_t at_ = 0;
};

void Scanner::fail(size_t offset, size_t length, const std::string& message) const {
    FormulaError error;
    error.message = message;
    error.offset = offset;
    error.length = length;
    size_t lineStart = 0;
    for (size_t at = 0; at < offset; at += std::max<size_t>(lmbcsCharacterLength(text_.substr(at)), 1))
        if (text_[at] == '\n') {
            ++error.line;
            lineStart = at + 1;
        }
    error.column = offset - lineStart + 1;
    throw error;
}

void Scanner::unsupported(size_t length, const std::string& what) const {
    fail(at_, length, what + " " + utf8FromLmbcs(text_.substr(at_, length)) + " is not supported");
}

/** Takes one character. */
std::string_view Scanner::take() {
    const size_t length = lmbcsCharacterLength(rest());
    if (length == 0)
        fail(at_, 1, "bytes that are no character of LMBCS");
    at_ += length;
    return text_.substr(at_ - length, length);
}

Token Scanner::token(TokenKind kind, size_t length) {
    at_ += length;
    return {kind, at_ - length, text_.substr(at_ - length, length), {}};
}

/** Takes the rest of a literal whose opening quote is at `start`. */
std::string Scanner::literal(size_t start) {
    std::string content;
    while (at_ < text_.size()) {
        const std::string_view character = take();
        if (character == "\"")
            return content;
        if (character != "\\") {
            content += character;
        } else if (rest().starts_with('"') || rest().starts_with('\\')) {
            content += take();
        } else if (at_ < text_.size()) {
            fail(at_ - 1, 1, "a backslash that stands before neither a quote nor a backslash");
        }
    }
    fail(start, text_.size() - start, "a text without a closing quote");
}

Token Scanner::next() {
    at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
    if (rest().empty())
        return token(TokenKind::end, 0);

    if (isDigit(rest().front()))
        unsupported(std::min(rest().find_first_not_of("0123456789."), rest().size()), "the number");
    if (rest().front() == '@') {
        const size_t length = 1 + nameLength(rest().substr(1));
        if (!sameItemName(rest().substr(0, length), "@All"))
            unsupported(length, "the function");
        return token(TokenKind::all, length);
    }
    if (const size_t length = nameLength(rest()))
        return token(TokenKind::name, length);

    const size_t start = at_;
    if (take() == "\"") {
        std::string content = literal(start);
        return {TokenKind::text, start, text_.substr(start, at_ - start), std::move(content)};
    }
    for (const std::string_view symbol : {"!=", "=", "|", "&", "!", "(", ")"}) {
        at_ = start;
        if (rest().starts_with(symbol))
            return token(TokenKind::symbol, symbol.size());
    }
    unsupported(rest().starts_with(":=") ? 2 : lmbcsCharacterLength(rest()), "the symbol");
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
    explicit Parser(std::string_view text) : text_(text), scanner_(text), token_(scanner_.next()) {}

    std::string formula();

private:
    using Rule = Piece (Parser::*)();

    Piece disjunction() { return chain("|", opOr, &Parser::conjunction); }
    Piece conjunction() { return chain("&", opAnd, &Parser::negation); }
    Piece chain(std::string_view symbol, char op, Rule part);
    Piece negation();
    Piece comparison();
    Piece operand();
    Piece parenthesised();

    void advance();
    void leaf(char op, std::string_view value);
    void nest();
    void require(const Piece& piece, bool condition) const;
    [[noreturn]] void unexpected(const std::string& expected) const;

    std::string_view text_;
    Scanner scanner_;
    Token token_;
    size_t lastEnd_ = 0; // of the token before token_
    size_t nesting_ = 0;
    std::string code_{magic};
};

std::string Parser::formula() {
    if (token_.kind == TokenKind::name && sameItemName(token_.source, "SELECT"))
        advance();
    if (token_.kind == TokenKind::end)
        scanner_.fail(token_.offset, 0, "the formula is empty");
    const Piece whole = disjunction();
    if (token_.kind != TokenKind::end)
        unexpected("the end of the formula");
    require(whole, true);
    if (code_.size() > maxFormulaSize)
        scanner_.fail(0, text_.size(), "the formula is too long");
    return std::move(code_);
}

Piece Parser::chain(std::string_view symbol, char op, Rule part) {
    size_t place = code_.size();
    Piece piece = (this->*part)();
    while (token_.is(symbol)) {
        require(piece, true);
        advance();
        code_.insert(place, 1, op);
        place = code_.size();
        const Piece right = (this->*part)();
        require(right, true);
        piece.end = right.end;
    }
    return piece;
}

Piece Parser::negation() {
    if (!token_.is("!"))
        return comparison();
    const size_t start = token_.offset;
    nest();
    advance();
    code_ += opNot;
    const Piece negated = negation();
    require(negated, true);
    --nesting_;
    return {true, start, negated.end};
}

Piece Parser::comparison() {
    const size_t place = code_.size();
    const Piece left = operand();
    if (!token_.is("=") && !token_.is("!="))
        return left;
    require(left, false);
    code_.insert(place, 1, token_.is("=") ? opEqual : opUnequal);
    advance();
    const Piece right = operand();
    require(right, false);
    return {true, left.start, right.end};
}

Piece Parser::operand() {
    const Token token = token_;
    switch (token.kind) {
    case TokenKind::name:
        leaf(opField, token.source);
        return {false, token.offset, token.end()};
    case TokenKind::text:
        leaf(opText, token.literal);
        return {false, token.offset, token.end()};
    case TokenKind::all:
        code_ += opAll;
        advance();
        return {true, token.offset, token.end()};
    default:
        return parenthesised();
    }
}

Piece Parser::parenthesised() {
    if (!token_.is("("))
        unexpected("a field, a text or a condition");
    const size_t start = token_.offset;
    nest();
    advance();
    const Piece inner = disjunction();
    if (!token_.is(")"))
        unexpected("a closing parenthesis");
    advance();
    --nesting_;
    return {inner.condition, start, lastEnd_};
}

void Parser::advance() {
    lastEnd_ = token_.end();
    token_ = scanner_.next();
}

/** Compiles the token. A value too long for its length bytes makes the whole formula too long. */
void Parser::leaf(char op, std::string_view value) {
    code_ += op;
    code_ += static_cast<char>(value.size() & 0xFF);
    code_ += static_cast<char>(value.size() >> 8 & 0xFF);
    code_ += value;
    advance();
}

void Parser::nest() {
    if (++nesting_ > maxFormulaNesting)
        scanner_.fail(token_.offset, token_.source.size(), "the formula is nested too deeply");
}

void Parser::require(const Piece& piece, bool condition) const {
    if (piece.condition == condition)
        return;
    const std::string source = utf8FromLmbcs(text_.substr(piece.start, piece.end - piece.start));
    scanner_.fail(piece.start, piece.end - piece.start,
                  source + (condition ? " is no condition" : " cannot be compared, it is a condition"));
}

void Parser::unexpected(const std::string& expected) const {
    const std::string found = token_.kind == TokenKind::end ? "the end of the formula" : utf8FromLmbcs(token_.source);
    scanner_.fail(token_.offset, token_.source.size(), found + " where " + expected + " is expected");
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

    [[nodiscard]] bool atEnd() const { return rest_.empty(); }
    /** The operator that next() would give; '\0' at the end. */
    [[nodiscard]] char peek() const { return rest_.empty() ? '\0' : rest_.front(); }
    char next() {
        const char op = peek();
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return op;
    }
    /** A field or literal; without an operator when there is none. */
    Operand operand();

private:
    std::string_view rest_;
};

Operand Code::operand() {
    if (rest_.size() < 3)
        return {};
    const size_t length = static_cast<unsigned char>(rest_[1]) + static_cast<unsigned char>(rest_[2]) * size_t{256};
    if (rest_.size() - 3 < length)
        return {};
    const Operand operand{rest_[0], rest_.substr(3, length)};
    rest_.remove_prefix(3 + length);
    return operand;
}

Code codeOf(std::string_view compiled) {
    return Code(compiled.substr(magic.size()));
}

// ---- Check and text

enum class Side { left, right };

int strength(char op) {
    return op == opOr ? 1 : op == opAnd ? 2 : op == opNot ? 3 : 4;
}

/** Whether an operand of `op` that has the operator `inner` needs parentheses to stay its operand. The operand of a
 *  negation is a right one. */
bool needsParentheses(char op, Side side, char inner) {
    return side == Side::left ? strength(inner) <= strength(op) : strength(inner) < strength(op);
}

bool isOperand(const Operand& operand) {
    return operand.op == opField ? isName(operand.value) : operand.op == opText && isWholeCharacters(operand.value);
}

/** Takes one condition. The nesting is counted as the parser does, so that the formula's text compiles again. */
bool takeCondition(Code& code, size_t nesting) {
    while (nesting <= maxFormulaNesting) {
        const char op = code.next();
        switch (op) {
        case opAll:
            return true;
        case opEqual:
        case opUnequal:
            return isOperand(code.operand()) && isOperand(code.operand());
        case opNot:
            ++nesting;
            break;
        case opOr:
        case opAnd:
            if (!takeCondition(code, nesting + needsParentheses(op, Side::left, code.peek())))
                return false;
            break;
        default:
            return false;
        }
        nesting += needsParentheses(op, Side::right, code.peek());
    }
    return false;
}

void write(const Operand& operand, std::string& text) {
    if (operand.op == opField) {
        text += operand.value;
        return;
    }
    text += '"';
    for (std::string_view rest = operand.value; !rest.empty();) {
        const std::string_view character = rest.substr(0, lmbcsCharacterLength(rest));
        if (character == "\"" || character == "\\")
            text += '\\';
        text += character;
        rest.remove_prefix(character.size());
    }
    text += '"';
}

void write(Code& code, std::string& text);

void writeParenthesised(Code& code, std::string& text) {
    text += '(';
    write(code, text);
    text += ')';
}

/** Writes one condition. */
void write(Code& code, std::string& text) {
    for (;;) {
        const char op = code.next();
        switch (op) {
        case opAll:
            text += "@All";
            return;
        case opEqual:
        case opUnequal:
            write(code.operand(), text);
            text += op == opEqual ? " = " : " != ";
            write(code.operand(), text);
            return;
        case opNot:
            text += '!';
            break;
        default:
            if (needsParentheses(op, Side::left, code.peek()))
                writeParenthesised(code, text);
            else
                write(code, text);
            text += op == opOr ? " | " : " & ";
        }
        if (needsParentheses(op, Side::right, code.peek()))
            return writeParenthesised(code, text);
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
        const auto item = findItem(items, operand.value);
        if (!item)
            return;
        switch (item->type) {
        case TYPE_TEXT:
            text_ = item->value;
            break;
        case TYPE_TEXT_LIST:
            list_ = textEntries(item->type, item->value).value_or(std::vector<std::string_view>{});
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

    [[nodiscard]] bool comparable() const { return comparable_; }
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

bool anyPair(bool equal, const Values& left, const Values& right) {
    if (!left.comparable() || !right.comparable())
        return !equal;
    for (size_t i = 0; i < std::max(left.size(), right.size()); ++i)
        if ((left[i] == right[i]) == equal)
            return true;
    return false;
}

/** Passes over one condition. */
void skip(Code& code) {
    for (size_t conditions = 1; conditions > 0;) {
        switch (code.next()) {
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
            code.operand();
            code.operand();
            --conditions;
        }
    }
}

/** Evaluates one condition. */
bool holds(Code& code, std::string_view items) {
    bool wanted = true; // turned by each negation on the way
    for (;;) {
        const char op = code.next();
        switch (op) {
        case opAll:
            return wanted;
        case opNot:
            wanted = !wanted;
            break;
        case opOr:
        case opAnd: {
            const bool decisive = op == opOr;
            if (holds(code, items) == decisive) {
                skip(code);
                return decisive == wanted;
            }
            break; // the right side decides
        }
        default: {
            const Values left(code.operand(), items);
            const Values right(code.operand(), items);
            return anyPair(op == opEqual, left, right) == wanted;
        }
        }
    }
}

} // namespace

std::variant<std::string, FormulaError> compileFormula(std::string_view text) {
    try {
        return Parser(text).formula();
    } catch (FormulaError& error) {
        return std::move(error);
    }
}

bool isFormula(std::string_view compiled) noexcept {
    if (compiled.size() > maxFormulaSize || !compiled.starts_with(magic))
        return false;
    Code code = codeOf(compiled);
    return takeCondition(code, 0) && code.atEnd();
}

std::string formulaText(std::string_view compiled) {
    std::string text = "SELECT ";
    Code code = codeOf(compiled);
    write(code, text);
    return text;
}

bool formulaSelects(std::string_view compiled, std::string_view encodedItems) {
    Code code = codeOf(compiled);
    return holds(code, encodedItems);
}

} // namespace embedded
