#include "foundation/notes_text.h"

#include <algorithm>

#include "common/bounded_text.h"

namespace updkrx {
namespace {

/** The length that an operation reports for a text that it put into a buffer of `size` bytes, made safe to end the
 *  text at. */
WORD Terminate(char* text, WORD size, WORD length) noexcept {
    const WORD end = std::min(length, static_cast<WORD>(size - 1));
    text[end] = '\0';
    return end;
}

WORD Translate(WORD mode, const char* in, char* out, WORD size) noexcept {
    return Terminate(out, size, OSTranslate(mode, in, MAXWORD, out, static_cast<WORD>(size - 1)));
}

} // namespace

WORD ToLmbcs(const char* native, char* lmbcs, WORD size) noexcept {
    return Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, native, lmbcs, size);
}

WORD ToNative(const char* lmbcs, char* native, WORD size) noexcept {
    return Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs, native, size);
}

WORD GetItemText(NOTEHANDLE note, const char* name, char* text, WORD size) noexcept {
    return Terminate(text, size, NSFItemGetText(note, name, text, static_cast<WORD>(size - 1)));
}

bool GetEnvironmentText(const char* name, char* text, WORD size) noexcept {
    text[0] = '\0';
    const bool found = OSGetEnvironmentString(name, text, static_cast<WORD>(size - 1)) != 0;
    text[size - 1] = '\0';
    return found;
}

void GetStatusText(STATUS status, char* text, WORD size) noexcept {
    Terminate(text, size, OSLoadString(nullptr, status & ERR_MASK, text, static_cast<WORD>(size - 1)));
}

void AddServerLogLine(const char* text) noexcept {
    char line[MAXSPRINTF];
    bq_snprintf(line, sizeof line, "%s", text);
    AddInLogMessageText("%s", NOERROR, line); // never as the format: the text may hold "%"
}

void AddServerLogStatus(STATUS status) noexcept {
    char text[MAXSPRINTF];
    GetStatusText(status, text, sizeof text);
    AddServerLogLine(text);
}

} // namespace updkrx
