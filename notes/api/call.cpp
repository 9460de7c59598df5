#include "api/call.h"

#include <atomic>

namespace embedded {
namespace {

struct Hook {
    EMBCALLHOOK function;
    void* parameter;
};

/** Where a hook is, while there is one. */
using Hooked = std::atomic<const Hook*>;
Hooked beforeCall{nullptr};
Hooked afterCall{nullptr};

void run(const Hooked& hooked, Operation operation) {
    if (const Hook* hook = hooked.load())
        hook->function(hook->parameter, operationNames[static_cast<size_t>(operation)]);
}

/** One hook of a kind at a time, set between calls. */
void set(Hooked& hooked, Hook& slot, EMBCALLHOOK function, void* parameter) {
    slot = {function, parameter};
    hooked = function ? &slot : nullptr;
}

} // namespace

std::recursive_mutex& platformLock() {
    static std::recursive_mutex lock;
    return lock;
}

std::unique_ptr<Session>& currentSession() {
    static std::unique_ptr<Session> session;
    return session;
}

CallHooks::CallHooks(Operation operation) : operation_(operation) {
    run(beforeCall, operation_);
}

CallHooks::~CallHooks() {
    run(afterCall, operation_);
}

void leaveInPlaceOf(DHANDLE& handle) {
    constexpr DHANDLE noHandle = 0xDEAD0001; // no table gives out such a one
    const std::scoped_lock lock(platformLock());
    const Session* session = currentSession().get();
    if (session && session->behaviours.has(Deviation::failedHandlesKept))
        return;
    handle = session && session->behaviours.has(Deviation::failedHandlesGarbage) ? noHandle : DHANDLE{NULLHANDLE};
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
    static embedded::Hook slot;
    embedded::set(embedded::beforeCall, slot, hook, parameter);
}

void LNPUBLIC EmbReturnHookSet(EMBCALLHOOK hook, void* parameter) {
    static embedded::Hook slot;
    embedded::set(embedded::afterCall, slot, hook, parameter);
}
