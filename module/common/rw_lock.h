// A readers-writer lock for data that many threads read and few write.
//
// Readers share the lock, a writer holds it alone. A finishing writer lets the waiting readers in, ten at a time; the
// last finishing reader hands the lock to a waiting writer; and while a writer waits, no more than ten readers in all
// come in after the last writer before new ones queue behind it. So neither side starves.
//
// Any thread may call any operation, and a hold that one thread took another may release. A holder must not ask for
// the lock again, neither for the same use nor, holding it shared, for exclusive use.
#pragma once

#include <cstdint>

#include "os/os.h"

namespace updkrx {

enum class [[nodiscard]] RwLockResult : uint32_t{
    success = 0,
    notCreated = 1,  // the lock was never created, or there is no record to destroy
    unavailable = 2, // a try operation found the lock busy, or the system had no objects for a new lock
    badRecord = 3,   // no record or no place for one was given, or the record is not one of a lock
    noMemory = 4,
    notHeld = 6, // a release that does not match a hold
};

/** What a lock consists of. The mutex guards the counters; a thread that waits does so on a gate, without the mutex,
 *  and whoever lets it in has counted it as active before. */
struct RwLockRecord {
    os::OwnedMutex mutex;
    os::OwnedSemaphore readerGate;
    os::OwnedSemaphore writerGate;
    int32_t activeReaders = 0;
    int32_t waitingReaders = 0;
    int32_t writerActive = 0; // 1 while a writer holds the lock
    int32_t waitingWriters = 0;
    int32_t readersSinceWriter = 0; // readers let in since a writer last took the lock
    uint32_t magic = 0;             // rwLockMagic once the record is complete
};

inline constexpr uint32_t rwLockMagic = 0x19283746;

/** Puts a new record into `*place`, with the default security when `security` is null. On failure (unavailable,
 *  noMemory; badRecord without a place) nothing stays behind and `*place` is null. */
RwLockResult CreateRwLock(RwLockRecord** place, const os::SecurityAttributes* security) noexcept;

/** Releases the record in `*place`, which nobody may hold or wait for, and clears the place. notCreated when the place
 *  holds no record, badRecord without a place or when what it holds is not the record of a lock. */
RwLockResult DestroyRwLock(RwLockRecord** place) noexcept;

/** A lock, or, when it could not be created, an invalid one: every operation on that answers notCreated at once, and
 *  its users carry on without serialisation. */
struct RwLock {
    explicit RwLock(const os::SecurityAttributes* security = nullptr) noexcept;
    RwLock(const RwLock&) = delete;
    RwLock& operator=(const RwLock&) = delete;
    ~RwLock();

    bool valid = false;
    RwLockRecord* record = nullptr;
};

/** These wait, without a time limit, until they have the lock. */
RwLockResult AcquireShared(RwLock& lock) noexcept;
RwLockResult AcquireExclusive(RwLock& lock) noexcept;

/** Where the operations above would wait, these answer unavailable and change nothing. */
RwLockResult TryAcquireShared(RwLock& lock) noexcept;
RwLockResult TryAcquireExclusive(RwLock& lock) noexcept;

/** notHeld, with nothing changed, when nobody holds the lock for that use. */
RwLockResult ReleaseShared(RwLock& lock) noexcept;
RwLockResult ReleaseExclusive(RwLock& lock) noexcept;

/** Has the lock for the length of a scope; does nothing with an invalid lock. */
template<RwLockResult (*Acquire)(RwLock&) noexcept, RwLockResult (*Release)(RwLock&) noexcept>
class RwLockGuard {
public:
    explicit RwLockGuard(RwLock& lock) noexcept : lock_(lock) { (void)Acquire(lock_); } // an invalid lock serialises
    RwLockGuard(const RwLockGuard&) = delete;                                           // nothing, by design
    RwLockGuard& operator=(const RwLockGuard&) = delete;
    ~RwLockGuard() { (void)Release(lock_); }

private:
    RwLock& lock_;
};

using SharedLockGuard = RwLockGuard<AcquireShared, ReleaseShared>;
using ExclusiveLockGuard = RwLockGuard<AcquireExclusive, ReleaseExclusive>;

} // namespace updkrx
