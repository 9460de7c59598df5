// What must not be lost to a failure that passes.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** Calls an operation once more when it fails. Returns the status of the last call. */
template<class Operation>
[[nodiscard]] STATUS WithSecondTry(Operation operation) noexcept {
    const STATUS status = operation();
    return status == NOERROR ? status : operation();
}

} // namespace updkrx
