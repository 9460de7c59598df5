// Texts on their way to and from the Notes API: character sets, items, the environment, statuses, the server's log.
//
// Every buffer is given with its size in bytes, at least 1, and comes back terminated; a text that does not fit is
// cut.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** From the native character set to that of Notes. Returns the length of the result. */
WORD ToLmbcs(const char* native, char* lmbcs, WORD size) noexcept;
/** From the Notes character set to the native one. Returns the length of the result. */
WORD ToNative(const char* lmbcs, char* native, WORD size) noexcept;

/** The largest buffer that GetItemText fills. */
inline constexpr WORD maxItemTextSize = 8192;

/** The text of an item, empty when the item is absent. Returns its length; line breaks in it are zero bytes. */
WORD GetItemText(NOTEHANDLE note, const char* name, char* text, WORD size) noexcept;

/** The value of a setting of the server; false, and the empty text, when it is not set. */
[[nodiscard]] bool GetEnvironmentText(const char* name, char* text, WORD size) noexcept;

/** The error text of a status, empty when Notes has none. */
void GetStatusText(STATUS status, char* text, WORD size) noexcept;

/** Adds a line to the server's log, cut to what the log takes. */
void AddServerLogLine(const char* text) noexcept;
/** Adds a status's error text to the server's log. */
void AddServerLogStatus(STATUS status) noexcept;

} // namespace updkrx
