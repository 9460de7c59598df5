#include "engine/values/clock.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "engine/values/timedate.h"

namespace embedded {

int64_t Clock::now() const noexcept {
    using namespace std::chrono;
    return virtual_ ? *virtual_ : duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count() / 10;
}

TIMEDATE Clock::nowTimedate() const noexcept {
    return timedateFromHundredths(now());
}

TIMEDATE Clock::uniqueMoment() noexcept {
    lastMoment_ = std::max(now(), lastMoment_ + 1);
    return timedateFromHundredths(lastMoment_);
}

void Clock::advance(int64_t hundredths) noexcept {
    if (virtual_)
        *virtual_ += hundredths;
}

void Clock::wait(uint32_t milliseconds) {
    waited_ += milliseconds;
    if (virtual_)
        advance((int64_t{milliseconds} + 9) / 10);
    else
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace embedded
