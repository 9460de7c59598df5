// The module is called from C: its entry and its search steps let no exception out.
#pragma once

#include <exception>

#include "foundation/debug_log.h"

namespace updkrx {

/** Returns what `body` returns. When it throws, one log line names `operation` and the cause, and the result is
 *  `otherwise`. */
template<class Result, class Body>
Result WithoutExceptions(const char* operation, Result otherwise, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception& exception) {
        DebugLog(level::progress, "Error: %s was broken off. (%s)", operation, exception.what());
    } catch (...) {
        DebugLog(level::progress, "Error: %s was broken off.", operation);
    }
    return otherwise;
}

} // namespace updkrx
