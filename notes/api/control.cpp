// The control surface, except DXL and the reader.
#include "api/call.h"
#include "engine/database/design.h"
#include "engine/database/signature.h"
#include "engine/dxl/dxl.h"
#include "engine/system/caller_system.h"

using namespace embedded;

namespace {

/** Runs the body on the session, if there is one; else gives `none`. */
template<typename Value, typename Body>
Value Control(Value none, Body&& body) {
    const std::scoped_lock lock(PlatformLock());
    Session* session = CurrentSession().get();
    if (!session) {
        return none;
    }
    Value value = none;
    const STATUS status = StatusOf(session, [&] { value = body(*session); });
    if constexpr (std::is_same_v<Value, STATUS>) {
        return status == NOERROR ? value : status;
    }
    return value;
}

template<typename Body>
void ControlVoid(Body&& body) {
    Control<int>(0, [&](Session& session) {
        body(session);
        return 0;
    });
}

std::filesystem::path PathOf(const Session& session, const char* path) {
    RequirePointer(path);
    return session.GetServer().DatabasePath(path);
}

} // namespace

STATUS LNPUBLIC EmbSessionBegin(const char* iniPath, DWORD options, char* message, DWORD messageSize) {
    const std::scoped_lock lock(PlatformLock());
    return StatusWithMessage(message, messageSize, [&] {
        if (!iniPath || (options & ~EMB_SESSION_READ_ONLY) != 0) {
            throw StatusError(EMB_ERR_ARGUMENT, "a session needs the path of a notes.ini and known options");
        }
        if (CurrentSession()) {
            throw StatusError(ERR_EXISTS, "a session has begun already");
        }
        CurrentSession() = std::make_unique<Session>(PathFromCaller(iniPath), (options & EMB_SESSION_READ_ONLY) != 0);
        return std::string();
    });
}

void LNPUBLIC EmbSessionEnd(void) {
    const std::scoped_lock lock(PlatformLock());
    CurrentSession().reset();
}

STATUS LNPUBLIC EmbEnvironmentSet(const char* name, const char* value) {
    return Control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        RequirePointer(name);
        session.GetServer().GetEnvironment().Set(name, value ? std::optional<std::string>(value) : std::nullopt);
        return NOERROR;
    });
}

DWORD LNPUBLIC EmbIdName(char* buffer, DWORD size) {
    return Control<DWORD>(Fill(buffer, size, {}),
                          [&](Session& session) { return Fill(buffer, size, session.GetServer().IdName()); });
}

STATUS LNPUBLIC EmbBehaviourSet(const char* name, const char* value) {
    return Control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        RequirePointer(name);
        session.GetServer().GetBehaviours().Set(name, value ? std::optional<std::string_view>(value) : std::nullopt);
        return NOERROR;
    });
}

const char* LNPUBLIC EmbBehaviourName(DWORD index) {
    return index < KnownBehaviours().size() ? KnownBehaviours()[index].name : nullptr;
}

const char* LNPUBLIC EmbBehaviourValue(const char* name, DWORD index) {
    const Behaviour* behaviour = name ? FindBehaviour(name) : nullptr;
    return behaviour && index < behaviour->values.size() ? behaviour->values[index] : nullptr;
}

const char* LNPUBLIC EmbBehaviourInForce(const char* name) {
    const Behaviour* behaviour = name ? FindBehaviour(name) : nullptr;
    return Control<const char*>(nullptr, [&](Session& session) {
        return behaviour ? session.GetServer().GetBehaviours().InForce(*behaviour) : nullptr;
    });
}

DWORD LNPUBLIC EmbStatusText(STATUS status, char* buffer, DWORD size) {
    return Fill(buffer, size, StatusText(status & ERR_MASK));
}

void LNPUBLIC EmbClockSetVirtual(int64_t now) {
    ControlVoid([&](Session& session) { session.GetServer().GetClock().SetVirtual(now); });
}

void LNPUBLIC EmbClockAdvance(int64_t hundredths) {
    ControlVoid([&](Session& session) { session.GetServer().GetClock().Advance(hundredths); });
}

void LNPUBLIC EmbClockSetReal(void) {
    ControlVoid([&](Session& session) { session.GetServer().GetClock().SetReal(); });
}

void LNPUBLIC EmbClockSkipPauses(void) {
    ControlVoid([&](Session& session) { session.GetServer().GetClock().SkipPauses(); });
}

int64_t LNPUBLIC EmbClockNow(void) {
    return Control<int64_t>(0, [&](Session& session) { return session.GetServer().GetClock().Now(); });
}

