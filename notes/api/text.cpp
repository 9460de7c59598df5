#include <algorithm>

#include "api/call.h"
#include "engine/system/caller_system.h"
#include "engine/values/charset.h"
#include "engine/values/status_text.h"

using namespace embedded;

namespace {

/** As much of the translated text as fits into `size` bytes. */
std::string translate(WORD mode, std::string_view text, size_t size) {
    constexpr WORD lmbcsToUtf8 = 22, utf8ToLmbcs = 24;
    switch (mode) {
    case OS_TRANSLATE_NATIVE_TO_LMBCS:
        return std::string(cutLmbcs(lmbcsFromUtf8(utf8FromNative(text)), size));
    case utf8ToLmbcs:
        return std::string(cutLmbcs(lmbcsFromUtf8(text), size));
    case OS_TRANSLATE_LMBCS_TO_NATIVE:
        return nativeFromUtf8(utf8FromLmbcs(text), size);
    case lmbcsToUtf8:
        return std::string(cutUtf8(utf8FromLmbcs(text), size));
    default:
        throw StatusError(EMB_ERR_UNSUPPORTED, "OSTranslate: unknown mode " + std::to_string(mode));
    }
}

} // namespace

WORD LNPUBLIC OSTranslate(WORD mode, const char* in, WORD inLength, char* out, WORD outSize) {
    return callValue<WORD>(Operation::OSTranslate, 0, [&](Session& session) -> WORD {
        const std::string_view text = textOf(in, inLength);
        requirePointer(out);
        const bool terminated = inLength == MAXWORD && outSize != 0;
        const std::string translated = translate(mode, text, outSize - size_t{terminated});
        std::copy(translated.begin(), translated.end(), out);
        if (terminated)
            out[translated.size()] = '\0';
        const bool counted = terminated && session.behaviours.has(Deviation::translateResultWithTerminator);
        return static_cast<WORD>(translated.size() + size_t{counted});
    });
}

WORD LNPUBLIC OSLoadString(void* module, STATUS code, char* buffer, WORD size) {
    return callValue<WORD>(Operation::OSLoadString, 0, [&](Session&) -> WORD {
        (void)module; // only the platform's own texts are asked for
        requirePointer(buffer);
        const std::string_view text = statusText(code).substr(0, size);
        std::copy(text.begin(), text.end(), buffer);
        buffer[text.size()] = '\0';
        return static_cast<WORD>(text.size());
    });
}
