#include "common/rw_lock.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <limits>
#include <new>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "module/lock_failures.h"

// What a lock consists of is allocated in this way only, but for what are kernel objects.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    if (updkrx::test::FailsNow()) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace updkrx {
namespace {

using enum RwLockResult;

constexpr int32_t many = std::numeric_limits<int32_t>::max();

struct Counters {
    int32_t activeReaders = 0;
    int32_t waitingReaders = 0;
    int32_t writerActive = 0;
    int32_t waitingWriters = 0;
    int32_t readersSinceWriter = 0;

    bool operator==(const Counters&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Counters& counters) {
    return out << "{readers " << counters.activeReaders << " (" << counters.waitingReaders << " wait), writers "
               << counters.writerActive << " (" << counters.waitingWriters << " wait), since writer "
               << counters.readersSinceWriter << "}";
}

Counters CountersOf(const RwLock& lock) {
    const RwLockRecord& record = *lock.record;
    os::Lock(*record.mutex);
    const Counters counters = {record.activeReaders, record.waitingReaders, record.writerActive, record.waitingWriters,
                               record.readersSinceWriter};
    os::Unlock(*record.mutex);
    return counters;
}

void SetCounters(RwLock& lock, const Counters& counters) {
    RwLockRecord& record = *lock.record;
    record.activeReaders = counters.activeReaders;
    record.waitingReaders = counters.waitingReaders;
    record.writerActive = counters.writerActive;
    record.waitingWriters = counters.waitingWriters;
    record.readersSinceWriter = counters.readersSinceWriter;
}

void Await(const std::function<bool()>& condition) {
    while (!condition()) {
        std::this_thread::yield();
    }
}

enum class Use { shared, exclusive };

/** A thread that asks for the lock, holds it until it is told to end, and releases it. */
class Holder {
public:
    Holder(RwLock& lock, Use use) : thread_([this, &lock, use] { Run(lock, use); }) {}
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { End(); }

    [[nodiscard]] bool Holds() const { return holds_; }

    void End() {
        if (thread_.joinable()) {
            end_.set_value();
            thread_.join();
        }
    }

private:
    void Run(RwLock& lock, Use use) {
        EXPECT_EQ(use == Use::shared ? AcquireShared(lock) : AcquireExclusive(lock), success);
        holds_ = true;
        end_.get_future().wait();
        EXPECT_EQ(use == Use::shared ? ReleaseShared(lock) : ReleaseExclusive(lock), success);
    }

    std::atomic<bool> holds_ = false;
    std::promise<void> end_;
    std::thread thread_;
};

class RwLockTest : public testing::Test {
protected:
    /** Starts a thread that asks for the lock, and returns when it waits for it. */
    Holder& Waiting(Use use) {
        const auto waiting = [this] {
            const Counters counters = CountersOf(lock_);
            return counters.waitingReaders + counters.waitingWriters;
        };
        const int32_t before = waiting();
        Holder& holder = holders_.emplace_back(lock_, use);
        Await([&] { return waiting() == before + 1; });
        EXPECT_FALSE(holder.Holds());
        return holder;
    }

