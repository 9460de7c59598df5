#include "foundation/notes_text.h"

#include <algorithm>
#include <cstring>

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

/** Translates once more when nothing comes of a text. Servers differ in whether the result counts the terminator: the
 *  text itself tells its length. */
WORD Translate(WORD mode, const char* in, char* out, WORD size) noexcept {
    Terminate(out, size, OSTranslate(mode, in, MAXWORD, out, size));
    if (*out == '\0' && *in != '\0') {
        Terminate(out, size, OSTranslate(mode, in, MAXWORD, out, size));
    }
    return static_cast<WORD>(std::strlen(out));
}

} // namespace

WORD ToLmbcs(const char* native, char* lmbcs, WORD size) noexcept {
    return Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, native, lmbcs, size);
}

WORD ToNative(const char* lmbcs, char* native, WORD size) noexcept {
    return Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs, native, size);
}

WORD GetItemText(NOTEHANDLE note, const char* name, char* text, WORD size) noexcept {
    // Servers differ in whether the size counts a terminator: one byte more is asked for, with room for another.
    char whole[maxItemTextSize + 1];
    const WORD asked = std::min(size, maxItemTextSize);
    const WORD length = std::min(NSFItemGetText(note, name, whole, asked), static_cast<WORD>(asked - 1));
    std::copy_n(whole, length, text);
    return Terminate(text, size, length);
}

bool GetEnvironmentText(const char* name, char* text, WORD size) noexcept {
    const auto get = [&] {
        text[0] = '\0';
        return OSGetEnvironmentString(name, text, static_cast<WORD>(size - 1)) != 0;
    };
    const bool found = get() || get(); // a failure looks like a setting that is not there
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
