#include "api/call.h"

using namespace embedded;

STATUS LNPUBLIC OSMemAlloc(WORD type, DWORD size, DHANDLE* handle) {
    return CallOpening(Operation::OSMemAlloc, handle, [&](Session& session) {
        (void)type; // memory here is neither shared between processes nor grown in place
        return size != 0 ? session.Allocate(std::string(size, '\0')) : DHANDLE{NULLHANDLE};
    });
}

void* LNPUBLIC OSLockObject(DHANDLE handle) {
    return CallValue<void*>(Operation::OSLockObject, nullptr, [&](Session& session) -> void* {
        MemoryBlock& block = Require(session, session.memory, handle);
        ++block.locks;
        return block.bytes.get();
    });
}

BOOL LNPUBLIC OSUnlockObject(DHANDLE handle) {
    return CallClosing(Operation::OSUnlockObject, [&](Session& session) {
               MemoryBlock& block = Require(session, session.memory, handle);
               if (block.locks == 0) {
                   ++session.misuses;
                   throw StatusError(EMB_ERR_HANDLE);
               }
               --block.locks;
           }) == NOERROR;
}

STATUS LNPUBLIC OSMemFree(DHANDLE handle) {
    return CallClosing(Operation::OSMemFree, [&](Session& session) {
        MemoryBlock& block = Require(session, session.memory, handle);
        if (block.locks != 0 || block.ownedByNote) {
            ++session.misuses;
            throw StatusError(EMB_ERR_LOCKED);
        }
        session.memory.Take(handle);
    });
}
