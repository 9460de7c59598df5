#include "engine/formula/code.h"
#include "engine/formula/formula.h"
#include "engine/formula/scanner.h"
#include "engine/values/charset.h"

namespace embedded {

namespace {

/** A piece of the formula that has been compiled: what it is, and where. */
struct Piece {
    Kind kind;
    size_t start;
    size_t end;
};

/** Recursive descent, one level for each strength of the table of operations. An operation goes in front of what has
 *  been compiled of its left side. Throws FormulaError. */
class Parser {
public:
    explicit Parser(std::string_view text) : text_(text), scanner_(text), token_(scanner_.Next()) {}

    std::string Formula();

private:
    bool Statement();
    Piece Level(int strength);
    Piece Logical(int strength);
    Piece Prefix(int strength);
    Piece Comparison(int strength);
    Piece Chain(int strength);
    Piece Primary();
    Piece Name();
    Piece Leaf();
    Piece Function();
    void Argument(const Operation& function);
    Piece Parenthesised();

    /** The operation of that strength that the token is the symbol of; nullptr when it is none. */
    [[nodiscard]] const Operation* Symbol(int strength) const;
    [[nodiscard]] Token Ahead() const { return Scanner(scanner_).Next(); }
    void Advance();
    void Expect(std::string_view symbol, const std::string& meaning);
    void Grow() { code_.replace(0, grownMagic.size(), grownMagic); }
    void Emit(const Operation& operation, size_t place);
    void EmitText(char code, std::string_view value);
    void Nest();
    void Require(const Piece& piece, Kind kind) const;
    void RequireSize() const;
    [[noreturn]] void Unexpected(const std::string& expected) const;

