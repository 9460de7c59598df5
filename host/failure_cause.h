// Why a run fell short, as the messages of the module's log tell it.
#pragma once

#include <string>
#include <vector>

namespace krxpatch {

/** The first message that ended the run; else the first one of a failure that names one of the databases; else the
 *  first one of any failure. Empty when no message tells of one. */
[[nodiscard]] std::string FindCause(const std::vector<std::string>& messages,
                                    const std::vector<std::string>& databases);

} // namespace krxpatch
