#include "common/rw_lock.h"

#include <algorithm>
#include <limits>
#include <new>

namespace updkrx {
namespace {

/** How many readers come in at once after a writer, and how many in all while another writer waits. */
constexpr int32_t readerLimit = 10;
constexpr int32_t gateMaximum = 9999;

class HeldMutex {
public:
    explicit HeldMutex(const RwLockRecord& record) noexcept : mutex_(*record.mutex) { os::Lock(mutex_); }
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;
    ~HeldMutex() { os::Unlock(mutex_); }

private:
    os::Mutex& mutex_;
};

// ---- Changes of the counters. The caller holds the mutex.

bool LetReaderIn(RwLockRecord& record) noexcept {
    if (record.writerActive != 0 || (record.waitingWriters > 0 && record.readersSinceWriter >= readerLimit)) {
        return false;
    }
    ++record.activeReaders;
    // Without writers the count has no bound of its own.
    record.readersSinceWriter = std::min(record.readersSinceWriter, std::numeric_limits<int32_t>::max() - 1) + 1;
    return true;
}

bool LetWriterIn(RwLockRecord& record) noexcept {
    if (record.activeReaders > 0 || record.writerActive != 0) {
        return false;
    }
    record.writerActive = 1;
    record.readersSinceWriter = 0;
    return true;
}

/** A gate to open for threads that have been let in and still wait at it. */
struct Opening {
    os::Semaphore* gate = nullptr;
    int32_t count = 0;
};

Opening LetWaitingReadersIn(RwLockRecord& record) noexcept {
    const int32_t count = std::min(record.waitingReaders, readerLimit);
    record.activeReaders = count;
    record.waitingReaders -= count;
    record.readersSinceWriter = count;
    return {record.readerGate.get(), count};
}

Opening LetWaitingWriterIn(RwLockRecord& record) noexcept {
    record.writerActive = 1;
    --record.waitingWriters;
    record.readersSinceWriter = 0;
    return {record.writerGate.get(), 1};
}

bool EndShared(RwLockRecord& record, Opening& opening) noexcept {
    if (record.activeReaders == 0 || record.writerActive != 0) {
        return false;
    }
    --record.activeReaders;
    if (record.activeReaders == 0) {
        if (record.waitingWriters > 0) {
            opening = LetWaitingWriterIn(record);
        } else if (record.waitingReaders > 0) {
            opening = LetWaitingReadersIn(record);
        }
    }
    return true;
}

bool EndExclusive(RwLockRecord& record, Opening& opening) noexcept {
    if (record.writerActive == 0 || record.activeReaders > 0) {
        return false;
    }
    record.writerActive = 0;
    if (record.waitingReaders > 0) {
        opening = LetWaitingReadersIn(record);
    } else if (record.waitingWriters > 0) {
        opening = LetWaitingWriterIn(record);
    }
    return true;
}

// ---- The operations, for either use, on a record that is known to be complete

using LetIn = bool (*)(RwLockRecord&) noexcept;
using End = bool (*)(RwLockRecord&, Opening&) noexcept;

template<LetIn letIn>
RwLockResult TryAcquire(RwLockRecord& record) noexcept {
    const HeldMutex held(record);
    return letIn(record) ? RwLockResult::success : RwLockResult::unavailable;
}

template<LetIn letIn, int32_t RwLockRecord::*waiting, os::OwnedSemaphore RwLockRecord::*gate>
RwLockResult Acquire(RwLockRecord& record) noexcept {
    {
        const HeldMutex held(record);
        if (letIn(record)) {
            return RwLockResult::success;
        }
        ++(record.*waiting);
    }
    os::Wait(*(record.*gate));
    return RwLockResult::success;
}

template<End end>
RwLockResult Release(RwLockRecord& record) noexcept {
    Opening opening;
    {
        const HeldMutex held(record);
        if (!end(record, opening)) {
            return RwLockResult::notHeld;
        }
    }
    // Opened without the mutex, so that those who wake never find it held by the one that woke them. The record stays:
    // who has been let in holds the lock and cannot be gone before the gate is open.
    if (opening.gate != nullptr) {
        os::Release(*opening.gate, opening.count);
    }
    return RwLockResult::success;
}

bool IsComplete(const RwLockRecord* record) noexcept {
    return record != nullptr && record->magic == rwLockMagic;
}

template<RwLockResult (*step)(RwLockRecord&) noexcept>
RwLockResult OnRecord(const RwLock& lock) noexcept {
    if (!lock.valid) {
        return RwLockResult::notCreated;
    }
    return IsComplete(lock.record) ? step(*lock.record) : RwLockResult::badRecord;
}

} // namespace

RwLockResult CreateRwLock(RwLockRecord** place, const os::SecurityAttributes* security) noexcept {
    if (place == nullptr) {
        return RwLockResult::badRecord;
    }
    *place = nullptr;
    std::unique_ptr<RwLockRecord> record(new (std::nothrow) RwLockRecord);
    if (record == nullptr) {
        return RwLockResult::noMemory;
    }
    record->mutex = os::MakeMutex(security);
    record->readerGate = os::MakeSemaphore(gateMaximum, security);
    record->writerGate = os::MakeSemaphore(gateMaximum, security);
    if (record->mutex == nullptr || record->readerGate == nullptr || record->writerGate == nullptr) {
        return RwLockResult::unavailable;
    }
    record->magic = rwLockMagic;
    *place = record.release();
    return RwLockResult::success;
}

RwLockResult DestroyRwLock(RwLockRecord** place) noexcept {
    if (place == nullptr) {
        return RwLockResult::badRecord;
    }
    if (*place == nullptr) {
        return RwLockResult::notCreated;
    }
    if (!IsComplete(*place)) {
        return RwLockResult::badRecord;
    }
    { const HeldMutex lastOperationIsOver(**place); }
    delete *place;
    *place = nullptr;
    return RwLockResult::success;
}

RwLock::RwLock(const os::SecurityAttributes* security) noexcept {
    valid = CreateRwLock(&record, security) == RwLockResult::success;
}

RwLock::~RwLock() {
    if (valid) {
        (void)DestroyRwLock(&record); // nobody is left to tell
    }
}

RwLockResult AcquireShared(RwLock& lock) noexcept {
    return OnRecord<Acquire<LetReaderIn, &RwLockRecord::waitingReaders, &RwLockRecord::readerGate>>(lock);
}

RwLockResult AcquireExclusive(RwLock& lock) noexcept {
    return OnRecord<Acquire<LetWriterIn, &RwLockRecord::waitingWriters, &RwLockRecord::writerGate>>(lock);
}

RwLockResult TryAcquireShared(RwLock& lock) noexcept {
    return OnRecord<TryAcquire<LetReaderIn>>(lock);
}

RwLockResult TryAcquireExclusive(RwLock& lock) noexcept {
    return OnRecord<TryAcquire<LetWriterIn>>(lock);
}

RwLockResult ReleaseShared(RwLock& lock) noexcept {
    return OnRecord<Release<EndShared>>(lock);
}

RwLockResult ReleaseExclusive(RwLock& lock) noexcept {
    return OnRecord<Release<EndExclusive>>(lock);
}

} // namespace updkrx