int64_t LNPUBLIC EmbClockWaited(void) {
    return Control<int64_t>(0, [&](Session& session) { return session.GetServer().GetClock().Waited(); });
}

const char* LNPUBLIC EmbOperationName(DWORD index) {
    return index < operationNames.size() ? operationNames[index] : nullptr;
}

DWORD LNPUBLIC EmbCallCount(const char* operation) {
    return Control<DWORD>(0, [&](Session& session) -> DWORD {
        if (!operation) {
            return session.GetCalls().Count(std::nullopt);
        }
        const auto known = FindOperation(operation);
        return known ? session.GetCalls().Count(known) : 0;
    });
}

void LNPUBLIC EmbResetCalls(void) {
    ControlVoid([](Session& session) { session.GetCalls().ResetCounts(); });
}

STATUS LNPUBLIC EmbFaultArm(const char* operation, DWORD n, STATUS status, BOOL forever) {
    return Control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        const auto known = operation ? FindOperation(operation) : std::nullopt;
        if ((operation && !known) || n == 0 || status == NOERROR) {
            return EMB_ERR_ARGUMENT;
        }
        session.GetCalls().Arm(known, n, status, forever != 0);
        return NOERROR;
    });
}

void LNPUBLIC EmbFaultClear(void) {
    ControlVoid([](Session& session) { session.GetCalls().ClearFaults(); });
}

DWORD LNPUBLIC EmbFaultsFired(void) {
    return Control<DWORD>(0, [](Session& session) { return session.GetCalls().Fired(); });
}

DWORD LNPUBLIC EmbOpenHandles(DWORD kind) {
    return Control<DWORD>(0, [&](Session& session) { return session.OpenHandles(kind); });
}

DWORD LNPUBLIC EmbMisuseCount(void) {
    return Control<DWORD>(0, [](Session& session) { return session.Misuses(); });
}

STATUS LNPUBLIC EmbSetInUse(const char* path, DWORD attempts) {
    return Control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        session.GetServer().SetInUse(PathOf(session, path), attempts);
        return NOERROR;
    });
}

BOOL LNPUBLIC EmbIsOffline(const char* path) {
    return Control<BOOL>(
        0, [&](Session& session) -> BOOL { return session.GetServer().IsOffline(PathOf(session, path)); });
}

DWORD LNPUBLIC EmbDatabaseTitle(const char* path, char* buffer, DWORD size) {
    Fill(buffer, size, {});
    return Control<DWORD>(0, [&](Session& session) {
        const auto database = session.GetServer().Open(PathOf(session, path));
        return Fill(buffer, size, database->GetStore().GetProperty(property::title));
    });
}

STATUS LNPUBLIC EmbSignatures(const char* path, WORD classMask, EMBSIGNATURES* counts, char* signers, DWORD size) {
    return Control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        RequirePointer(counts);
        *counts = {};
        const SignatureSummary summary =
            SummarizeSignatures(*session.GetServer().Open(PathOf(session, path)), classMask);
        *counts = {summary.notes, summary.present, summary.invalid};
        std::string names;
        for (const std::string& signer : summary.signers) {
            names += signer + "\n";
        }
        Fill(signers, size, names);
        return NOERROR;
    });
}

STATUS LNPUBLIC EmbDesignCompare(const char* path, const char* templatePath, DWORD* count, char* differences,
                                 DWORD size) {
    return Control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        RequirePointer(count);
        constexpr const char* kinds[] = {"missing", "different", "surplus"};
        const auto database = session.GetServer().Open(PathOf(session, path));
        const auto from = session.GetServer().Open(PathOf(session, templatePath));
        const auto found = CompareDesign(*database, *from);
        std::string text;
        for (const DesignDifference& difference : found) {
            text += std::string(kinds[static_cast<size_t>(difference.kind)]) + "\t" + ShowClass(difference.noteClass) +
                    "\t" + difference.title + "\n";
        }
        Fill(differences, size, text);
        *count = static_cast<DWORD>(found.size());
        return NOERROR;
    });
}

DWORD LNPUBLIC EmbConsoleTranscript(char* buffer, DWORD size) {
    return Control<DWORD>(Fill(buffer, size, {}),
                          [&](Session& session) { return Fill(buffer, size, session.GetServer().Transcript()); });
}

DWORD LNPUBLIC EmbServerLog(char* buffer, DWORD size) {
    return Control<DWORD>(Fill(buffer, size, {}),
                          [&](Session& session) { return Fill(buffer, size, session.GetServer().ServerLog()); });
}
