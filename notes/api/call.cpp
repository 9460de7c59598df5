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

void Run(const Hooked& hooked, Operation operation) {
    if (const Hook* hook = hooked.load()) {
        hook->function(hook->parameter, operationNames[static_cast<size_t>(operation)]);
    }
}

/** One hook of a kind at a time, set between calls. */
void Set(Hooked& hooked, Hook& slot, EMBCALLHOOK function, void* parameter) {
    slot = {function, parameter};
    hooked = function ? &slot : nullptr;
}

} // namespace

std::recursive_mutex& PlatformLock() {
    static std::recursive_mutex lock;
    return lock;
}

std::unique_ptr<Session>& CurrentSession() {
    static std::unique_ptr<Session> session;
    return session;
}

CallHooks::CallHooks(Operation operation) : operation_(operation) {
    Run(beforeCall, operation_);
}

CallHooks::~CallHooks() {
    Run(afterCall, operation_);
}

void LeaveInPlaceOf(DHANDLE& handle) {
    constexpr DHANDLE noHandle = 0xDEAD0001; // no table gives out such a one
    const std::scoped_lock lock(PlatformLock());
    const Session* session = CurrentSession().get();
    if (session && session->behaviours.Has(Deviation::failedHandlesKept)) {
        return;
    }
    handle = session && session->behaviours.Has(Deviation::failedHandlesGarbage) ? noHandle : DHANDLE{NULLHANDLE};
}

std::shared_ptr<Database> RequireDatabase(Session& session, DBHANDLE handle) {
    const OpenDatabase& entry = Require(session, session.databases, handle);
    if (!entry.database) {
        throw StatusError(ERR_NOT_NSF); // a directory
    }
    return entry.database;
}

NoteEntry& RequireNote(Session& session, NOTEHANDLE handle) {
    return Require(session, session.notes, handle);
}

} // namespace embedded

void LNPUBLIC EmbCallHookSet(EMBCALLHOOK hook, void* parameter) {
    static embedded::Hook slot;
    embedded::Set(embedded::beforeCall, slot, hook, parameter);
}

void LNPUBLIC EmbReturnHookSet(EMBCALLHOOK hook, void* parameter) {
    static embedded::Hook slot;
    embedded::Set(embedded::afterCall, slot, hook, parameter);
}
