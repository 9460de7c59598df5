#include "foundation/console_command.h"

#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/notes_scoped.h"
#include "foundation/pause.h"
#include "foundation/second_try.h"

namespace updkrx {
namespace {

constexpr size_t commandSize = 1024;
constexpr DWORD consolePause = 3000; // milliseconds

STATUS Send(const char* command) noexcept {
    char server[MAXUSERNAME + 1] = {}; // on a server the ID in use is the server's own
    if (const STATUS status = WithSecondTry([&] { return SECKFMGetUserName(server); }); status != NOERROR) {
        return status;
    }
    char text[commandSize]; // the operation takes a text that it may write to
    bq_snprintf(text, sizeof text, "%s", command);
    ScopedMemory reply;
    return reply.Open(NSFRemoteConsole, server, text);
}

} // namespace

STATUS RunConsoleCommand(const char* command) {
    const STATUS status = Send(command);
    if (status != NOERROR) {
        DebugLog(level::progress, "Error: The server did not take a command. (%s):(%x)", command, status);
    }
    return status;
}

void RunConsoleCommandAndWait(const char* command) {
    if (RunConsoleCommand(command) != NOERROR) {
        (void)RunConsoleCommand(command); // loading a task twice does no harm
    }
    DebugLog(level::progress, "Run command %s", command);
    Pause(consolePause);
}

} // namespace updkrx
