// The entries of Databases= in krxpatch.ini, by their names.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "foundation/product_databases.h"

namespace krxpatch {

inline constexpr std::string_view policyFile = "PredefinedDLPPolicy.dat";

[[nodiscard]] inline bool IsDatabaseName(std::string_view name) {
    return name.ends_with(".nsf") || name.ends_with(".ntf");
}

/** The row of the product's table that a template or a database without one belongs to; null when there is none. */
[[nodiscard]] inline const updkrx::ProductDatabase* FindProduct(std::string_view name) {
    const auto found = std::ranges::find_if(updkrx::ProductDatabases, [&](const updkrx::ProductDatabase& product) {
        return name == product.databaseName || (product.templateName != nullptr && name == product.templateName);
    });
    return found == updkrx::ProductDatabases.end() ? nullptr : &*found;
}

} // namespace krxpatch
