#include <algorithm>
#include <charconv>

#include "api/call.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

/** Puts a UTF-8 text into a buffer that holds `size` bytes and a terminator, as LMBCS. */
WORD fillLmbcs(char* buffer, size_t size, std::string_view utf8) {
    const std::string lmbcs = lmbcsFromUtf8(utf8);
    const std::string_view fitting = cutLmbcs(lmbcs, size);
    std::copy(fitting.begin(), fitting.end(), buffer);
    buffer[fitting.size()] = '\0';
    return static_cast<WORD>(fitting.size());
}

} // namespace

BOOL LNPUBLIC OSGetEnvironmentString(const char* name, char* buffer, WORD size) {
    return callValue<BOOL>(Operation::OSGetEnvironmentString, 0, [&](Session& session) -> BOOL {
        requirePointer(name);
        requirePointer(buffer);
        const auto value = session.environment.find(utf8FromLmbcs(name));
        if (!value)
            return 0;
        fillLmbcs(buffer, size, *value);
        return 1;
    });
}

LONG LNPUBLIC OSGetEnvironmentLong(const char* name) {
    return callValue<LONG>(Operation::OSGetEnvironmentLong, 0, [&](Session& session) -> LONG {
        requirePointer(name);
        const auto value = session.environment.find(utf8FromLmbcs(name));
        LONG number = 0;
        if (value)
            std::from_chars(value->data(), value->data() + value->size(), number);
        return number;
    });
}

WORD LNPUBLIC OSGetDataDirectory(char* buffer) {
    return callValue<WORD>(Operation::OSGetDataDirectory, 0, [&](Session& session) {
        requirePointer(buffer);
        return fillLmbcs(buffer, MAXPATH - 1, session.dataDirectory());
    });
}

STATUS LNPUBLIC SECKFMGetUserName(char* buffer) {
    return call(Operation::SECKFMGetUserName, [&](Session& session) {
        requirePointer(buffer);
        fillLmbcs(buffer, MAXUSERNAME, session.idName());
    });
}

BOOL LNPUBLIC AddInIdleDelay(DWORD milliseconds) {
    BOOL toEnd = 0;
    callVoid(Operation::AddInIdleDelay, [&](Session& session) {
        toEnd = session.behaviours.has(Deviation::idleDelayQuit);
        if (!toEnd)
            session.clock.wait(milliseconds);
    });
    return toEnd;
}
