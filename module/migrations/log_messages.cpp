#include "migrations/log_messages.h"

#include "foundation/debug_log.h"

namespace updkrx {

void LogPair(const std::map<std::string, std::string>::value_type& pair) noexcept {
    DebugLog(level::detail, "\tgMap[\"%s\"]=\"%s\";", pair.first.c_str(), pair.second.c_str());
}

} // namespace updkrx
