// What the module's readers-writer lock costs, beside std::shared_mutex and a POSIX lock that prefers writers. All
// locks are measured in turn, several times, in the same run.
//
// Uncontended: the best time of an acquisition with its release; "ratio" is the module's over std::shared_mutex's, to
// be at most 2.
//
// Contended: 8 threads that draw at random whether to read or to write. Of each lock the operations of all threads per
// second, and the longest time that a writer waited, each the median of the rounds. To be: the module's wait no longer
// than the writer-preferring lock's, its throughput at least a third of that. Two more locks tell what the module's
// rules cost. The first keeps the counters and the order of preference but hands nothing over: who waits is woken to
// compete for the lock like any other. The second, besides, lets no reader past a waiting writer.
//
// Hand-over: how long ReleaseExclusive takes with as many readers waiting, and until all of them are in.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <limits>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <pthread.h>

#include "common/rw_lock.h"

namespace {

using Clock = std::chrono::steady_clock;

void Require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

// ---- The locks

class Module {
public:
    void lock_shared() { (void)AcquireShared(lock_); } // waits until it succeeds
    void unlock_shared() { (void)ReleaseShared(lock_); }
    void lock() { (void)AcquireExclusive(lock_); }
    void unlock() { (void)ReleaseExclusive(lock_); }

private:
    updkrx::RwLock lock_;
};

class WriterPreferring {
public:
    WriterPreferring() {
        pthread_rwlockattr_t attributes;
        Require(pthread_rwlockattr_init(&attributes) == 0 &&
                    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP) == 0 &&
                    pthread_rwlock_init(&lock_, &attributes) == 0,
                "no lock that prefers writers");
        pthread_rwlockattr_destroy(&attributes);
    }
    WriterPreferring(const WriterPreferring&) = delete;
    WriterPreferring& operator=(const WriterPreferring&) = delete;
    ~WriterPreferring() { pthread_rwlock_destroy(&lock_); }

    void lock_shared() { pthread_rwlock_rdlock(&lock_); }
    void unlock_shared() { pthread_rwlock_unlock(&lock_); }
    void lock() { pthread_rwlock_wrlock(&lock_); }
    void unlock() { pthread_rwlock_unlock(&lock_); }

private:
    pthread_rwlock_t lock_;
};

template<int readersPastWriter>
class WithoutHandOver {
public:
    void lock_shared() {
        std::unique_lock held(mutex_);
        ++waitingReaders_;
        readers_.wait(held, [this] { return !writing_ && (waitingWriters_ == 0 || sinceWriter_ < readersPastWriter); });
        --waitingReaders_;
        ++reading_;
        ++sinceWriter_;
    }
    void unlock_shared() {
        const std::lock_guard held(mutex_);
        if (--reading_ == 0 && waitingWriters_ > 0) {
            writers_.notify_one();
        }
    }
    void lock() {
        std::unique_lock held(mutex_);
        ++waitingWriters_;
        writers_.wait(held, [this] { return !writing_ && reading_ == 0; });
        --waitingWriters_;
        writing_ = true;
        sinceWriter_ = 0;
    }
    void unlock() {
        const std::lock_guard held(mutex_);
        writing_ = false;
        if (waitingWriters_ > 0 && (readersPastWriter == 0 || waitingReaders_ == 0)) {
            writers_.notify_one();
        } else {
            readers_.notify_all();
        }
    }

private:
    std::mutex mutex_;
    std::condition_variable readers_;
    std::condition_variable writers_;
    int reading_ = 0;
    int waitingReaders_ = 0;
    int waitingWriters_ = 0;
    int sinceWriter_ = 0;
    bool writing_ = false;
};

// ---- Uncontended

template<class Operation>
double NanosecondsOf(const Operation& operation) {
    constexpr int repetitions = 200'000;
    const auto start = Clock::now();
    for (int i = 0; i < repetitions; ++i) {
        operation();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / repetitions;
}

template<class Lock>
void MeasureUncontended(Lock& lock, bool exclusive, double& best) {
    best = std::min(best, exclusive ? NanosecondsOf([&] {
                        lock.lock();
                        lock.unlock();
                    })
                                    : NanosecondsOf([&] {
                                          lock.lock_shared();
                                          lock.unlock_shared();
                                      }));
}

void Uncontended(benchmark::State& state, bool exclusive) {
    // A process that never had a second thread would not show what locks cost.
    std::thread([] {}).join();
    Module ours;
    std::shared_mutex standard;
    WriterPreferring writerPreferring;
    double bestOurs = std::numeric_limits<double>::max();
    double bestStandard = bestOurs;
    double bestWriterPreferring = bestOurs;
    for (auto _ : state) {
        MeasureUncontended(ours, exclusive, bestOurs);
        MeasureUncontended(standard, exclusive, bestStandard);
        MeasureUncontended(writerPreferring, exclusive, bestWriterPreferring);
    }
    state.counters["ours_ns"] = bestOurs;
    state.counters["shared_mutex_ns"] = bestStandard;
    state.counters["writer_preferring_ns"] = bestWriterPreferring;
    state.counters["ratio"] = bestOurs / bestStandard;
}

// ---- Contended

constexpr int threadCount = 8;
constexpr auto roundLength = std::chrono::milliseconds(300);

/** Passes the time of a section without touching memory; a step takes about a nanosecond. */
void Spend(int64_t steps) {
    uint32_t value = 1;
    for (int64_t i = 0; i < steps; ++i) {
        benchmark::DoNotOptimize(value = value * 1664525 + 1013904223);
    }
}

struct Round {
    double operationsPerSecond;
    double longestWaitMilliseconds; // of a writer
};

template<class Lock>
Round ContendedRound(unsigned writePercent, int64_t steps) {
    Lock lock;
    struct alignas(64) Tally {
        int64_t operations = 0;
        Clock::duration longestWait{};
    };
    std::array<Tally, threadCount> tallies;
    std::atomic<bool> over = false;
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            Tally& tally = tallies[thread];
            for (std::minstd_rand random(thread + 1); !over.load(std::memory_order_relaxed); ++tally.operations) {
                if (random() / 16 % 100 < writePercent) {
                    const auto asked = Clock::now();
                    lock.lock();
                    tally.longestWait = std::max(tally.longestWait, Clock::now() - asked);
                    Spend(steps);
                    lock.unlock();
                } else {
                    lock.lock_shared();
                    Spend(steps);
                    lock.unlock_shared();
                }
                Spend(steps);
            }
        });
    }
    std::this_thread::sleep_for(roundLength);
    over = true;
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    for (std::thread& thread : threads) {
        thread.join();
    }

    Round round = {};
    for (const Tally& tally : tallies) {
        round.operationsPerSecond += static_cast<double>(tally.operations) / seconds;
        round.longestWaitMilliseconds = std::max(round.longestWaitMilliseconds,
                                                 std::chrono::duration<double, std::milli>(tally.longestWait).count());
    }
    return round;
}