    std::string_view text_;
    Scanner scanner_;
    Token token_;
    size_t lastEnd_ = 0; // of the token before token_
    size_t nesting_ = 0;
    VariableKinds variables_;
    std::string code_{firstMagic};
};

std::string Parser::Formula() {
    while (Statement()) {
        RequireSize(); // also bounds the variables
    }
    if (token_.IsWord("SELECT")) {
        Advance();
    }
    if (token_.kind == TokenKind::end) {
        scanner_.Fail(token_.offset, 0, "the formula is empty");
    }
    const Piece whole = Level(1);
    if (token_.kind != TokenKind::end) {
        Unexpected("the end of the formula");
    }
    Require(whole, Kind::condition);
    RequireSize();
    return std::move(code_);
}

/** Compiles a remark or an assignment; false when the selection comes next. */
bool Parser::Statement() {
    if (token_.kind != TokenKind::name || token_.IsWord("SELECT")) {
        return false;
    }
    const Token next = Ahead();
    if (token_.IsWord("REM") && next.code == op::text) {
        Advance();
        EmitText(op::remark, next.literal);
        Advance();
    } else if (next.Is(":=")) {
        const std::string_view name = token_.source;
        EmitText(op::assignment, name);
        Advance();
        Advance();
        variables_.Add(name, Level(1).kind);
    } else {
        return false;
    }
    Grow();
    Expect(";", "a semicolon");
    return true;
}

Piece Parser::Level(int strength) {
    switch (ShapeOf(strength)) {
    case Shape::logical:
        return Logical(strength);
    case Shape::prefix:
        return Prefix(strength);
    case Shape::comparison:
        return Comparison(strength);
    case Shape::chain:
        return Chain(strength);
    default:
        return Primary();
    }
}

Piece Parser::Logical(int strength) {
    size_t place = code_.size();
    Piece piece = Level(strength + 1);
    while (const Operation* operation = Symbol(strength)) {
        Require(piece, operation->operand);
        Advance();
        Emit(*operation, place);
        place = code_.size();
        const Piece right = Level(strength + 1);
        Require(right, operation->operand);
        piece.end = right.end;
    }
    return piece;
}

Piece Parser::Prefix(int strength) {
    const Operation* operation = Symbol(strength);
    if (!operation) {
        return Level(strength + 1);
    }
    const size_t start = token_.offset;
    Nest();
    Advance();
    Emit(*operation, code_.size());
    const Piece operand = Level(strength);
    Require(operand, operation->operand);
    --nesting_;
    return {operation->result, start, operand.end};
}

Piece Parser::Comparison(int strength) {
    const size_t place = code_.size();
    const Piece left = Level(strength + 1);
    const Operation* operation = Symbol(strength);
    if (!operation) {
        return left;
    }
    Require(left, operation->operand);
    Emit(*operation, place);
    Advance();
    const Piece right = Level(strength + 1);
    Require(right, operation->operand);
    return {operation->result, left.start, right.end};
}

Piece Parser::Chain(int strength) {
    const size_t place = code_.size();
    std::string operations;
    Piece piece = Level(strength + 1);
    while (const Operation* operation = Symbol(strength)) {
        Require(piece, operation->operand);
        Advance();
        operations += operation->code;
        const Piece right = Level(strength + 1);
        Require(right, operation->operand);
        piece.end = right.end;
    }
    if (!operations.empty()) {
        code_.insert(place, std::string(operations.rbegin(), operations.rend()));
        Grow();
    }
    return piece;
}

Piece Parser::Primary() {
    switch (token_.kind) {
    case TokenKind::name:
        return Name();
    case TokenKind::leaf:
        return Leaf();
    case TokenKind::function:
        return Function();
    default:
        return Parenthesised();
    }
}

Piece Parser::Name() {
    const Piece piece{variables_.Find(token_.source).value_or(Kind::value), token_.offset, token_.End()};
    EmitText(op::field, token_.source);
    Advance();
    return piece;
}

Piece Parser::Leaf() {
    const Piece piece{Kind::value, token_.offset, token_.End()};
    if (token_.code == op::text) {
        EmitText(op::text, token_.literal);
    } else {
        Emit(OperationOf(token_.code), code_.size());
        code_ += token_.literal;
    }
    Advance();
    return piece;
}

Piece Parser::Function() {
    const Operation& function = *token_.function;
    const size_t start = token_.offset;
    Emit(function, code_.size());
    Advance();
    if (function.operandCount == 0) {
        return {function.result, start, lastEnd_};
    }
    for (int i = 0; i < function.operandCount; ++i) {
        if (i == 0) {
            Nest();
        }
        Expect(i == 0 ? "(" : ";", i == 0 ? "an opening parenthesis" : "a semicolon");
        Argument(function);
    }
    Expect(")", "a closing parenthesis");
    --nesting_;
    return {function.result, start, lastEnd_};
}

void Parser::Argument(const Operation& function) {
    if (function.operand != Kind::fieldName) {
        return Require(Level(1), function.operand);
    }
    if (token_.kind != TokenKind::name || variables_.Find(token_.source)) {
        Unexpected("a field");
    }
    Name();
}

Piece Parser::Parenthesised() {
    if (!token_.Is("(")) {
        Unexpected("a value or a condition");
    }
    const size_t start = token_.offset;
    Nest();
    Advance();
    const Piece inner = Level(1);
    Expect(")", "a closing parenthesis");
    --nesting_;
    return {inner.kind, start, lastEnd_};
}

const Operation* Parser::Symbol(int strength) const {
    if (token_.kind != TokenKind::symbol) {
        return nullptr;
    }
    for (const Operation& operation : Operations()) {
        if (operation.strength == strength && token_.Is(operation.symbol)) {
            return &operation;
        }
    }
    return nullptr;
}

void Parser::Advance() {
    lastEnd_ = token_.End();
    token_ = scanner_.Next();
}

void Parser::Expect(std::string_view symbol, const std::string& meaning) {
    if (!token_.Is(symbol)) {
        Unexpected(meaning);
    }
    Advance();
}

void Parser::Emit(const Operation& operation, size_t place) {
    code_.insert(place, 1, operation.code);
    if (operation.grown) {
        Grow();
    }
}

/** A value too long for its length bytes makes the whole formula too long. */
void Parser::EmitText(char code, std::string_view value) {
    code_ += code;
    AppendValue(code_, static_cast<WORD>(value.size()));
    code_ += value;
}

void Parser::Nest() {
    if (++nesting_ > maxFormulaNesting) {
        scanner_.Fail(token_.offset, token_.source.size(), "the formula is nested too deeply");
    }
}

void Parser::Require(const Piece& piece, Kind kind) const {
    if (piece.kind == kind) {
        return;
    }
    const std::string source = Utf8FromLmbcs(text_.substr(piece.start, piece.end - piece.start));
    scanner_.Fail(piece.start, piece.end - piece.start,
                  source + (kind == Kind::condition ? " is no condition" : " is no value, it is a condition"));
}

void Parser::RequireSize() const {
    if (code_.size() > maxFormulaSize) {
        scanner_.Fail(0, text_.size(), "the formula is too long");
    }
}

void Parser::Unexpected(const std::string& expected) const {
    const std::string found = token_.kind == TokenKind::end ? "the end of the formula" : Utf8FromLmbcs(token_.source);
    scanner_.Fail(token_.offset, token_.source.size(), found + " where " + expected + " is expected");
}

} // namespace

std::variant<std::string, FormulaError> CompileFormula(std::string_view text) {
    try {
        return Parser(text).Formula();
    } catch (FormulaError& error) {
        return std::move(error);
    }
}

} // namespace embedded
