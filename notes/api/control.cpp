// The control surface, but for DXL.
#include <algorithm>
#include <set>

#include "api/call.h"
#include "engine/database/signature.h"
#include "engine/system/caller_system.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

/** Terminated and cut to fit; returns the length of the whole text. */
DWORD fill(char* buffer, DWORD size, std::string_view text) {
    if (buffer && size != 0) {
        const size_t length = std::min<size_t>(size - 1, text.size());
        std::copy_n(text.data(), length, buffer);
        buffer[length] = '\0';
    }
    return static_cast<DWORD>(text.size());
}

/** Runs the body on the session, if there is one; else gives `none`. */
template<typename Value, typename Body>
Value control(Value none, Body&& body) {
    const std::scoped_lock lock(platformLock());
    Session* session = currentSession().get();
    if (!session)
        return none;
    Value value = none;
    const STATUS status = statusOf(session, [&] { value = body(*session); });
    if constexpr (std::is_same_v<Value, STATUS>)
        return status == NOERROR ? value : status;
    return value;
}

template<typename Body>
void controlVoid(Body&& body) {
    control<int>(0, [&](Session& session) {
        body(session);
        return 0;
    });
}

std::filesystem::path pathOf(const Session& session, const char* path) {
    requirePointer(path);
    return session.databasePath(path);
}

} // namespace

STATUS LNPUBLIC EmbSessionBegin(const char* iniPath, DWORD options, char* message, DWORD messageSize) {
    const std::scoped_lock lock(platformLock());
    fill(message, messageSize, {});
    const auto refuse = [&](STATUS status, std::string_view text) {
        fill(message, messageSize, text);
        return status;
    };
    if (!iniPath || (options & ~EMB_SESSION_READ_ONLY) != 0)
        return refuse(EMB_ERR_ARGUMENT, "a session needs the path of a notes.ini and known options");
    if (currentSession())
        return refuse(ERR_EXISTS, "a session has begun already");
    try {
        currentSession() = std::make_unique<Session>(pathFromCaller(iniPath), (options & EMB_SESSION_READ_ONLY) != 0);
    } catch (const StatusError& error) {
        return refuse(error.status(), error.what());
    } catch (const std::exception& error) {
        return refuse(EMB_ERR_DISK, error.what());
    }
    return NOERROR;
}

void LNPUBLIC EmbSessionEnd(void) {
    const std::scoped_lock lock(platformLock());
    currentSession().reset();
}

STATUS LNPUBLIC EmbEnvironmentSet(const char* name, const char* value) {
    return control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        requirePointer(name);
        session.environment.set(name, value ? std::optional<std::string>(value) : std::nullopt);
        return NOERROR;
    });
}

STATUS LNPUBLIC EmbBehaviourSet(const char* name, const char* value) {
    return control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        requirePointer(name);
        session.behaviours.set(name, value ? std::optional<std::string_view>(value) : std::nullopt);
        return NOERROR;
    });
}

const char* LNPUBLIC EmbBehaviourName(DWORD index) {
    return index < behaviours().size() ? behaviours()[index].name : nullptr;
}

const char* LNPUBLIC EmbBehaviourValue(const char* name, DWORD index) {
    const Behaviour* behaviour = name ? findBehaviour(name) : nullptr;
    return behaviour && index < behaviour->values.size() ? behaviour->values[index] : nullptr;
}

const char* LNPUBLIC EmbBehaviourInForce(const char* name) {
    const Behaviour* behaviour = name ? findBehaviour(name) : nullptr;
    return control<const char*>(
        nullptr, [&](Session& session) { return behaviour ? session.behaviours.inForce(*behaviour) : nullptr; });
}

void LNPUBLIC EmbClockSetVirtual(int64_t now) {
    controlVoid([&](Session& session) { session.clock.setVirtual(now); });
}

void LNPUBLIC EmbClockAdvance(int64_t hundredths) {
    controlVoid([&](Session& session) { session.clock.advance(hundredths); });
}

void LNPUBLIC EmbClockSetReal(void) {
    controlVoid([&](Session& session) { session.clock.setReal(); });
}

int64_t LNPUBLIC EmbClockNow(void) {
    return control<int64_t>(0, [&](Session& session) { return session.clock.now(); });
}

int64_t LNPUBLIC EmbClockWaited(void) {
    return control<int64_t>(0, [&](Session& session) { return session.clock.waited(); });
}

