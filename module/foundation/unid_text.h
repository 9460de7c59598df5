// A note's universal ID as text: 32 hexadecimal digits, upper case.
#pragma once

#include <cstddef>
#include <string_view>

#include "notes_api.h"

namespace updkrx {

inline constexpr size_t unidTextSize = 33; // with the terminator

void FormatUnidText(const UNID& unid, char (&text)[unidTextSize]) noexcept;

/** The text of an open note's UNID. */
void GetUnidText(NOTEHANDLE note, char (&text)[unidTextSize]) noexcept;

/** Reads back what FormatUnidText wrote. A group of 8 characters that does not begin with a hexadecimal number, or
 *  that `text` is too short for, leaves its word of `unid` as it was. */
void ParseUnidText(std::string_view text, UNID& unid) noexcept;

} // namespace updkrx
