#include <algorithm>

#include "api/call.h"
#include "engine/system/caller_system.h"
#include "engine/values/charset.h"
#include "engine/values/status_text.h"

using namespace embedded;

namespace {

/** As much of the translated text as fits into `size` bytes. */
std::string Translate(WORD mode, std::string_view text, size_t size) {
    constexpr WORD lmbcsToUtf8 = 22, utf8ToLmbcs = 24;
    switch (mode) {
    case OS_TRANSLATE_NATIVE_TO_LMBCS:
        return std::string(CutLmbcs(LmbcsFromUtf8(Utf8FromNative(text)), size));
    case utf8ToLmbcs:
        return std::string(CutLmbcs(LmbcsFromUtf8(text), size));
    case OS_TRANSLATE_LMBCS_TO_NATIVE:
        return NativeFromUtf8(Utf8FromLmbcs(text), size);
    case lmbcsToUtf8:
        return std::string(CutUtf8(Utf8FromLmbcs(text), size));
    default:
        throw StatusError(EMB_ERR_UNSUPPORTED, "OSTranslate: unknown mode " + std::to_string(mode));
    }
}

} // namespace

WORD LNPUBLIC OSTranslate(WORD mode, const char* in, WORD inLength, char* out, WORD outSize) {
    return CallValue<WORD>(Operation::OSTranslate, 0, [&](Session& session) -> WORD {
        const std::string_view text = TextOf(in, inLength);
        RequirePointer(out);
        const bool terminated = inLength == MAXWORD && outSize != 0;
        const std::string translated = Translate(mode, text, outSize - size_t{terminated});
        std::copy(translated.begin(), translated.end(), out);
        if (terminated) {
            out[translated.size()] = '\0';
        }
        const bool counted = terminated && session.GetServer().Has(Deviation::translateResultWithTerminator);
        return static_cast<WORD>(translated.size() + size_t{counted});
    });
}

WORD LNPUBLIC OSLoadString(void* module, STATUS code, char* buffer, WORD size) {
    return CallValue<WORD>(Operation::OSLoadString, 0, [&](Session&) -> WORD {
        (void)module; // only the platform's own texts are asked for
        RequirePointer(buffer);
        const std::string_view text = StatusText(code).substr(0, size);
        std::copy(text.begin(), text.end(), buffer);
        buffer[text.size()] = '\0';
        return static_cast<WORD>(text.size());
    });
}
