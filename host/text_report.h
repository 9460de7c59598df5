// A report to people, as plain text.
#pragma once

#include <ostream>

#include "change_report.h"

namespace krxpatch {

/** Of a database with very many changes of a kind the first ones are shown; the JSON form has all of them. */
void PrintText(std::ostream& out, const ChangeReport& report, bool colour);

/** A value on one line, cut when it is longer than `limit` bytes. */
[[nodiscard]] std::string OneLine(const ItemValue& value, size_t limit);

} // namespace krxpatch
