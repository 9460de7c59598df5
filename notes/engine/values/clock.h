// The session's time: the system's clock, with pauses or without, or a virtual one that only pauses move.
#pragma once

#include <cstdint>
#include <optional>

#include "notes_api.h"

namespace embedded {

/** Times are hundredths of a second since 1970-01-01 00:00:00 UTC, the platform's own resolution. */
class Clock {
public:
    [[nodiscard]] int64_t Now() const noexcept;
    [[nodiscard]] TIMEDATE NowTimedate() const noexcept;
    /** A moment that this clock gives out once: now, or a little later. For identifiers. */
    TIMEDATE UniqueMoment() noexcept;

    void SetVirtual(int64_t now) noexcept { virtual_ = now; }
    void SetReal() noexcept {
        virtual_.reset();
        skipsPauses_ = false;
    }
    /** The system's clock, on which pauses take no time. */
    void SkipPauses() noexcept {
        SetReal();
        skipsPauses_ = true;
    }
    void Advance(int64_t hundredths) noexcept;

    /** Sleeps, moves the virtual clock, or only counts. */
    void Wait(uint32_t milliseconds);
    /** All milliseconds waited. */
    [[nodiscard]] int64_t Waited() const noexcept { return waited_; }

private:
    std::optional<int64_t> virtual_;
    bool skipsPauses_ = false;
    int64_t lastMoment_ = 0;
    int64_t waited_ = 0;
};

} // namespace embedded