double MedianOf(const std::vector<Round>& rounds, double Round::*figure) {
    std::vector<double> figures;
    for (const Round& round : rounds) {
        figures.push_back(round.*figure);
    }
    std::ranges::sort(figures);
    return figures[figures.size() / 2];
}

struct Median {
    double operationsPerSecond;
    double longestWaitMilliseconds;
};

Median Report(benchmark::State& state, const std::string& name, const std::vector<Round>& rounds) {
    const Median median = {MedianOf(rounds, &Round::operationsPerSecond),
                           MedianOf(rounds, &Round::longestWaitMilliseconds)};
    state.counters[name + "_kops"] = median.operationsPerSecond / 1e3;
    state.counters[name + "_wait_ms"] = median.longestWaitMilliseconds;
    return median;
}

/** Arguments: the share of writes in per cent; the steps within a section, and as many between two. */
void Contended(benchmark::State& state) {
    const auto writePercent = static_cast<unsigned>(state.range(0));
    const int64_t steps = state.range(1);
    std::vector<Round> ours;
    std::vector<Round> writerPreferring;
    std::vector<Round> standard;
    std::vector<Round> withoutHandOver;
    std::vector<Round> writersFirst;
    for (auto _ : state) {
        ours.push_back(ContendedRound<Module>(writePercent, steps));
        writerPreferring.push_back(ContendedRound<WriterPreferring>(writePercent, steps));
        standard.push_back(ContendedRound<std::shared_mutex>(writePercent, steps));
        withoutHandOver.push_back(ContendedRound<WithoutHandOver<10>>(writePercent, steps));
        writersFirst.push_back(ContendedRound<WithoutHandOver<0>>(writePercent, steps));
    }
    const Median mine = Report(state, "ours", ours);
    const Median peer = Report(state, "writer_preferring", writerPreferring);
    Report(state, "shared_mutex", standard);
    Report(state, "without_hand_over", withoutHandOver);
    Report(state, "and_writers_first", writersFirst);
    state.counters["throughput_ratio"] = mine.operationsPerSecond / peer.operationsPerSecond;
    state.counters["wait_ratio"] = mine.longestWaitMilliseconds / peer.longestWaitMilliseconds;
}

// ---- Hand-over

int32_t WaitingReaders(const updkrx::RwLock& lock) {
    updkrx::os::Lock(*lock.record->mutex);
    const int32_t waiting = lock.record->waitingReaders;
    updkrx::os::Unlock(*lock.record->mutex);
    return waiting;
}

void HandOver(benchmark::State& state) {
    const auto readerCount = static_cast<int>(state.range(0));
    double bestRelease = std::numeric_limits<double>::max();
    double bestAllIn = bestRelease;
    for (auto _ : state) {
        updkrx::RwLock lock;
        (void)AcquireExclusive(lock); // nobody else is there yet
        std::atomic<int> in = 0;
        std::vector<std::thread> readers;
        while (static_cast<int>(readers.size()) < readerCount) {
            readers.emplace_back([&] {
                (void)AcquireShared(lock); // waits until it succeeds
                ++in;
                in.notify_one();
                (void)ReleaseShared(lock); // cannot fail
            });
        }
        while (WaitingReaders(lock) < readerCount) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // lets the last one reach its gate
        const auto start = Clock::now();
        (void)ReleaseExclusive(lock); // cannot fail
        const auto released = Clock::now();
        for (int seen = in; seen < readerCount; seen = in) {
            in.wait(seen);
        }
        const auto allIn = Clock::now();
        for (std::thread& reader : readers) {
            reader.join();
        }
        bestRelease = std::min(bestRelease, std::chrono::duration<double, std::micro>(released - start).count());
        bestAllIn = std::min(bestAllIn, std::chrono::duration<double, std::micro>(allIn - start).count());
    }
    state.counters["release_us"] = bestRelease;
    state.counters["all_in_us"] = bestAllIn;
}

BENCHMARK_CAPTURE(Uncontended, shared, false)->Iterations(50)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Uncontended, exclusive, true)->Iterations(50)->Unit(benchmark::kMillisecond);
BENCHMARK(Contended)
    ->ArgNames({"write_percent", "steps"})
    ->ArgsProduct({{1, 20}, {0, 200, 2000, 20000}})
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(HandOver)->ArgName("readers")->Arg(1)->Arg(5)->Arg(10)->Iterations(200);

} // namespace

BENCHMARK_MAIN();
