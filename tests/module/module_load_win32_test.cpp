// Each module has an allocator of its own here, so kernel objects are what can be counted from outside.
#include "module/module_load_fixture.h"

#include <windows.h>

namespace updkrx::test {

int64_t LiveResources() {
    DWORD handles = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &handles));
    return handles;
}

} // namespace updkrx::test
