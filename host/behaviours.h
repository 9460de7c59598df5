// What the embedded platform is told to do differently.
#pragma once

#include <string>

#include "embedded_notes.h"

namespace krxpatch {

/** The platform's behaviours that are not the default, as notes.ini names them; empty when all are. */
[[nodiscard]] inline std::string DescribeBehaviours() {
    std::string text;
    for (DWORD i = 0; const char* name = EmbBehaviourName(i); ++i) {
        if (const std::string value = EmbBehaviourInForce(name); value != EmbBehaviourValue(name, 0)) {
            text += (text.empty() ? "" : ",") + std::string(name) + "=" + value;
        }
    }
    return text;
}

} // namespace krxpatch
