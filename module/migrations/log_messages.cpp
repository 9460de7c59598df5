#include "migrations/log_messages.h"

#include "foundation/debug_log.h"
#include "foundation/notes_search.h"

namespace updkrx {

void LogCompileFailure(const char* operation, STATUS status, int line) noexcept {
    DebugLog(level::retry, "[%s:%d]%s Cannot compile the formula! error[%d]\n", sourceName, line, operation, status);
}

void LogPair(const std::map<std::string, std::string>::value_type& pair) noexcept {
    DebugLog(level::detail, "\tgMap[\"%s\"]=\"%s\";", pair.first.c_str(), pair.second.c_str());
}

} // namespace updkrx
