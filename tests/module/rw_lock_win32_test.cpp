// The lock's kernel objects: who may use them, and what becomes of a lock that does not get them all.
#include "common/rw_lock.h"

#include <array>

#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>

#include "module/lock_failures.h"

namespace {

template<auto Create, class... Arguments>
HANDLE WINAPI CreateUnlessItFails(Arguments... arguments) {
    if (updkrx::test::FailsNow()) {
        return nullptr;
    }
    return Create(arguments...);
}

HANDLE WINAPI RealCreateMutex(SECURITY_ATTRIBUTES* security, BOOL owned, const wchar_t* /*name*/) {
    return CreateMutexExW(security, nullptr, owned != FALSE ? CREATE_MUTEX_INITIAL_OWNER : 0, MUTEX_ALL_ACCESS);
}

HANDLE WINAPI RealCreateSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG maximum, const wchar_t* /*name*/) {
    return CreateSemaphoreExW(security, count, maximum, nullptr, 0, SEMAPHORE_ALL_ACCESS);
}

} // namespace

// Where this program would find the system's functions.
extern "C" {
decltype(&CreateMutexW) __imp_CreateMutexW = CreateUnlessItFails<RealCreateMutex>;
decltype(&CreateSemaphoreW) __imp_CreateSemaphoreW = CreateUnlessItFails<RealCreateSemaphore>;
}

namespace updkrx {
namespace {

std::array<void*, 3> HandlesOf(const RwLock& lock) {
    return {lock.record->mutex.get(), lock.record->readerGate.get(), lock.record->writerGate.get()};
}

TEST(RwLockSecurity, LetsAnyoneInAndStartedProcessesInherit) {
    const RwLock lock;
    ASSERT_TRUE(lock.valid);
    for (void* handle :
         {static_cast<void*>(lock.record->mutex.get()), static_cast<void*>(lock.record->readerGate.get()),
          static_cast<void*>(lock.record->writerGate.get())}) {
        ACL* accessList = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_EQ(GetSecurityInfo(handle, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &accessList,
                                  nullptr, &descriptor),
                  DWORD{ERROR_SUCCESS});
        BOOL present = FALSE;
        BOOL defaulted = TRUE;
        EXPECT_TRUE(GetSecurityDescriptorDacl(descriptor, &present, &accessList, &defaulted));
        EXPECT_TRUE(present);
        EXPECT_EQ(accessList, nullptr);
        LocalFree(descriptor);
        DWORD flags = 0;
        EXPECT_TRUE(GetHandleInformation(handle, &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, DWORD{HANDLE_FLAG_INHERIT});
    }
}

TEST(RwLockSecurity, TakesTheCallersAttributes) {
    SECURITY_ATTRIBUTES own = {sizeof own, nullptr, FALSE};
    const RwLock lock(reinterpret_cast<const os::SecurityAttributes*>(&own));
    ASSERT_TRUE(lock.valid);
    for (void* handle : HandlesOf(lock)) {
        DWORD flags = HANDLE_FLAG_INHERIT;
        EXPECT_TRUE(GetHandleInformation(handle, &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
    }
}

} // namespace
} // namespace updkrx
