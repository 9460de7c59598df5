// The process's allocations, the module's among them, are counted and can be made to fail.
#include "module/module_load_fixture.h"

#include <atomic>
#include <new>

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

namespace updkrx::test {

int64_t LiveResources() {
    return liveAllocations;
}

namespace {

TEST_F(ModuleLoadTest, DoesNotNeedItsLock) {
    const int64_t before = LiveResources();
    int failing = 0;
    do {
        SetVariable("BQ_DISABLE_EM", nullptr);
        smallAllocations = 0;
        allocationToFail = failing;
        LoadAndUnload();
        allocationToFail = -1;
        EXPECT_EQ(LiveResources(), before) << failing;
        ExpectVariable();
    } while (smallAllocations > failing++);
    EXPECT_EQ(smallAllocations, 4) << "the record, the mutex and the two gates, when none of them fails";
}

} // namespace
} // namespace updkrx::test
