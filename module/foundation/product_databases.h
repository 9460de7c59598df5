// The product's databases, in the order in which every pass over them goes.
#pragma once

#include <array>
#include <cstdint>

namespace updkrx {

struct ProductDatabase {
    const char* templateName; // null when the database has no template
    const char* databaseName; // below the product's folder
    int32_t flag;
};

extern const std::array<ProductDatabase, 11> ProductDatabases;

} // namespace updkrx
