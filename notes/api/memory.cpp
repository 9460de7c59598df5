#include "api/call.h"

using namespace embedded;

STATUS LNPUBLIC OSMemAlloc(WORD type, DWORD size, DHANDLE* handle) {
    return CallOpening(Operation::OSMemAlloc, handle, [&](Session& session) {
        (void)type; // memory here is neither shared between processes nor grown in place
        return size != 0 ? session.Allocate(std::string(size, '\0')) : DHANDLE{NULLHANDLE};
    });
}

void* LNPUBLIC OSLockObject(DHANDLE handle) {
    return CallValue<void*>(Operation::OSLockObject, nullptr, [&](Session& session) { return session.Lock(handle); });
}

BOOL LNPUBLIC OSUnlockObject(DHANDLE handle) {
    return CallClosing(Operation::OSUnlockObject, [&](Session& session) { session.Unlock(handle); }) == NOERROR;
}

STATUS LNPUBLIC OSMemFree(DHANDLE handle) {
    return CallClosing(Operation::OSMemFree, [&](Session& session) { session.Free(handle); });
}
