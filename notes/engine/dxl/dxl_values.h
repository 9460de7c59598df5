// The words in which export writes the values of items.
#pragma once

#include <string>
#include <string_view>

#include "notes_api.h"

namespace embedded::dxl {

/** The element that export writes for a value of a type that has one, without white space; empty when it is raw. */
std::string ValueElement(WORD type, std::string_view value);
/** The element in which export writes a date of noteinfo. */
std::string NoteTimeElement(const TIMEDATE& time);

constexpr std::string_view compiledElement = "formula"; // with compiled='true'

} // namespace embedded::dxl
