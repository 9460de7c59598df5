#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "api/call.h"
#include "engine/values/charset.h"
#include "engine/values/status_text.h"

using namespace embedded;

// A variable argument list belongs to a calling convention.
#if defined(NOTES_MS_ABI)
#define NOTES_VA_LIST __builtin_ms_va_list
#define NOTES_VA_START __builtin_ms_va_start
#define NOTES_VA_END __builtin_ms_va_end
#else
#define NOTES_VA_LIST va_list
#define NOTES_VA_START va_start
#define NOTES_VA_END va_end
#endif

namespace {

constexpr size_t maxLogArguments = 6;

/** How many arguments the format takes; nothing when it holds a conversion other than of texts and integers. */
std::optional<size_t> CountArguments(std::string_view format) {
    size_t count = 0;
    for (size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%', at)) {
        at = format.find_first_not_of("-+ #0123456789.hl", at + 1);
        if (at == std::string_view::npos || std::string_view("sdiuxXc%").find(format[at]) == std::string_view::npos) {
            return std::nullopt;
        }
        count += format[at++] != '%';
    }
    return count;
}

std::string WithStatusText(std::string line, STATUS code) {
    if (code != NOERROR) {
        line.append(": ").append(StatusText(code & ERR_MASK));
    }
    return line;
}

} // namespace

STATUS LNPUBLIC NSFRemoteConsole(char* server, char* command, DHANDLE* reply) {
    return CallOpening(Operation::NSFRemoteConsole, reply, [&](Session& session) {
        RequirePointer(server);
        RequirePointer(command);
        if (session.GetServer().ReadOnly()) {
            throw StatusError(EMB_ERR_READ_ONLY);
        }
        const std::string name = Utf8FromLmbcs(server);
        if (name != session.GetServer().IdName()) {
            throw StatusError(EMB_ERR_NO_SERVER, name + ": no such server");
        }
        const std::string text = session.GetServer().Console(Utf8FromLmbcs(command));
        return text.empty() ? DHANDLE{NULLHANDLE} : session.Allocate(LmbcsFromUtf8(text));
    });
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wvarargs" // the platform has put a promoted type in front of the ellipsis
void LNPUBLIC AddInLogMessageText(const char* format, STATUS code, ...) {
    // Texts and integers each take one argument slot in both calling conventions, so that the slots can be read
    // here and handed on, whichever convention the caller has.
    std::array<void*, maxLogArguments> slots{};
    const auto count = format ? CountArguments(format) : std::nullopt;
    const bool usable = count && *count <= maxLogArguments;
    NOTES_VA_LIST arguments;
    NOTES_VA_START(arguments, code);
    for (size_t i = 0; usable && i < *count; ++i) {
        slots[i] = va_arg(arguments, void*);
    }
    NOTES_VA_END(arguments);
    CallVoid(Operation::AddInLogMessageText, [&](Session& session) {
        if (!usable) {
            throw StatusError(EMB_ERR_ARGUMENT, "AddInLogMessageText: a format that cannot be carried out");
        }
        std::array<char, MAXSPRINTF> line{};
        std::snprintf(line.data(), line.size(), format, slots[0], slots[1], slots[2], slots[3], slots[4], slots[5]);
        session.GetServer().Log(WithStatusText(Utf8FromLmbcs(line.data()), code));
    });
}
#pragma GCC diagnostic pop
