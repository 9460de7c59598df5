// Visiting the notes of a database.
//
// A step has the platform's signature and is given the caller's record, whose first field is the database's handle.
// It passes over a match that IsMatch denies, works on the note, and returns 0 so that the search goes on.
#pragma once

#include "foundation/notes_scoped.h"
#include "notes_api.h"

namespace updkrx {

/** The longest selection formula, in bytes of the Notes character set. */
inline constexpr WORD maxSelectionLength = 1023;

/** Puts a selection formula into the Notes character set, cut to `maxLength` bytes (maxSelectionLength at most), and
 *  compiles it. `compiledLength` (optional) gets the size of the compiled formula in bytes. */
[[nodiscard]] STATUS CompileSelection(const char* native, WORD maxLength, ScopedFormula& formula,
                                      WORD* compiledLength = nullptr) noexcept;

/** Reports, from the calling line, a selection formula that does not compile. */
void LogCompileFailure(const char* operation, STATUS status, int line = __builtin_LINE()) noexcept;

/**
 * Calls `step` once for every note of `classMask` that the compiled formula selects, or for all of them when `formula`
 * is NULLHANDLE; also for notes that it does not select, which IsMatch tells apart. Returns the search's status, or the
 * first status other than 0 of a step, which ends the search.
 */
[[nodiscard]] STATUS SearchNotes(DBHANDLE database, FORMULAHANDLE formula, WORD classMask, NSFSEARCHPROC step,
                                 void* parameter) noexcept;

/** A copy of what a step was given, which may stand at an unaligned address. */
[[nodiscard]] SEARCH_MATCH CopyMatch(const SEARCH_MATCH* match) noexcept;

/** False for a note that a search delivers although its formula does not select it. */
[[nodiscard]] bool IsMatch(const SEARCH_MATCH& match) noexcept;

} // namespace updkrx
