// The expression documents of the configuration database: each carries its own UNID, and one that holds a shipped
// expression refers to the document of that expression's kind.
#pragma once

#include <span>

#include "maintenance/default_expressions.h"
#include "notes_api.h"

namespace updkrx {

/**
 * Migrates every expression document of the configuration database and writes the table of shipped expressions to the
 * log. Returns 0, also when the database cannot be opened or documents could not be changed, or the status of the
 * selection formula when that did not compile; this is logged, and the table is not.
 */
DWORD MigrateContentFilterExpressions() noexcept;

/** What MigrateExpressionCallback works on. */
struct ExpressionSearch {
    DBHANDLE database;
    std::span<const DefaultExpression> table; // in ascending byte order of the expressions
};

/**
 * Search step: makes DocID of an expression document its own UNID, adds to RefContent what the table has for its
 * Expression, unless that is there already, and saves it. A document that cannot be opened is logged; a change that
 * fails is left out, and a document that cannot be saved stays as it was stored.
 */
void MigrateExpressionCallback(const ExpressionSearch& search, NOTEID noteId) noexcept;

} // namespace updkrx
