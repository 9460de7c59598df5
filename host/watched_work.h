// Work that lasts, and that somebody may want to end.
#pragma once

#include <chrono>
#include <future>

namespace krxpatch {

/** Does the work in a thread of its own, and calls `look` twenty times a second and once at the end. `look` may end the
 *  process; it does not throw. What the work throws is thrown here. */
template<class Work, class Look>
void DoWatched(const Work& work, const Look& look) {
    constexpr auto interval = std::chrono::milliseconds(50);
    std::future<void> result = std::async(std::launch::async, work);
    while (result.wait_for(interval) != std::future_status::ready) {
        look();
    }
    look();
    result.get();
}

} // namespace krxpatch
