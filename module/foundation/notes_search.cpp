#include "foundation/notes_search.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/notes_text.h"

namespace updkrx {
namespace {

/** A search under way, and the notes that it has delivered: a server may deliver one again that a step has saved. */
struct Visits {
    const NoteSearch& search;
    STATUS (*step)(void* context, const SEARCH_MATCH& match);
    void* context;
    std::vector<NOTEID> visited; // ascending, as most searches deliver
    bool ended = false;          // by a step

    /** False for a note that was there before. */
    bool Add(NOTEID noteId) {
        const auto place = std::ranges::lower_bound(visited, noteId);
        if (place != visited.end() && *place == noteId) {
            return false;
        }
        visited.insert(place, noteId);
        return true;
    }
};

STATUS LNCALLBACK VisitOnce(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    Visits& visits = *static_cast<Visits*>(parameter);
    const NoteSearch& search = visits.search;
    const SEARCH_MATCH found = CopyMatch(match);
    if (!IsMatch(found)) {
        if (search.logsUnselected) {
            DebugLog(level::progress, "ERR: %s:SearchMatch->SERetFlags & SE_FMATCH", search.step);
        }
        return NOERROR;
    }
    // Without the memory to remember a note, it had better be visited twice than not at all.
    const bool isNew = WithoutExceptions("SearchNotes", true, [&] { return visits.Add(found.ID.NoteID); });
    const STATUS status =
        isNew ? WithoutExceptions(search.step, search.whenBrokenOff, [&] { return visits.step(visits.context, found); })
              : NOERROR;
    visits.ended = status != NOERROR;
    return status;
}

} // namespace

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
    const STATUS status = WithSecondTry([&] {
        return formula.Open([&](FORMULAHANDLE* compiled) {
            return NSFFormulaCompile(nullptr, 0, text, length, compiled, &formulaLength, &error, &line, &column,
                                     &offset, &errorLength);
        });
    });
    if (compiledLength != nullptr) {
        *compiledLength = formulaLength;
    }
    return status;
}

STATUS CompileOrLog(const char* operation, const char* native, WORD maxLength, ScopedFormula& formula,
                    int line) noexcept {
    const STATUS status = CompileSelection(native, maxLength, formula);
    if (status != NOERROR) {
        constexpr char sourceName[] = "PatchKRX";
        DebugLog(level::unusual, "[%s:%d]%s Cannot compile the formula! error[%d]\n", sourceName, line, operation,
                 status);
    }
    return status;
}

STATUS SearchNotes(const NoteSearch& search, STATUS (*step)(void* context, const SEARCH_MATCH& match),
                   void* context) noexcept {
    Visits visits = {search, step, context, {}};
    const auto visit = [&] {
        return NSFSearch(search.database, search.formula, nullptr, 0, search.classMask, nullptr, VisitOnce, &visits,
                         nullptr);
    };
    const STATUS status = visit();
    return status == NOERROR || visits.ended ? status : visit(); // the rest
}

void LogBrokenSearch(const NoteSearch& search, STATUS status) noexcept {
    DebugLog(level::progress, "Error: A search was broken off, and what it did not reach stays as it was. (%s):(%x)",
             search.step, status);
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
