// Calls of the Notes API: how often each operation was called, and which calls are made to fail.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "notes_api.h"

namespace embedded {

enum class Operation : unsigned {
#define NOTES_OPERATION(name) name,
#include "engine/operations.inc"
#undef NOTES_OPERATION
};

constexpr std::array operationNames = {
#define NOTES_OPERATION(name) #name,
#include "engine/operations.inc"
#undef NOTES_OPERATION
};

std::optional<Operation> FindOperation(std::string_view name) noexcept;

class CallLedger {
public:
    /** Notes a call; the status that it is to fail with, if it is to fail. A call that cannot fail uses a fault's
     *  turn up without firing it. */
    std::optional<STATUS> Record(Operation operation, bool canFail);

    /** See EmbFaultArm; no operation means any. */
    void Arm(std::optional<Operation> operation, DWORD n, STATUS status, bool forever);
    void ClearFaults();
    [[nodiscard]] DWORD Fired() const noexcept { return fired_; }

    [[nodiscard]] DWORD Count(std::optional<Operation> operation) const noexcept;
    void ResetCounts() noexcept { counts_.fill(0); }

private:
    struct Fault {
        std::optional<Operation> operation;
        DWORD remaining; // calls until it fires; 0: has fired
        STATUS status;
        bool forever;
    };

    std::array<DWORD, operationNames.size()> counts_{};
    std::vector<Fault> faults_;
    DWORD fired_ = 0;
};

} // namespace embedded
