// The filter expressions that the product ships, each with the document that its kind belongs to.
#pragma once

#include <array>
#include <string_view>

namespace updkrx {

/** Both texts are ASCII, so the same in the Notes character set, and terminated. */
struct DefaultExpression {
    std::string_view expression;
    std::string_view unid; // as FormatUnidText writes it
};

/** In ascending byte order of the expressions, each of which is there once. */
extern const std::array<DefaultExpression, 80> DefaultExpressionTable;

} // namespace updkrx
