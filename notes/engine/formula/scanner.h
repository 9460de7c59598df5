#pragma once

#include <string>
#include <string_view>

#include "engine/formula/operation.h"

namespace embedded {

enum class TokenKind { end, name, leaf, function, symbol };

struct Token {
    TokenKind kind = TokenKind::end;
    size_t offset = 0;
    std::string_view source;
    char code = '\0';    // of a leaf
    std::string literal; // of a leaf: its compiled form
    const Operation* function = nullptr;

    [[nodiscard]] bool Is(std::string_view symbol) const { return kind == TokenKind::symbol && source == symbol; }
    [[nodiscard]] bool IsWord(std::string_view word) const {
        return kind == TokenKind::name && SameItemName(source, word);
    }
    [[nodiscard]] size_t End() const { return offset + source.size(); }
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
    std::string Text(size_t start);
    Token Number(size_t length);
    Token Time();
    Token Function();
    Token Symbol();
    Token MakeToken(TokenKind kind, size_t length);
    Token MakeLeaf(char code, size_t start, std::string literal) const;
    [[noreturn]] void Unsupported(size_t length, const std::string& what) const;

    std::string_view text_;
    size_t at_ = 0;
};

} // namespace embedded
