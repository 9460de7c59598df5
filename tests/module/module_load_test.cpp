#include "module/module_load_fixture.h"

namespace updkrx::test {
namespace {

TEST_F(ModuleLoadTest, TwentyTimesLeavesOnlyTheVariable) {
    SetVariable("BQ_DISABLE_EM", "another value");
    const int64_t before = LiveResources();
    for (int time = 0; time < 20; ++time) {
        LoadAndUnload();
    }
    EXPECT_EQ(LiveResources(), before);
    ExpectVariable();
}

} // namespace
} // namespace updkrx::test
