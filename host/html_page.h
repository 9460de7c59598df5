// The parts of an HTML report that are the same in all of them.
#pragma once

namespace krxpatch {

extern const char* const htmlStyle;
extern const char* const htmlScript;

} // namespace krxpatch
