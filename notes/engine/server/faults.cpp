#include "engine/server/faults.h"

#include <algorithm>
#include <numeric>

namespace embedded {

std::optional<Operation> FindOperation(std::string_view name) noexcept {
    const auto found = std::find(operationNames.begin(), operationNames.end(), name);
    if (found == operationNames.end()) {
        return std::nullopt;
    }
    return static_cast<Operation>(found - operationNames.begin());
}

std::optional<STATUS> CallLedger::Record(Operation operation, bool canFail) {
    ++counts_[static_cast<size_t>(operation)];
    std::optional<STATUS> status;
    for (Fault& fault : faults_) {
        if (fault.operation && *fault.operation != operation) {
            continue;
        }
        const bool fires = fault.remaining == 1 || (fault.remaining == 0 && fault.forever);
        if (fault.remaining > 0) {
            --fault.remaining;
        }
        if (fires && canFail && !status) {
            status = fault.status;
        }
    }
    if (status) {
        ++fired_;
    }
    return status;
}

void CallLedger::Arm(std::optional<Operation> operation, DWORD n, STATUS status, bool forever) {
    faults_.push_back({operation, n, status, forever});
}

void CallLedger::ClearFaults() {
    faults_.clear();
    fired_ = 0;
}

DWORD CallLedger::Count(std::optional<Operation> operation) const noexcept {
    return operation ? counts_[static_cast<size_t>(*operation)]
                     : std::accumulate(counts_.begin(), counts_.end(), DWORD{0});
}

} // namespace embedded
