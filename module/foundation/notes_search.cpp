#include "foundation/notes_search.h"

#include <algorithm>
#include <cstring>

#include "foundation/debug_log.h"
#include "foundation/notes_text.h"

namespace updkrx {

STATUS CompileSelection(const char* native, WORD maxLength, ScopedFormula& formula, WORD* compiledLength) noexcept {
    char text[maxSelectionLength + 1];
    const WORD size = static_cast<WORD>(std::min(maxLength, maxSelectionLength) + 1);
    const WORD length = ToLmbcs(native, text, size);
    // The rest is of no interest, but the platform wants a place for every result.
    WORD formulaLength = 0;
    STATUS error = NOERROR;
    WORD line = 0;
    WORD column = 0;
    WORD offset = 0;
    WORD errorLength = 0;
    const STATUS status = NSFFormulaCompile(nullptr, 0, text, length, formula.Out(), &formulaLength, &error, &line,
                                            &column, &offset, &errorLength);
    if (compiledLength != nullptr) {
        *compiledLength = formulaLength;
    }
    return status;
}

void LogCompileFailure(const char* operation, STATUS status, int line) noexcept {
    constexpr char sourceName[] = "PatchKRX";
    DebugLog(level::retry, "[%s:%d]%s Cannot compile the formula! error[%d]\n", sourceName, line, operation, status);
}

STATUS SearchNotes(DBHANDLE database, FORMULAHANDLE formula, WORD classMask, NSFSEARCHPROC step,
                   void* parameter) noexcept {
    return NSFSearch(database, formula, nullptr, 0, classMask, nullptr, step, parameter, nullptr);
}

SEARCH_MATCH CopyMatch(const SEARCH_MATCH* match) noexcept {
    constexpr size_t packedSize = offsetof(SEARCH_MATCH, SummaryLength) + sizeof(WORD); // no more is promised
    SEARCH_MATCH copy = {};
    std::memcpy(&copy, match, packedSize);
    return copy;
}

bool IsMatch(const SEARCH_MATCH& match) noexcept {
    return (match.SERetFlags & SE_FMATCH) != 0;
}

} // namespace updkrx
