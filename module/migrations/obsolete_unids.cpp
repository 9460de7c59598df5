#include "migrations/obsolete_unids.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include "common/startup.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "migrations/log_messages.h"
#include "migrations/note_items.h"

namespace updkrx {
namespace {

/** A pass over the documents of a database, and what it is called in the log. */
struct Pass {
    const char* operation;
    const char* selection;
    NSFSEARCHPROC step;
    const char* separator; // in the message about a search that failed
};

constexpr Pass removal = {
    "RemoveObsoleteUNID",
    "Form=\"dictionary\" | Form=\"entity\" | Form=\"template\" | Form=\"dictionary_type\" | Form=\"entity_type\" | "
    "Form=\"industry\" | Form=\"region\" | Form=\"validator\"",
    RemoveObsoleteUNIDCallback, ""};
constexpr Pass replacement = {"ReplaceObsoleteUNID", "Form=\"template\"", ReplaceObsoleteUNIDCallback, " "};

STATUS RunPass(const Pass& pass, DBHANDLE database, void* parameter) noexcept {
    ScopedFormula formula;
    STATUS status = CompileSelection(pass.selection, maxSelectionLength, formula);
    if (status != NOERROR) {
        LogCompileFailure(pass.operation, status);
        return status;
    }
    status = SearchNotes(database, formula.Get(), NOTE_CLASS_DOCUMENT, pass.step, parameter);
    if (status != NOERROR) {
        DebugLog(level::detail, "%s: NSFSearch failed,%serror[%d],error message[%s]\n", pass.operation, pass.separator,
                 status, StatusText(status).Text());
    }
    return status;
}

/** Opens a found document for `rewrite` and saves it, unless `rewrite` returns false. */
template<class Rewrite>
STATUS RewriteDocument(const char* step, DBHANDLE database, const SEARCH_MATCH* match, Rewrite rewrite) noexcept {
    return WithoutExceptions(step, NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        if (!IsMatch(found)) {
            DebugLog(level::progress, "ERR: %s:SearchMatch->SERetFlags & SE_FMATCH", step);
            return NOERROR;
        }
        ScopedNote note;
        if (NSFNoteOpen(database, found.ID.NoteID, 0, note.Out()) != NOERROR) {
            DebugLog(level::progress, "ERR: %s:NSFNoteOpen", step);
            return NOERROR;
        }
        if (rewrite(note.Get())) {
            (void)NSFNoteUpdate(note.Get(), UPDATE_FORCE); // the next document is not affected
        }
        return NOERROR;
    });
}

/** A text list that is being rewritten, and who does so. */
struct ListField {
    const char* operation;
    NOTEHANDLE note;
    const char* item;
    const std::string& unid; // of the note
};

/** Takes the entries out of the note to be written back one by one; nothing when the list is to stay as it is. */
template<class IsObsolete>
std::optional<TextSet> TakeEntries(const ListField& field, IsObsolete isObsolete) {
    const auto& [operation, note, item, unid] = field;
    if (LacksItem(note, item)) {
        DebugLog(level::progress, "%s:UNID %s field %s is null", operation, unid.c_str(), item);
        return std::nullopt;
    }
    TextSet entries;
    if (!ReadTextListfield(note, item, entries)) {
        return std::nullopt;
    }
    if (std::ranges::none_of(entries, isObsolete)) {
        DebugLog(level::progress, "%s: No obsolete UNID exist in this doc UNID %s field %s", operation, unid.c_str(),
                 item);
        return std::nullopt;
    }
    const STATUS status = NSFItemDelete(note, item, static_cast<WORD>(std::strlen(item)));
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "%s: NSFItemDelete error. item is %s, UNID is %s, sError is %d, czErrorMessage is %s.", operation,
                 item, unid.c_str(), status, StatusText(status).Text());
        return std::nullopt;
    }
    DebugLog(level::progress, "RemoveTextListfield: NSFItemDelete success: item: %s", item);
    return entries;
}

bool PutBack(const ListField& field, const std::string& entry) {
    const auto& [operation, note, item, unid] = field;
    // Only an item that is known to be absent is created: that replaces what there is.
    const bool create = LacksItem(note, item);
    const char* call = create ? "NSFItemCreateTextList" : "NSFItemAppendTextList";
    const STATUS status = create ? NSFItemCreateTextList(note, item, entry.c_str(), static_cast<WORD>(entry.size()))
                                 : AppendEntry(note, item, entry);
    if (status != NOERROR) {
        DebugLog(level::progress, "%s: %s error. UNID is %s, sError is %d, czErrorMessage is %s...", operation, call,
                 unid.c_str(), status, StatusText(status).Text());
        DebugLog(level::progress, "%s: The document keeps what it had. item is %s, UNID is %s", operation, item,
                 unid.c_str());
        return false;
    }
    DebugLog(level::progress, "%s: %s success.UNID is %s", operation, call, unid.c_str());
    return true;
}

