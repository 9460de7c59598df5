#include "api/call.h"
#include "engine/formula/formula.h"

using namespace embedded;

namespace {

std::string RequireFormula(Session& session, FORMULAHANDLE handle) {
    const std::string_view bytes = session.BytesOf(handle);
    if (!IsFormula(bytes)) {
        throw StatusError(EMB_ERR_ARGUMENT, "a search was given a memory block that is no compiled formula");
    }
    return std::string(bytes);
}

template<typename T>
void Assign(T* out, size_t value) {
    if (out) {
        *out = static_cast<T>(std::min<size_t>(value, MAXWORD));
    }
}

SEARCH_MATCH MatchOf(const Database::Match& found, const DBID& databaseId, bool notifyDeletions) {
    SEARCH_MATCH match{};
    match.ID.File = databaseId;
    match.ID.Note = found.head.modified;
    match.ID.NoteID = found.head.id;
    match.OriginatorID = found.head.oid;
    match.NoteClass = found.head.noteClass;
    match.SERetFlags = found.selected ? SE_FMATCH : found.head.soft ? SE_FSOFTDELETED : 0;
    if (found.head.deleted) {
        match.ID.NoteID |= RRV_DELETED;
        if (notifyDeletions) {
            match.NoteClass |= NOTE_CLASS_DEFAULT;
        }
    }
    return match;
}

} // namespace

STATUS LNPUBLIC NSFFormulaCompile(char* name, WORD nameLength, const char* text, WORD textLength,
                                  FORMULAHANDLE* formula, WORD* formulaLength, STATUS* error, WORD* line, WORD* column,
                                  WORD* offset, WORD* length) {
    return CallOpening(Operation::NSFFormulaCompile, formula, [&](Session& session) {
        if (name || nameLength != 0) {
            throw StatusError(EMB_ERR_UNSUPPORTED, "NSFFormulaCompile: named formulas are not supported");
        }
        const auto compiled = CompileFormula(TextOf(text, textLength));
        if (const auto* wrong = std::get_if<FormulaError>(&compiled)) {
            Assign(error, ERR_FORMULA_COMPILATION);
            Assign(line, wrong->line);
            Assign(column, wrong->column);
            Assign(offset, wrong->offset);
            Assign(length, wrong->length);
            throw StatusError(ERR_FORMULA_COMPILATION, "formula: " + wrong->message);
        }
        const auto& bytes = std::get<std::string>(compiled);
        Assign(error, NOERROR);
        Assign(formulaLength, bytes.size());
        return session.Allocate(bytes);
    });
}

STATUS LNPUBLIC NSFSearch(DBHANDLE database, FORMULAHANDLE formula, char* viewTitle, WORD flags, WORD classMask,
                          TIMEDATE* since, NSFSEARCHPROC step, void* parameter, TIMEDATE* until) {
    return Call(Operation::NSFSearch, [&](Session& session) -> STATUS {
        constexpr WORD known = SEARCH_ALL_VERSIONS | SEARCH_NOTIFYDELETIONS;
        if (!step) {
            throw StatusError(EMB_ERR_ARGUMENT);
        }
        if (viewTitle || (flags & ~known) != 0) {
            throw StatusError(EMB_ERR_UNSUPPORTED, "NSFSearch: views, summaries and file searches are not supported");
        }
        const auto searched = session.DatabaseOf(database);
        Database::SearchRequest request;
        if (formula != NULLHANDLE) {
            request.formula = RequireFormula(session, formula);
        }
        request.classMask = classMask & NOTE_CLASS_ALL;
        if (since) {
            request.since = *since;
        }
        request.stubs = since || (flags & SEARCH_ALL_VERSIONS);
        request.onlyMatches = !request.stubs && !session.GetServer().Has(Deviation::searchAll);
        if (until) {
            *until = session.GetServer().GetClock().NowTimedate();
        }
        const DBID databaseId = searched->ReplicaInfo().ID;
        return searched->Search(request, [&](const Database::Match& found) {
            SEARCH_MATCH match = MatchOf(found, databaseId, flags & SEARCH_NOTIFYDELETIONS);
            return step(parameter, &match, nullptr);
        });
    });
}
