// How much of a time is the module's own, and how much the platform's.
//
// A program that links this has each of the module's calls of the Notes API led through a function here, and a search's
// step through another one. So every moment is booked to one side or the other; what the clock takes is booked to the
// module for the most part.
#pragma once

#include <chrono>

namespace platform_time {

struct Spent {
    std::chrono::steady_clock::duration own;
    std::chrono::steady_clock::duration platform;
};

/** From here on, in the module. */
void Start();
/** Since the start. */
Spent TimeSpent();

} // namespace platform_time
