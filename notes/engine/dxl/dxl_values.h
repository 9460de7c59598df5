// The words in which a person can read the values of items.
#pragma once

#include <string>
#include <string_view>

#include "notes_api.h"

namespace embedded::dxl {

/** The text of the element that export writes for a value: empty when it is raw, and a blank for a list. */
std::string ReadableText(WORD type, std::string_view value);

} // namespace embedded::dxl
