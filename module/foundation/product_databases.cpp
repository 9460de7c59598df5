#include "foundation/product_databases.h"

namespace updkrx {

const std::array<ProductDatabase, 11> ProductDatabases = {{
    {"krconf.ntf", "krconf.nsf", 1},
    {"krxquor.ntf", "krxquor.nsf", 1},
    {"krency.ntf", "krency.nsf", 1},
    {"krvlog.ntf", "krvlog.nsf", 1},
    {"krquar.ntf", "krquar.nsf", 1},
    {nullptr, "krftypes.nsf", 1},
    {nullptr, "krhelp.nsf", 1},
    {"krtime.ntf", "krtime.nsf", 1},
    {"krxapproved.ntf", "krxapproved.nsf", 1},
    {nullptr, "krmsg.nsf", 0},
    {nullptr, "krlists.nsf", 0},
}};

} // namespace updkrx
