// Disturbed runs, each in a process and on a server folder of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "oracle.h"

namespace sweep {

/** Calls `judge` for the numbers below `count` in processes of their own, `jobs` at a time, and reports what they
 *  found. Throws when one does not come to its end. */
void ForEachInProcesses(size_t count, size_t jobs, const std::function<void(size_t number, Outcome& outcome)>& judge,
                        const std::function<void(size_t number, const Outcome& outcome)>& report);

/** Disturbs one run after the other, `jobs` at a time, and reports on each. */
void Walk(const Reference& reference, const std::vector<Disturbance>& disturbances, size_t jobs,
          const std::filesystem::path& work,
          const std::function<void(const Disturbance& disturbance, const Outcome& outcome)>& report);

} // namespace sweep