    RwLock lock_;

private:
    std::deque<Holder> holders_;
};

TEST(Mutex, LetsOneThreadInAtATimeAndWakesTheNext) {
    constexpr int threadCount = 4;
    constexpr int turns = 512;
    const os::OwnedMutex mutex = os::MakeMutex(nullptr);
    for (int round = 0; round < 20; ++round) { // at the end of each, nobody is left to wake a thread by chance
        int count = 0;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&] {
                for (int turn = 0; turn < turns; ++turn) {
                    os::Lock(*mutex);
                    const int seen = count;
                    if (turn % 8 == 7) { // also in the last turn, for another thread to find the mutex held
                        std::this_thread::yield();
                    }
                    count = seen + 1;
                    os::Unlock(*mutex);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(count, threadCount * turns);
    }
}

TEST_F(RwLockTest, CountsEveryOperationThatDoesNotWait) {
    using Operation = RwLockResult (*)(RwLock&) noexcept;
    constexpr Operation tryShared = TryAcquireShared, tryExclusive = TryAcquireExclusive, shared = AcquireShared,
                        exclusive = AcquireExclusive, endShared = ReleaseShared, endExclusive = ReleaseExclusive;
    const struct {
        const char* what;
        Counters before;
        std::vector<Operation> operations;
        RwLockResult result;
        Counters after;
    } cases[] = {
        {"a first reader", {0, 0, 0, 0, 0}, {tryShared, shared}, success, {1, 0, 0, 0, 1}},
        {"a reader more", {2, 0, 0, 0, 5}, {tryShared, shared}, success, {3, 0, 0, 0, 6}},
        {"no limit without a waiting writer", {1, 0, 0, 0, 10}, {tryShared, shared}, success, {2, 0, 0, 0, 11}},
        {"readers without end", {1, 0, 0, 0, many}, {tryShared, shared}, success, {2, 0, 0, 0, many}},
        {"the tenth past a waiting writer", {1, 0, 0, 1, 9}, {tryShared, shared}, success, {2, 0, 0, 1, 10}},
        {"the eleventh", {1, 0, 0, 1, 10}, {tryShared}, unavailable, {1, 0, 0, 1, 10}},
        {"a reader past waiting readers", {1, 5, 0, 0, 10}, {tryShared, shared}, success, {2, 5, 0, 0, 11}},
        {"a reader beside a writer", {0, 0, 1, 0, 0}, {tryShared}, unavailable, {0, 0, 1, 0, 0}},
        {"a writer", {0, 0, 0, 0, 7}, {tryExclusive, exclusive}, success, {0, 0, 1, 0, 0}},
        {"a writer beside a reader", {1, 0, 0, 0, 1}, {tryExclusive}, unavailable, {1, 0, 0, 0, 1}},
        {"a second writer", {0, 0, 1, 0, 0}, {tryExclusive}, unavailable, {0, 0, 1, 0, 0}},
        {"the last reader", {1, 0, 0, 0, 4}, {endShared}, success, {0, 0, 0, 0, 4}},
        {"not the last reader", {2, 3, 0, 1, 4}, {endShared}, success, {1, 3, 0, 1, 4}},
        {"the last reader prefers a writer", {1, 3, 0, 2, 10}, {endShared}, success, {0, 3, 1, 1, 0}},
        {"the last reader lets the only writer in", {1, 1, 0, 1, 4}, {endShared}, success, {0, 1, 1, 0, 0}},
        {"the last reader lets readers in", {1, 15, 0, 0, 10}, {endShared}, success, {10, 5, 0, 0, 10}},
        {"the last reader lets the only other in", {1, 1, 0, 0, 10}, {endShared}, success, {1, 0, 0, 0, 1}},
        {"a last writer", {0, 0, 1, 0, 0}, {endExclusive}, success, {0, 0, 0, 0, 0}},
        {"a writer prefers even one reader", {0, 1, 1, 2, 0}, {endExclusive}, success, {1, 0, 0, 2, 1}},
        {"a writer lets ten readers in", {0, 15, 1, 2, 0}, {endExclusive}, success, {10, 5, 0, 2, 10}},
        {"a writer hands over to the only writer", {0, 0, 1, 1, 0}, {endExclusive}, success, {0, 0, 1, 0, 0}},
        {"nothing to release", {0, 0, 0, 0, 3}, {endShared, endExclusive}, notHeld, {0, 0, 0, 0, 3}},
        {"no reader to release", {0, 1, 1, 1, 0}, {endShared}, notHeld, {0, 1, 1, 1, 0}},
        {"no writer to release", {1, 1, 0, 1, 2}, {endExclusive}, notHeld, {1, 1, 0, 1, 2}},
        {"readers and a writer at once: refused", {1, 0, 1, 0, 0}, {endShared, endExclusive}, notHeld, {1, 0, 1, 0, 0}},
    };
    for (const auto& [what, before, operations, result, after] : cases) {
        for (const Operation operation : operations) {
            SetCounters(lock_, before);
            EXPECT_EQ(operation(lock_), result) << what;
            EXPECT_EQ(CountersOf(lock_), after) << what;
        }
    }
}

TEST_F(RwLockTest, LetsTenReadersPastAWaitingWriter) {
    ASSERT_EQ(AcquireShared(lock_), success);
    Holder& writer = Waiting(Use::exclusive);
    for (int reader = 2; reader <= 10; ++reader) {
        EXPECT_EQ(AcquireShared(lock_), success) << reader;
    }
    Holder& eleventh = Waiting(Use::shared);
    EXPECT_EQ(CountersOf(lock_), (Counters{10, 1, 0, 1, 10}));
    for (int reader = 1; reader <= 10; ++reader) {
        EXPECT_FALSE(writer.Holds());
        EXPECT_EQ(ReleaseShared(lock_), success) << "on another thread than its own would do";
    }
    Await([&] { return writer.Holds(); });
    EXPECT_EQ(CountersOf(lock_), (Counters{0, 1, 1, 0, 0}));
    EXPECT_FALSE(eleventh.Holds());
    writer.End();
    Await([&] { return eleventh.Holds(); });
    EXPECT_EQ(CountersOf(lock_), (Counters{1, 0, 0, 0, 1}));
}

TEST_F(RwLockTest, LetsFortyWaitingReadersInTenAtATime) {
    ASSERT_EQ(AcquireExclusive(lock_), success);
    std::vector<Holder*> waiting;
    while (waiting.size() < 40) { // more than a gate can tell from each other as it wakes them
        waiting.push_back(&Waiting(Use::shared));
    }
    EXPECT_EQ(ReleaseExclusive(lock_), success);
    for (int32_t left = 30; left >= 0; left -= 10) {
        EXPECT_EQ(CountersOf(lock_), (Counters{10, left, 0, 0, 10}));
        os::Lock(*lock_.record->mutex); // who has been let in does not need it
        Await([&] { return std::ranges::count_if(waiting, &Holder::Holds) >= 10; });
        os::Unlock(*lock_.record->mutex);
        const auto holding = std::partition(waiting.begin(), waiting.end(), std::not_fn(std::mem_fn(&Holder::Holds)));
        EXPECT_EQ(waiting.end() - holding, 10);
        for (auto reader = holding; reader != waiting.end(); ++reader) {
            EXPECT_EQ(CountersOf(lock_).waitingReaders, left);
            (*reader)->End();
        }
        waiting.erase(holding, waiting.end());
    }
}

/** Who gets the lock may end it while the one that handed it over has not returned yet. */
TEST(RwLockDestruction, MayFollowAHandOverAtOnce) {
    for (int round = 0; round < 1000; ++round) {
        auto lock = std::make_unique<RwLock>();
        RwLock& handedOver = *lock;
        ASSERT_EQ(AcquireExclusive(handedOver), success);
        std::thread next([&] {
            EXPECT_EQ(AcquireExclusive(handedOver), success);
            EXPECT_EQ(ReleaseExclusive(handedOver), success);
            lock.reset();
        });
        Await([&] { return CountersOf(handedOver).waitingWriters == 1; });
        EXPECT_EQ(ReleaseExclusive(handedOver), success);
        next.join();
    }
}

TEST_F(RwLockTest, GuardsHoldForTheirScope) {
    {
        const SharedLockGuard one(lock_);
        const SharedLockGuard two(lock_);
        EXPECT_EQ(CountersOf(lock_), (Counters{2, 0, 0, 0, 2}));
    }
    EXPECT_EQ(CountersOf(lock_).activeReaders, 0);
    {
        const ExclusiveLockGuard only(lock_);
        EXPECT_EQ(CountersOf(lock_), (Counters{0, 0, 1, 0, 0}));
    }
    EXPECT_EQ(CountersOf(lock_), Counters{});
}

std::array<RwLockResult, 6> EveryOperation(RwLock& lock) {
    return {AcquireShared(lock),       AcquireExclusive(lock), TryAcquireShared(lock),
            TryAcquireExclusive(lock), ReleaseShared(lock),    ReleaseExclusive(lock)};
}

std::array<RwLockResult, 6> SixTimes(RwLockResult result) {
    std::array<RwLockResult, 6> results;
    results.fill(result);
    return results;
}

TEST_F(RwLockTest, RefusesWhatIsNoRecord) {
    ASSERT_EQ(AcquireExclusive(lock_), success); // so that nothing but the refusal keeps an operation from waiting
    const Counters before = CountersOf(lock_);

    lock_.valid = false;
    EXPECT_EQ(EveryOperation(lock_), SixTimes(notCreated));
    { const SharedLockGuard reading(lock_); }
    { const ExclusiveLockGuard writing(lock_); }
    lock_.valid = true;
    EXPECT_EQ(CountersOf(lock_), before);

    RwLockRecord* record = lock_.record;
    lock_.record = nullptr;
    EXPECT_EQ(EveryOperation(lock_), SixTimes(badRecord));
    EXPECT_EQ(DestroyRwLock(&lock_.record), notCreated);

    lock_.record = record;
    lock_.record->magic ^= 1;
    EXPECT_EQ(EveryOperation(lock_), SixTimes(badRecord));
    EXPECT_EQ(DestroyRwLock(&lock_.record), badRecord);
    EXPECT_EQ(lock_.record, record);
    lock_.record->magic ^= 1;
    EXPECT_EQ(CountersOf(lock_), before);

    EXPECT_EQ(CreateRwLock(nullptr, nullptr), badRecord);
    EXPECT_EQ(DestroyRwLock(nullptr), badRecord);
    EXPECT_EQ(DestroyRwLock(&lock_.record), success);
    EXPECT_EQ(lock_.record, nullptr);
    EXPECT_EQ(DestroyRwLock(&lock_.record), notCreated);
}

TEST_F(RwLockTest, LeavesNothingBehindWhenItCannotBeCreated) {
    // The record, the mutex, the reader gate, the writer gate.
    const RwLockResult results[] = {noMemory, unavailable, unavailable, unavailable, success};
    for (int failing = 1; failing <= 5; ++failing) {
        SCOPED_TRACE(failing);
        RwLockRecord* record = lock_.record; // must not stay
        test::partToFail = failing;
        EXPECT_EQ(CreateRwLock(&record, nullptr), results[failing - 1]);
        EXPECT_EQ(record != nullptr, failing == 5);
        EXPECT_EQ(DestroyRwLock(&record), failing == 5 ? success : notCreated);

        test::partToFail = failing;
        RwLock other;
        test::partToFail = 0;
        EXPECT_EQ(other.valid, failing == 5);
        if (!other.valid) {
            EXPECT_EQ(EveryOperation(other), SixTimes(notCreated));
        }
    }
}

TEST_F(RwLockTest, NeverLetsAWriterInWithAnyoneNorLosesAHandOver) {
    constexpr int threadCount = 8;
    constexpr auto duration = std::chrono::seconds(3);
    std::atomic<int> readersInside = 0;
    std::atomic<int> writersInside = 0;
    std::atomic<int> intrusions = 0;
    int64_t written = 0; // by writers only; a thread sanitizer watches it
    std::array<int64_t, threadCount> writes = {};

    // Relaxed, so that they order nothing: what a writer wrote must reach the next holder by the lock alone.
    constexpr auto relaxed = std::memory_order_relaxed;
    const auto intrude = [&](bool intruded) { intrusions.fetch_add(intruded, relaxed); };
    const auto read = [&] {
        readersInside.fetch_add(1, relaxed);
        intrude(writersInside.load(relaxed) != 0);
        volatile int64_t seen = written;
        (void)seen;
        std::this_thread::yield();
        intrude(seen != written);
        readersInside.fetch_sub(1, relaxed);
        EXPECT_EQ(ReleaseShared(lock_), success);
    };
    const auto write = [&](int64_t& count) {
        intrude(writersInside.fetch_add(1, relaxed) != 0 || readersInside.load(relaxed) != 0);
        ++written;
        ++count;
        if (written % 4 == 0) {
            std::this_thread::yield();
        }
        writersInside.fetch_sub(1, relaxed);
        EXPECT_EQ(ReleaseExclusive(lock_), success);
    };

    const auto end = std::chrono::steady_clock::now() + duration;
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            std::minstd_rand random(thread + 1);
            while (std::chrono::steady_clock::now() < end) {
                switch (random() / 16 % 8) {
                case 0:
                    EXPECT_EQ(AcquireExclusive(lock_), success);
                    write(writes[thread]);
                    break;
                case 1:
                    if (TryAcquireExclusive(lock_) == success) {
                        write(writes[thread]);
                    }
                    break;
                case 2:
                    if (TryAcquireShared(lock_) == success) {
                        read();
                    }
                    break;
                default:
                    EXPECT_EQ(AcquireShared(lock_), success);
                    read();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(intrusions, 0);
    EXPECT_EQ(written, std::accumulate(writes.begin(), writes.end(), int64_t{0}));
    EXPECT_GT(written, 0);
    EXPECT_EQ(AcquireExclusive(lock_), success); // from here on no reader has come in since a writer
    EXPECT_EQ(ReleaseExclusive(lock_), success);
    EXPECT_EQ(CountersOf(lock_), Counters{});
}

} // namespace
} // namespace updkrx
