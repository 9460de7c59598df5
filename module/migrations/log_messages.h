// What several migrations log in the same form.
#pragma once

#include <map>
#include <string>

#include "foundation/notes_api.h"
#include "foundation/notes_text.h"

namespace updkrx {

/** A status's error text, for the arguments of one log line. */
class StatusText {
public:
    explicit StatusText(STATUS status) noexcept { GetStatusText(status, text_, sizeof text_); }
    [[nodiscard]] const char* Text() const noexcept { return text_; }

private:
    char text_[255];
};

/** One pair of a map. */
void LogPair(const std::map<std::string, std::string>::value_type& pair) noexcept;

} // namespace updkrx
