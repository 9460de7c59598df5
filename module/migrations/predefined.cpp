#include "migrations/predefined.h"

#include "common/ascii_text.h"
#include "foundation/item_reading.h"

namespace updkrx {

std::optional<bool> IsPredefined(NOTEHANDLE note) noexcept {
    constexpr WORD flagSize = 256;
    char flag[flagSize];
    const auto length = ReadItemText(note, "pre-defined", flag, sizeof flag);
    if (!length) {
        return std::nullopt;
    }
    return EqualIgnoringAsciiCase({flag, *length}, "true");
}

} // namespace updkrx
