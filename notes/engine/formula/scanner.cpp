#include "engine/formula/scanner.h"

#include "engine/formula/formula.h"
#include "engine/formula/literal.h"
#include "engine/values/charset.h"

namespace embedded {

void Scanner::Fail(size_t offset, size_t length, const std::string& message) const {
    FormulaError error;
    error.message = message;
    error.offset = offset;
    error.length = length;
    size_t lineStart = 0;
    for (size_t at = 0; at < offset; at += LmbcsStepLength(text_.substr(at))) {
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
    Token token;
    token.kind = kind;
    token.offset = at_;
    token.source = text_.substr(at_, length);
    at_ += length;
    return token;
}

Token Scanner::MakeLeaf(char code, size_t start, std::string literal) const {
    Token token;
    token.kind = TokenKind::leaf;
    token.offset = start;
    token.source = text_.substr(start, at_ - start);
    token.code = code;
    token.literal = std::move(literal);
    return token;
}

/** Takes the rest of a text whose opening quote is at `start`. */
std::string Scanner::Text(size_t start) {
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

Token Scanner::Number(size_t length) {
    auto number = NumberFromText(Rest().substr(0, length));
    if (!number) {
        Unsupported(length, "the number");
    }
    const size_t start = at_;
    at_ += length;
    return MakeLeaf(op::number, start, *std::move(number));
}

Token Scanner::Time() {
    const size_t start = at_;
    while (at_ < text_.size()) {
        if (Take() == "]") {
            auto time = TimeFromText(text_.substr(start + 1, at_ - start - 2));
            if (!time) {
                const size_t length = at_ - start;
                at_ = start;
                Unsupported(length, "the time");
            }
            return MakeLeaf(op::time, start, *std::move(time));
        }
    }
    Fail(start, text_.size() - start, "a time without a closing bracket");
}

Token Scanner::Function() {
    const size_t length = 1 + NameLength(Rest().substr(1));
    const Operation* function = FunctionOf(Rest().substr(0, length));
    if (!function) {
        Unsupported(length, "the function");
    }
    Token token = MakeToken(TokenKind::function, length);
    token.function = function;
    return token;
}

/** The longest operator or other symbol that comes next. */
Token Scanner::Symbol() {
    size_t longest = 0;
    const auto consider = [&](std::string_view symbol) {
        if (Rest().starts_with(symbol)) {
            longest = std::max(longest, symbol.size());
        }
    };
    for (const Operation& operation : Operations()) {
        consider(operation.symbol);
    }
    for (const std::string_view symbol : {":=", ";", "(", ")"}) {
        consider(symbol);
    }
    if (longest == 0) {
        Unsupported(LmbcsCharacterLength(Rest()), "the symbol");
    }
    return MakeToken(TokenKind::symbol, longest);
}

Token Scanner::Next() {
    at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
    if (Rest().empty()) {
        return MakeToken(TokenKind::end, 0);
    }

    if (const size_t length = NumberLength(Rest())) {
        return Number(length);
    }
    if (Rest().front() == '@') {
        return Function();
    }
    if (Rest().front() == '[') {
        return Time();
    }
    if (const size_t length = NameLength(Rest())) {
        return MakeToken(TokenKind::name, length);
    }

    const size_t start = at_;
    if (Take() == "\"") {
        std::string content = Text(start);
        return MakeLeaf(op::text, start, std::move(content));
    }
    at_ = start;
    return Symbol();
}

} // namespace embedded
