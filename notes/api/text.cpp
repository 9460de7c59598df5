#include <algorithm>

#include "api/call.h"
#include "engine/charset.h"
#include "engine/status_text.h"

using namespace embedded;

namespace {

enum class Direction { toLmbcs, fromLmbcs };

std::optional<Direction> directionOf(WORD mode) {
    constexpr WORD lmbcsToUtf8 = 22, utf8ToLmbcs = 24;
    switch (mode) {
    // The native character set is UTF-8 here.
    case OS_TRANSLATE_NATIVE_TO_LMBCS:
    case utf8ToLmbcs:
        return Direction::toLmbcs;
    case OS_TRANSLATE_LMBCS_TO_NATIVE:
    case lmbcsToUtf8:
        return Direction::fromLmbcs;
    default:
        return std::nullopt;
    }
}

} // namespace

WORD LNPUBLIC OSTranslate(WORD mode, const char* in, WORD inLength, char* out, WORD outSize) {
    return callValue<WORD>(Operation::OSTranslate, 0, [&](Session&) -> WORD {
        const std::string_view text = textOf(in, inLength);
        requirePointer(out);
        const auto direction = directionOf(mode);
        if (!direction)
            throw StatusError(EMB_ERR_UNSUPPORTED, "OSTranslate: unknown mode " + std::to_string(mode));
        const bool toLmbcs = *direction == Direction::toLmbcs;
        const std::string whole = toLmbcs ? lmbcsFromUtf8(text) : utf8FromLmbcs(text);
        const std::string_view fitting = toLmbcs ? cutLmbcs(whole, outSize) : cutUtf8(whole, outSize);
        std::copy(fitting.begin(), fitting.end(), out);
        return static_cast<WORD>(fitting.size());
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