/** Replaces the obsolete UNIDs of one entry. The log shows every pair, in the order in which they count. */
std::string ReplaceInEntry(const std::string& entry, const TextReplacements& replacements) {
    DebugLog(level::detail, "original oristr=%s", entry.c_str());
    const bool logged = IsDebugLogEnabled();
    auto next = gMap.cbegin();
    const auto logPairsBefore = [&](auto end) {
        if (logged) {
            std::for_each(next, end, LogPair);
        }
        next = end;
    };
    std::string text = entry;
    replacements.Apply(text, [&](auto pair) {
        logPairsBefore(std::next(pair));
        DebugLog(level::detail, "new oristr=%s", text.c_str());
    });
    logPairsBefore(gMap.cend());
    return text;
}

} // namespace

void RecordObsoleteUnid(const std::string& obsolete, const std::string& replacing) {
    // Both or neither: all memory is taken before the first of the collections changes.
    std::set<std::string> unid = {obsolete};
    std::map<std::string, std::string> pair = {{obsolete, replacing}};
    ObsoleteUNIDSet.merge(unid);
    gMap.merge(pair);
}

void LogObsoleteUnids() {
    DebugLog(level::progress, "===========ObsoleteUNIDSet start==============");
    for (const std::string& unid : ObsoleteUNIDSet) {
        DebugLog(level::progress, "%s", unid.c_str());
    }
    DebugLog(level::progress, "===========ObsoleteUNIDSet end==============");
}

STATUS RemoveObsoleteUNID(DBHANDLE database) {
    return RunPass(removal, database, &database);
}

STATUS ReplaceObsoleteUNID(DBHANDLE database) {
    const TextReplacements replacements(gMap);
    ReplaceSearch search = {database, replacements, {}};
    return RunPass(replacement, database, &search);
}

bool RemoveTextListfield(NOTEHANDLE note, const char* item) {
    const std::string unid = UnidTextOf(note);
    const ListField field = {"RemoveTextListfield", note, item, unid};
    const auto isObsolete = [](const std::string& entry) { return ObsoleteUNIDSet.contains(entry); };
    const std::optional<TextSet> entries = TakeEntries(field, isObsolete);
    if (!entries) {
        return true;
    }
    for (const std::string& entry : *entries) {
        if (isObsolete(entry)) {
            DebugLog(level::progress, "RemoveTextListfield: Remove the Obsolete UNID %s from %s in doc: %s!",
                     entry.c_str(), item, unid.c_str());
            continue;
        }
        DebugLog(level::progress, "RemoveTextListfield: buf: %s is not obsolete in doc %s.", entry.c_str(),
                 unid.c_str());
        if (!PutBack(field, entry)) {
            return false;
        }
    }
    return true;
}

bool ReplaceTextListfield(NOTEHANDLE note, const char* item, const TextReplacements& replacements) {
    const std::string unid = UnidTextOf(note);
    const ListField field = {"ReplaceTextListfield", note, item, unid};
    // The keys of the replacements are the obsolete UNIDs.
    const auto entries = TakeEntries(field, [&](const std::string& entry) { return replacements.OccurIn(entry); });
    if (!entries) {
        return true;
    }
    return std::ranges::all_of(
        *entries, [&](const std::string& entry) { return PutBack(field, ReplaceInEntry(entry, replacements)); });
}

STATUS LNCALLBACK RemoveObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return RewriteDocument(
        "RemoveObsoleteUNIDCallback", *static_cast<const DBHANDLE*>(parameter), match,
        [](NOTEHANDLE note) { return RemoveTextListfield(note, "ReferDocs") && RemoveTextListfield(note, "UseDocs"); });
}

STATUS LNCALLBACK ReplaceObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    ReplaceSearch& search = *static_cast<ReplaceSearch*>(parameter);
    return RewriteDocument("ReplaceObsoleteUNIDCallback", search.database, match, [&](NOTEHANDLE note) {
        return search.visited.insert(NoteIdOf(note)).second &&
               ReplaceTextListfield(note, "matchRule", search.replacements);
    });
}

} // namespace updkrx
