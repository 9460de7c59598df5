// What several migrations log in the same form.
#pragma once

#include <map>
#include <string>

#include "foundation/notes_text.h"
#include "notes_api.h"

namespace updkrx {

/** A status's error text, for the arguments of one log line. */
class StatusText {
public:
    explicit StatusText(STATUS status) noexcept { GetStatusText(status, text_, sizeof text_); }
    [[nodiscard]] const char* Text() const noexcept { return text_; }

private:
    char text_[255];
};

/** Logs how an operation on an open note went; true when it succeeded. */
bool Succeeded(const char* operation, STATUS status) noexcept;

/** Logs that a copy which is not wanted any more cannot be removed. */
void LogCopyThatStays(NOTEID copyId, STATUS status) noexcept;

/** One pair of a map. */
void LogPair(const std::map<std::string, std::string>::value_type& pair) noexcept;

} // namespace updkrx