const char* LNPUBLIC EmbOperationName(DWORD index) {
    return index < operationNames.size() ? operationNames[index] : nullptr;
}

DWORD LNPUBLIC EmbCallCount(const char* operation) {
    return control<DWORD>(0, [&](Session& session) -> DWORD {
        if (!operation)
            return session.calls.count(std::nullopt);
        const auto known = findOperation(operation);
        return known ? session.calls.count(known) : 0;
    });
}

void LNPUBLIC EmbResetCalls(void) {
    controlVoid([](Session& session) { session.calls.resetCounts(); });
}

STATUS LNPUBLIC EmbFaultArm(const char* operation, DWORD n, STATUS status, BOOL forever) {
    return control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        const auto known = operation ? findOperation(operation) : std::nullopt;
        if ((operation && !known) || n == 0 || status == NOERROR)
            return EMB_ERR_ARGUMENT;
        session.calls.arm(known, n, status, forever != 0);
        return NOERROR;
    });
}

void LNPUBLIC EmbFaultClear(void) {
    controlVoid([](Session& session) { session.calls.clearFaults(); });
}

DWORD LNPUBLIC EmbFaultsFired(void) {
    return control<DWORD>(0, [](Session& session) { return session.calls.fired(); });
}

DWORD LNPUBLIC EmbOpenHandles(DWORD kind) {
    return control<DWORD>(0, [&](Session& session) -> DWORD {
        DWORD count = 0;
        switch (kind) {
        case EMB_HANDLE_DATABASE:
            return static_cast<DWORD>(session.databases.size());
        case EMB_HANDLE_NOTE:
            return static_cast<DWORD>(session.notes.size());
        case EMB_HANDLE_MEMORY:
            session.memory.forEach([&](const MemoryBlock& block) { count += !block.ownedByNote; });
            return count;
        case EMB_HANDLE_LOCK:
            session.memory.forEach([&](const MemoryBlock& block) { count += static_cast<DWORD>(block.locks); });
            return count;
        default:
            return 0;
        }
    });
}

DWORD LNPUBLIC EmbMisuseCount(void) {
    return control<DWORD>(0, [](Session& session) { return session.misuses; });
}

STATUS LNPUBLIC EmbSetInUse(const char* path, DWORD attempts) {
    return control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        session.setInUse(pathOf(session, path), attempts);
        return NOERROR;
    });
}

BOOL LNPUBLIC EmbIsOffline(const char* path) {
    return control<BOOL>(0, [&](Session& session) -> BOOL { return session.isOffline(pathOf(session, path)); });
}

DWORD LNPUBLIC EmbDatabaseTitle(const char* path, char* buffer, DWORD size) {
    fill(buffer, size, {});
    return control<DWORD>(0, [&](Session& session) {
        const auto database = session.openDatabase(pathOf(session, path));
        return fill(buffer, size, database->store().getProperty(property::title));
    });
}

STATUS LNPUBLIC EmbSignatures(const char* path, WORD classMask, EMBSIGNATURES* counts, char* signers, DWORD size) {
    return control<STATUS>(EMB_ERR_NO_SESSION, [&](Session& session) -> STATUS {
        requirePointer(counts);
        *counts = {};
        std::set<std::string> names;
        const auto database = session.openDatabase(pathOf(session, path));
        Database::SearchRequest request;
        request.classMask = classMask;
        const STATUS status = database->search(request, [&](const Database::Match& match) -> STATUS {
            OpenNote note;
            database->readNote(match.head.id, note);
            const SignatureState state = signatureState(note.items, note.head.noteClass);
            ++counts->designNotes;
            counts->signedNotes += state.present;
            counts->changedNotes += state.present && !state.valid;
            if (!state.signer.empty())
                names.insert(utf8FromLmbcs(state.signer));
            return NOERROR;
        });
        std::string text;
        for (const std::string& name : names)
            text += name + "\n";
        fill(signers, size, text);
        return status;
    });
}

DWORD LNPUBLIC EmbConsoleTranscript(char* buffer, DWORD size) {
    return control<DWORD>(fill(buffer, size, {}),
                          [&](Session& session) { return fill(buffer, size, session.transcript()); });
}

DWORD LNPUBLIC EmbServerLog(char* buffer, DWORD size) {
    return control<DWORD>(fill(buffer, size, {}),
                          [&](Session& session) { return fill(buffer, size, session.serverLog()); });
}
