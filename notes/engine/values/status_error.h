// How the engine reports a failure: one exception that carries the status the caller of the Notes API will see.
#pragma once

#include <stdexcept>
#include <string>

#include "embedded_notes.h"

namespace embedded {

class StatusError : public std::runtime_error {
public:
    /** `detail` (UTF-8) is for a person: what was attempted, on which file. */
    explicit StatusError(STATUS status, const std::string& detail = {}) : std::runtime_error(detail), status_(status) {}

    [[nodiscard]] STATUS Status() const noexcept { return status_; }

private:
    STATUS status_;
};

} // namespace embedded
