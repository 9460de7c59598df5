#include "migrations/log_messages.h"

#include "foundation/debug_log.h"

namespace updkrx {

bool Succeeded(const char* operation, STATUS status) noexcept {
    if (status != NOERROR) {
        DebugLog(level::progress, "%s error. sError is %d, czErrorMessage is %s...", operation, status,
                 StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "%s success.", operation);
    return true;
}

void LogCopyThatStays(NOTEID copyId, STATUS status) noexcept {
    DebugLog(level::progress, "The doc copied from ntf stays: notesid=%d, sError is %d, czErrorMessage is %s...",
             static_cast<int>(copyId), status, StatusText(status).Text());
}

void LogPair(const std::map<std::string, std::string>::value_type& pair) noexcept {
    DebugLog(level::detail, "\tgMap[\"%s\"]=\"%s\";", pair.first.c_str(), pair.second.c_str());
}

} // namespace updkrx
