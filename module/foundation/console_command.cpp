#include "foundation/console_command.h"

#include <string>

#include "foundation/debug_log.h"
#include "foundation/notes_scoped.h"

namespace updkrx {
namespace {

constexpr DWORD consolePause = 3000; // milliseconds

} // namespace

STATUS RunConsoleCommand(const char* command) {
    char server[MAXUSERNAME + 1] = {}; // on a server the ID in use is the server's own
    if (const STATUS status = SECKFMGetUserName(server); status != NOERROR) {
        return status;
    }
    std::string text = command; // the operation takes a text that it may write to
    ScopedMemory reply;
    return NSFRemoteConsole(server, text.data(), reply.Out());
}

void RunConsoleCommandAndWait(const char* command) {
    (void)RunConsoleCommand(command);
    DebugLog(level::progress, "Run command %s", command);
    (void)AddInIdleDelay(consolePause); // a server that wants the task to end is not heard in mid-upgrade
}

} // namespace updkrx
