#include <algorithm>
#include <charconv>

#include "api/call.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

/** Puts a UTF-8 text into a buffer that holds `size` bytes and a terminator, as LMBCS. */
WORD FillLmbcs(char* buffer, size_t size, std::string_view utf8) {
    const std::string lmbcs = LmbcsFromUtf8(utf8);
    const std::string_view fitting = CutLmbcs(lmbcs, size);
    std::copy(fitting.begin(), fitting.end(), buffer);
    buffer[fitting.size()] = '\0';
    return static_cast<WORD>(fitting.size());
}

} // namespace

BOOL LNPUBLIC OSGetEnvironmentString(const char* name, char* buffer, WORD size) {
    return CallValue<BOOL>(Operation::OSGetEnvironmentString, 0, [&](Session& session) -> BOOL {
        RequirePointer(name);
        RequirePointer(buffer);
        const auto value = session.GetServer().GetEnvironment().Find(Utf8FromLmbcs(name));
        if (!value) {
            return 0;
        }
        FillLmbcs(buffer, size, *value);
        return 1;
    });
}

LONG LNPUBLIC OSGetEnvironmentLong(const char* name) {
    return CallValue<LONG>(Operation::OSGetEnvironmentLong, 0, [&](Session& session) -> LONG {
        RequirePointer(name);
        const auto value = session.GetServer().GetEnvironment().Find(Utf8FromLmbcs(name));
        LONG number = 0;
        if (value) {
            std::from_chars(value->data(), value->data() + value->size(), number);
        }
        return number;
    });
}

WORD LNPUBLIC OSGetDataDirectory(char* buffer) {
    return CallValue<WORD>(Operation::OSGetDataDirectory, 0, [&](Session& session) {
        RequirePointer(buffer);
        return FillLmbcs(buffer, MAXPATH - 1, session.GetServer().DataDirectory());
    });
}

STATUS LNPUBLIC SECKFMGetUserName(char* buffer) {
    return Call(Operation::SECKFMGetUserName, [&](Session& session) {
        RequirePointer(buffer);
        FillLmbcs(buffer, MAXUSERNAME, session.GetServer().IdName());
    });
}

BOOL LNPUBLIC AddInIdleDelay(DWORD milliseconds) {
    BOOL toEnd = 0;
    CallVoid(Operation::AddInIdleDelay, [&](Session& session) {
        toEnd = session.GetServer().Has(Deviation::idleDelayQuit);
        if (!toEnd) {
            session.GetServer().GetClock().Wait(milliseconds);
        }
    });
    return toEnd;
}
