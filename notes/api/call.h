// What every exported operation has in common: it holds the platform's lock, is counted, can be made to fail, and
// turns whatever goes wrong into a status. No exception crosses the C interface.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>

#include "embedded_notes.h"
#include "engine/server/session.h"
#include "engine/values/status_text.h"

namespace embedded {

/** The platform's lock: recursive, since a search's step calls operations. */
std::recursive_mutex& PlatformLock();
/** The process's session, NULL when none was begun. Hold the lock. */
std::unique_ptr<Session>& CurrentSession();
/** Runs the hooks of EmbCallHookSet and EmbReturnHookSet at its start and end. Make it before the lock is taken. */
class CallHooks {
public:
    explicit CallHooks(Operation operation);
    CallHooks(const CallHooks&) = delete;
    CallHooks& operator=(const CallHooks&) = delete;
    ~CallHooks();

private:
    Operation operation_;
};

/** Throws EMB_ERR_ARGUMENT for a missing pointer. */
inline void RequirePointer(const void* pointer) {
    if (!pointer) {
        throw StatusError(EMB_ERR_ARGUMENT);
    }
}

/** Writes what a failed operation leaves for a handle, as the behaviour says. */
void LeaveInPlaceOf(DHANDLE& handle);

/** The status of the exception that is being handled; `tell` gets what a person must know of it. */
STATUS StatusOfException(const std::function<void(const char* cause)>& tell) noexcept;

/** Runs the body; what it throws becomes a status, and `tell` gets the cause, if there is more to tell of it. */
template<typename Body, typename Tell>
STATUS StatusAndCause(Body&& body, Tell&& tell) noexcept {
    try {
        if constexpr (std::is_void_v<decltype(body())>) {
            body();
            return NOERROR;
        } else {
            return body();
        }
    } catch (const std::exception&) {
        return StatusOfException(tell);
    }
}

/** Runs the body; the cause of a failure goes into the server's log. */
template<typename Body>
STATUS StatusOf(Session* session, Body&& body) noexcept {
    return StatusAndCause(body, [session](const char* cause) {
        if (session) {
            session->GetServer().Log(cause);
        }
    });
}

/** Puts a text into the caller's buffer, terminated and cut to fit; returns the length of the whole text. */
DWORD Fill(char* buffer, DWORD size, std::string_view text);

/** Runs the body; `message` (optional) gets the text that it returns, or the cause of its failure. */
template<typename Body>
STATUS StatusWithMessage(char* message, DWORD messageSize, Body&& body) noexcept {
    std::string text;
    const STATUS status = StatusAndCause([&] { text = body(); }, [&](const char* cause) { text = cause; });
    Fill(message, messageSize, status != NOERROR && text.empty() ? StatusText(status) : std::string_view(text));
    return status;
}

/** An operation that answers with a status; the body gets the session. */
template<typename Body>
STATUS Call(Operation operation, Body&& body) {
    const CallHooks hooks(operation);
    const std::scoped_lock lock(PlatformLock());
    Session* session = CurrentSession().get();
    if (!session) {
        return EMB_ERR_NO_SESSION;
    }
    if (const auto fault = session->GetCalls().Record(operation, true)) {
        return *fault;
    }
    return StatusOf(session, [&] { return body(*session); });
}

/** An operation that gives a handle; the body returns it. What a failed one leaves in its place is a behaviour. */
template<typename Body>
STATUS CallOpening(Operation operation, DHANDLE* handle, Body&& body) {
    const STATUS status = Call(operation, [&](Session& session) {
        RequirePointer(handle);
        *handle = body(session);
    });
    if (status != NOERROR && handle) {
        LeaveInPlaceOf(*handle);
    }
    return status;
}

/** An operation that closes or frees: a fault changes its answer, not what it does. */
template<typename Body>
STATUS CallClosing(Operation operation, Body&& body) {
    const CallHooks hooks(operation);
    const std::scoped_lock lock(PlatformLock());
    Session* session = CurrentSession().get();
    if (!session) {
        return EMB_ERR_NO_SESSION;
    }
    const auto fault = session->GetCalls().Record(operation, true);
    const STATUS status = StatusOf(session, [&] { return body(*session); });
    return fault.value_or(status);
}

/** An operation that answers with a value; `failed` when it fails, is made to, or there is no session. */
template<typename Value, typename Body>
Value CallValue(Operation operation, Value failed, Body&& body) {
    Value value = failed;
    const STATUS status = Call(operation, [&](Session& session) { value = body(session); });
    return status == NOERROR ? value : failed;
}

/** An operation that cannot fail. */
template<typename Body>
void CallVoid(Operation operation, Body&& body) {
    const CallHooks hooks(operation);
    const std::scoped_lock lock(PlatformLock());
    Session* session = CurrentSession().get();
    if (!session) {
        return;
    }
    (void)session->GetCalls().Record(operation, false);
    (void)StatusOf(session, [&] { body(*session); });
}

/** A text of the Notes API: `length` MAXWORD means terminated. */
inline std::string_view TextOf(const char* text, size_t length) {
    RequirePointer(text);
    return length == MAXWORD ? std::string_view(text) : std::string_view(text, length);
}

} // namespace embedded
