#include "engine/values/clock.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "engine/values/timedate.h"

namespace embedded {

int64_t Clock::Now() const noexcept {
    using namespace std::chrono;
    return virtual_ ? *virtual_ : duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count() / 10;
}

TIMEDATE Clock::NowTimedate() const noexcept {
    return TimedateFromHundredths(Now());
}

TIMEDATE Clock::UniqueMoment() noexcept {
    lastMoment_ = std::max(Now(), lastMoment_ + 1);
    return TimedateFromHundredths(lastMoment_);
}

void Clock::Advance(int64_t hundredths) noexcept {
    if (virtual_) {
        *virtual_ += hundredths;
    }
}

void Clock::Wait(uint32_t milliseconds) {
    waited_ += milliseconds;
    if (virtual_) {
        Advance((int64_t{milliseconds} + 9) / 10);
    } else if (!skipsPauses_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
}

} // namespace embedded
