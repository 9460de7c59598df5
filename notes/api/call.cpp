#include "api/call.h"

#include <atomic>

namespace embedded {
namespace {

struct Hook {
    EMBCALLHOOK function;
    void* parameter;
};

std::atomic<const Hook*> activeHook{nullptr};

} // namespace

std::recursive_mutex& platformLock() {
    static std::recursive_mutex lock;
    return lock;
}

std::unique_ptr<Session>& currentSession() {
    static std::unique_ptr<Session> session;
    return session;
}

void runCallHook(Operation operation) {
    if (const Hook* hook = activeHook.load())
        hook->function(hook->parameter, operationNames[static_cast<size_t>(operation)]);
}

std::shared_ptr<Database> requireDatabase(Session& session, DBHANDLE handle) {
    const OpenDatabase& entry = require(session, session.databases, handle);
    if (!entry.database)
        throw StatusError(ERR_NOT_NSF); // a directory
    return entry.database;
}

NoteEntry& requireNote(Session& session, NOTEHANDLE handle) {
    return require(session, session.notes, handle);
}

} // namespace embedded

void LNPUBLIC EmbCallHookSet(EMBCALLHOOK hook, void* parameter) {
    using embedded::Hook;
    // One hook at a time, set between calls.
    static Hook slot;
    slot = {hook, parameter};
    embedded::activeHook = hook ? &slot : nullptr;
}
