#include "migrations/obsolete_unids.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "common/ascii_text.h"
#include "common/startup.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/second_try.h"
#include "foundation/text_lists.h"
#include "migrations/log_messages.h"
#include "migrations/note_identity.h"

namespace updkrx {
namespace {

/** A pass over the documents of a database, and what it and its step are called in the log. */
struct Pass {
    const char* operation;
    const char* step;
    const char* selection;
    const char* separator; // in the message about a search that failed
};

constexpr Pass removal = {
    "RemoveObsoleteUNID", "RemoveObsoleteUNIDCallback",
    "Form=\"dictionary\" | Form=\"entity\" | Form=\"template\" | Form=\"dictionary_type\" | Form=\"entity_type\" | "
    "Form=\"industry\" | Form=\"region\" | Form=\"validator\"",
    ""};
constexpr Pass replacement = {"ReplaceObsoleteUNID", "ReplaceObsoleteUNIDCallback", "Form=\"template\"", " "};

/** Calls `step` with the ID of each note that the pass selects, once more where it was false. `whole` tells whether all
 *  were true in the end. */
template<class Step>
STATUS RunPass(const Pass& pass, DBHANDLE database, Step step, bool& whole) noexcept {
    whole = false;
    ScopedFormula formula;
    STATUS status = CompileOrLog(pass.operation, pass.selection, maxSelectionLength, formula);
    if (status != NOERROR) {
        return status;
    }
    const NoteSearch search = {.step = pass.step,
                               .database = database,
                               .formula = formula.Get(),
                               .classMask = NOTE_CLASS_DOCUMENT,
                               .logsUnselected = true};
    std::vector<NOTEID> failed;
    bool ran = true;
    status = SearchNotes(search, [&](const SEARCH_MATCH& found) {
        const bool before = std::exchange(ran, false); // should the step throw
        if (!step(found.ID.NoteID)) {
            failed.push_back(found.ID.NoteID);
        }
        ran = before;
    });
    whole = status == NOERROR && ran;
    // Not all of them again: an entry that names an obsolete UNID twice has its first occurrence replaced only.
    for (const NOTEID noteId : failed) {
        whole = WithoutExceptions(pass.step, false, [&] { return step(noteId); }) && whole;
    }
    if (status != NOERROR) {
        DebugLog(level::detail, "%s: NSFSearch failed,%serror[%d],error message[%s]\n", pass.operation, pass.separator,
                 status, StatusText(status).Text());
    }
    return status;
}

/** Opens a document, has `rewrite` work on each of its items and saves it. An item of which only a part could be
 *  written keeps what it had: the document is opened anew then, for the other items. False when anything stayed as it
 *  was for a failure. */
template<class Rewrite>
bool RewriteItems(const char* step, DBHANDLE database, NOTEID noteId, std::span<const char* const> items,
                  Rewrite rewrite) {
    std::set<const char*> kept;
    for (bool whole = false; !whole;) {
        ScopedNote note;
        if (OpenNote(note, database, noteId) != NOERROR) {
            DebugLog(level::progress, "ERR: %s:NSFNoteOpen", step);
            return false;
        }
        whole = std::ranges::all_of(items, [&](const char* item) {
            const bool done = kept.contains(item) || rewrite(note.Get(), item);
            if (!done) {
                kept.insert(item);
            }
            return done;
        });
        if (const STATUS status =
                whole ? WithSecondTry([&] { return NSFNoteUpdate(note.Get(), UPDATE_FORCE); }) : NOERROR;
            status != NOERROR) {
            DebugLog(level::progress,
                     "ERR: %s:NSFNoteUpdate. The document keeps what it had. UNID is %s, sError is %d, "
                     "czErrorMessage is %s...",
                     step, UnidTextOf(note.Get()).c_str(), status, StatusText(status).Text());
            return false;
        }
    }
    return kept.empty();
}

/** A text list that is being rewritten, and who does so. */
struct ListField {
    const char* operation;
    NOTEHANDLE note;
    const char* item;
    const std::string& unid; // of the note
};

/** Reads a list that is to be written anew. `entries` stays empty when it has no obsolete ones; false when it cannot be
 *  read. */
template<class IsObsolete>
bool ReadObsolete(const ListField& field, IsObsolete isObsolete, TextSet& entries) {
    const auto& [operation, note, item, unid] = field;
    if (LacksItem(note, item)) {
        DebugLog(level::progress, "%s:UNID %s field %s is null", operation, unid.c_str(), item);
        return true;
    }
    if (!ReadTextListfield(note, item, entries)) {
        return false;
    }
    if (std::ranges::none_of(entries, isObsolete)) {
        DebugLog(level::progress, "%s: No obsolete UNID exist in this doc UNID %s field %s", operation, unid.c_str(),
                 item);
        entries.clear();
    }
    return true;
}

/** Takes the list out of the note, to be written back entry by entry. */
bool TakeOut(const ListField& field) noexcept {
    const auto& [operation, note, item, unid] = field;
    const STATUS status = DeleteItems(note, item);
    if (status != NOERROR) {
        DebugLog(level::progress,
                 "%s: NSFItemDelete error. item is %s, UNID is %s, sError is %d, czErrorMessage is %s.", operation,
                 item, unid.c_str(), status, StatusText(status).Text());
        return false;
    }
    DebugLog(level::progress, "RemoveTextListfield: NSFItemDelete success: item: %s", item);
    return true;
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

void VanishingUnids::Add(const std::string& unid) {
    if (EqualIgnoringAsciiCase(unid, replacement_)) {
        return;
    }
    unids_.insert(unid);
    replacements_.emplace(unid, replacement_);
}

void VanishingUnids::Record() noexcept {
    ObsoleteUNIDSet.merge(unids_);
    gMap.merge(replacements_);
}

void VanishingUnids::RecordUnlessTaken(DBHANDLE database, const UNID& unid) noexcept {
    const auto standing = FindNote(database, unid);
    if (standing == NOTEID{0}) {
        Record();
    } else if (!standing) {
        DoubtfulUNIDMap.merge(replacements_);
    }
}

void KeepReferencesTo(const std::string& unid) noexcept {
    ObsoleteUNIDSet.erase(unid);
    gMap.erase(unid);
    DoubtfulUNIDMap.erase(unid);
}

void LogObsoleteUnids() {
    DebugLog(level::progress, "===========ObsoleteUNIDSet start==============");
    for (const std::string& unid : ObsoleteUNIDSet) {
        DebugLog(level::progress, "%s", unid.c_str());
    }
    DebugLog(level::progress, "===========ObsoleteUNIDSet end==============");
}

bool RemoveTextListfield(NOTEHANDLE note, const char* item) {
    const std::string unid = UnidTextOf(note);
    const ListField field = {"RemoveTextListfield", note, item, unid};
    const auto isObsolete = [](const std::string& entry) { return ObsoleteUNIDSet.contains(entry); };
    TextSet entries;
    if (!ReadObsolete(field, isObsolete, entries)) {
        return false;
    }
    if (entries.empty()) {
        return true;
    }
    if (!TakeOut(field)) {
        return false;
    }
    for (const std::string& entry : entries) {
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
    TextSet entries;
    if (!ReadObsolete(
            field, [&](const std::string& entry) { return replacements.OccurIn(entry); }, entries)) {
        return false;
    }
    return entries.empty() || (TakeOut(field) && std::ranges::all_of(entries, [&](const std::string& entry) {
                                   return PutBack(field, ReplaceInEntry(entry, replacements));
                               }));
}

namespace {

bool RemoveObsoleteUNIDCallback(DBHANDLE database, NOTEID noteId) {
    static constexpr const char* items[] = {"ReferDocs", "UseDocs"};
    return RewriteItems(removal.step, database, noteId, items, RemoveTextListfield);
}

bool ReplaceObsoleteUNIDCallback(DBHANDLE database, NOTEID noteId, const TextReplacements& replacements) {
    static constexpr const char* items[] = {"matchRule"};
    return RewriteItems(replacement.step, database, noteId, items, [&](NOTEHANDLE note, const char* item) {
        return ReplaceTextListfield(note, item, replacements);
    });
}

} // namespace

STATUS RemoveObsoleteUNID(DBHANDLE database, bool& whole) {
    return RunPass(
        removal, database, [&](NOTEID noteId) { return RemoveObsoleteUNIDCallback(database, noteId); }, whole);
}

STATUS ReplaceObsoleteUNID(DBHANDLE database, bool& whole) {
    const TextReplacements replacements(gMap);
    return RunPass(
        replacement, database,
        [&](NOTEID noteId) { return ReplaceObsoleteUNIDCallback(database, noteId, replacements); }, whole);
}

} // namespace updkrx
