// The module file itself, loaded and unloaded as a server does it.
#include <atomic>
#include <cstdlib>
#include <new>

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

std::atomic<int64_t> liveAllocations = 0;
std::atomic<int> smallAllocations = 0;  // those that may fail: the lock and its objects
std::atomic<int> allocationToFail = -1; // the index of one of them

void* Allocate(std::size_t size) noexcept {
    void* memory = std::malloc(size);
    liveAllocations += memory != nullptr;
    return memory;
}

void Free(void* memory) noexcept {
    liveAllocations -= memory != nullptr;
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) {
    if (void* memory = Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return smallAllocations++ == allocationToFail ? nullptr : Allocate(size);
}

void operator delete(void* memory) noexcept {
    Free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    Free(memory);
}

namespace updkrx {
namespace {

class ModuleLoadTest : public testing::Test {
protected:
    ModuleLoadTest() {
        LoadAndUnload(); // what the loader and the C library keep from a first time
        unsetenv("BQ_DISABLE_EM");
    }

    /** Checks that the module is there in between and gone afterwards. */
    static void LoadAndUnload() {
        void* module = dlopen(UPDKRX_MODULE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << dlerror();
        EXPECT_NE(dlsym(module, "MainEntryPoint"), nullptr);
        ASSERT_EQ(dlclose(module), 0) << dlerror();
        EXPECT_EQ(dlopen(UPDKRX_MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
    }

    /** As a started process finds it. */
    static void ExpectVariable() {
        EXPECT_STREQ(std::getenv("BQ_DISABLE_EM"), "1");
        EXPECT_EQ(std::system("test \"$BQ_DISABLE_EM\" = 1"), 0);
    }
};

TEST_F(ModuleLoadTest, TwentyTimesLeavesOnlyTheVariable) {
    setenv("BQ_DISABLE_EM", "another value", 1);
    const int64_t before = liveAllocations;
    for (int time = 0; time < 20; ++time) {
        LoadAndUnload();
    }
    EXPECT_EQ(liveAllocations, before);
    ExpectVariable();
}

TEST_F(ModuleLoadTest, DoesNotNeedItsLock) {
    const int64_t before = liveAllocations;
    int failing = 0;
    do {
        unsetenv("BQ_DISABLE_EM");
        smallAllocations = 0;
        allocationToFail = failing;
        LoadAndUnload();
        allocationToFail = -1;
        EXPECT_EQ(liveAllocations, before) << failing;
        ExpectVariable();
    } while (smallAllocations > failing++);
    EXPECT_EQ(smallAllocations, 4) << "the record, the mutex and the two gates, when none of them fails";
}

} // namespace
} // namespace updkrx
