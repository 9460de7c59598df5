// A module for krxpatch to load that does what an upgrade seldom does: it loses a database and takes its time.
#include <chrono>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/debug_log.h"
#include "foundation/notes_scoped.h"
#include "notes_api.h"
#include "os/export.h"

namespace {

/** True when something is printed within ten seconds. */
bool WaitForOutput(off_t printed) {
    struct stat output = {};
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (fstat(STDOUT_FILENO, &output) == 0 && output.st_size > printed) {
            return true;
        }
    }
    return false;
}

bool Pauses() {
    const auto start = std::chrono::steady_clock::now();
    (void)AddInIdleDelay(1000);
    return std::chrono::steady_clock::now() - start >= std::chrono::seconds(1);
}

} // namespace

extern "C" UPDKRX_EXPORT STATUS MainEntryPoint() {
    struct stat output = {};
    if (fstat(STDOUT_FILENO, &output) != 0) {
        return 1;
    }
    updkrx::DebugLog(1, "first\x1b[2J\n");
    updkrx::DebugLog(1, WaitForOutput(output.st_size) ? "shown at once" : "not shown");

    updkrx::ScopedMemory reply;
    char server[MAXUSERNAME + 1] = "";
    char command[] = "tell krxreal restart";
    (void)SECKFMGetUserName(server);
    (void)reply.Open(NSFRemoteConsole, server, command);
    AddInLogMessageText("%s", NOERROR, "a word to the server");
    updkrx::DebugLog(1, Pauses() ? "paused" : "went on at once");
    return NSFTakeDatabaseOffline("krx/krtime.nsf", 0, 0); // which deletes it
}
