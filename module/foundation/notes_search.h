// Visiting the notes of a database.
#pragma once

#include <type_traits>

#include "foundation/notes_scoped.h"
#include "notes_api.h"

namespace updkrx {

/** The longest selection formula, in bytes of the Notes character set. */
inline constexpr WORD maxSelectionLength = 1023;

/** Puts a selection formula into the Notes character set, cut to `maxLength` bytes (maxSelectionLength at most), and
 *  compiles it. `compiledLength` (optional) gets the size of the compiled formula in bytes. */
[[nodiscard]] STATUS CompileSelection(const char* native, WORD maxLength, ScopedFormula& formula,
                                      WORD* compiledLength = nullptr) noexcept;

/** As CompileSelection; a formula that does not compile is logged, with the operation's name and the calling line. */
[[nodiscard]] STATUS CompileOrLog(const char* operation, const char* native, WORD maxLength, ScopedFormula& formula,
                                  int line = __builtin_LINE()) noexcept;

struct NoteSearch {
    const char* step; // its name in the log
    DBHANDLE database;
    FORMULAHANDLE formula; // compiled; NULLHANDLE selects every note
    WORD classMask;
    bool logsUnselected = false;    // notes that the search delivers although its formula does not select them
    STATUS whenBrokenOff = NOERROR; // counts as the status of a step that throws
};

/** SearchNotes for a step and its context as a plain function takes them. */
[[nodiscard]] STATUS SearchNotes(const NoteSearch& search, STATUS (*step)(void* context, const SEARCH_MATCH& match),
                                 void* context) noexcept;

/**
 * Calls `step` with the match of every note that the search selects, once each. Returns the search's status, or the
 * first status other than 0 of a step, which ends the search; a step without a result never ends it. An exception of a
 * step is logged and goes no further. A search that is broken off is taken up once more.
 */
template<class Step>
[[nodiscard]] STATUS SearchNotes(const NoteSearch& search, Step step) noexcept {
    return SearchNotes(
        search,
        [](void* context, const SEARCH_MATCH& match) -> STATUS {
            Step& call = *static_cast<Step*>(context);
            if constexpr (std::is_void_v<std::invoke_result_t<Step&, const SEARCH_MATCH&>>) {
                call(match);
                return NOERROR;
            } else {
                return call(match);
            }
        },
        &step);
}

/** Tells of a search that was broken off: notes that it would have delivered stay as they are. */
void LogBrokenSearch(const NoteSearch& search, STATUS status) noexcept;

/** As SearchNotes; a search that fails is logged. */
template<class Step>
STATUS SearchOrLog(const NoteSearch& search, Step step) noexcept {
    const STATUS status = SearchNotes(search, step);
    if (status != NOERROR) {
        LogBrokenSearch(search, status);
    }
    return status;
}

/** A copy of what the platform calls a step with, which may stand at an unaligned address. */
[[nodiscard]] SEARCH_MATCH CopyMatch(const SEARCH_MATCH* match) noexcept;

/** False for a note that a search delivers although its formula does not select it. */
[[nodiscard]] bool IsMatch(const SEARCH_MATCH& match) noexcept;

} // namespace updkrx
