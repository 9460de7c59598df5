#include "api/call.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <system_error>

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
    if (session && session->GetServer().Has(Deviation::failedHandlesKept)) {
        return;
    }
    handle = session && session->GetServer().Has(Deviation::failedHandlesGarbage) ? noHandle : DHANDLE{NULLHANDLE};
}

STATUS StatusOfException(const std::function<void(const char* cause)>& tell) noexcept {
    try {
        try {
            std::rethrow_exception(std::current_exception());
        } catch (const StatusError& error) {
            if (*error.what() != '\0') {
                tell(error.what());
            }
            return error.Status();
        } catch (const std::bad_alloc&) {
            return ERR_MEMORY;
        } catch (const std::system_error& error) {
            tell(error.what());
            return EMB_ERR_DISK;
        } catch (const std::exception& error) {
            tell(error.what());
            return ERR_UNKNOWN;
        }
    } catch (const std::exception&) {
        return ERR_MEMORY; // to tell takes memory
    }
}

DWORD Fill(char* buffer, DWORD size, std::string_view text) {
    if (buffer && size != 0) {
        const size_t length = std::min<size_t>(size - 1, text.size());
        std::copy_n(text.data(), length, buffer);
        buffer[length] = '\0';
    }
    return static_cast<DWORD>(text.size());
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
