#include "foundation/console_command.h"

#include <string>

#include "foundation/notes_scoped.h"

namespace updkrx {

STATUS RunConsoleCommand(const char* command) {
    char server[MAXUSERNAME + 1] = {}; // on a server the ID in use is the server's own
    if (const STATUS status = SECKFMGetUserName(server); status != NOERROR) {
        return status;
    }
    std::string text = command; // the operation takes a text that it may write to
    ScopedMemory reply;
    return NSFRemoteConsole(server, text.data(), reply.Out());
}

} // namespace updkrx
