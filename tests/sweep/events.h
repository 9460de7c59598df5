// What happens in a run and can be disturbed: calls of the Notes API, and the module's own allocations and file
// operations. Each kind is counted from 1 in a process that runs the upgrade once.
#pragma once

#include <array>
#include <cstddef>
#include <functional>

#include "notes_api.h"

namespace sweep {

enum Kind : size_t { call, allocation, file };
using Counts = std::array<size_t, 3>; // by kind

enum class Runner {
    module,  // MainEntryPoint in a session
    krxpatch // krxpatch run
};

enum class Effect {
    fails,
    operationFails,  // and all calls of the same operation from then on
    everythingFails, // and all events of the kind from then on; of file operations those that write
    doesHalf,
    diesBefore, // what was written to databases that are open is lost with the process
    diesAfter,  // it is not, as when a server lives on
};

struct Disturbance {
    Kind kind = call;
    size_t n = 0; // 0: nothing is disturbed
    Effect effect = Effect::fails;
    STATUS status = NOERROR; // that a call fails with
    size_t next = 0;         // after a death: the next run dies before this event of the kind; 0: there is none

    [[nodiscard]] bool IsDeath() const { return effect == Effect::diesBefore || effect == Effect::diesAfter; }
};

/** What a process that dies by a disturbance exits with. */
constexpr int deathCode = 77;

/** Told of every event before it happens; what it does itself is neither counted nor disturbed. */
using Listener = std::function<void(Kind kind, const char* operation)>;

/** Counts from here on. In a run of krxpatch, which loads the module, what counts is calls and the file operations that
 *  put files into place. */
void StartEvents(Runner runner, Listener listener);
void StopEvents();
[[nodiscard]] const Counts& SeenEvents();

void Arm(const Disturbance& disturbance);
/** Whether the armed disturbance has happened. */
[[nodiscard]] bool HasHappened();

/** Blocks that were allocated while events were counted and are not freed. */
[[nodiscard]] size_t LiveAllocations();

} // namespace sweep
