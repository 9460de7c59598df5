// Lets the making of one of a lock's parts fail.
#pragma once

#include <atomic>

namespace updkrx::test {

/** Counted down as the record, the mutex, the reader gate and the writer gate are asked for; who takes it from 1 to 0
 *  fails, and 0 lets all succeed. */
inline std::atomic<int> partToFail = 0;

inline bool FailsNow() noexcept {
    return partToFail > 0 && --partToFail == 0;
}

} // namespace updkrx::test
