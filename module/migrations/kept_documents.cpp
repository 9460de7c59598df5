#include "migrations/kept_documents.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/startup.h"
#include "foundation/debug_log.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/product_folder.h"
#include "foundation/second_try.h"
#include "foundation/take_offline.h"
#include "foundation/unid_text.h"
#include "migrations/deletion_stub.h"
#include "migrations/log_messages.h"
#include "migrations/note_identity.h"
#include "migrations/obsolete_unids.h"
#include "migrations/references.h"
#include "os/os.h"

namespace updkrx {
namespace {

constexpr const char* databasePath = "krx/krconf.nsf";
constexpr const char* keptPath = "krx/krconf.updkrx-kept.nsf";
/** An item of a kept document: the UNIDs, one behind the other, that a copy of the template's document may have got. No
 *  such copy may stay beside the document. */
constexpr const char* copiesItem = "updkrxCopies";
constexpr WORD textSize = 512;
constexpr size_t unidLength = unidTextSize - 1;

struct KeptNote {
    NOTEID noteId;
    UNID unid;
};

std::string KeptFile() {
    const auto folder = GetProductFolder(Report::silent);
    return folder ? *folder + "/krconf.updkrx-kept.nsf" : "";
}

/** A server that was to delete the file may have left its path offline. */
STATUS OpenKept(ScopedDatabase& kept) noexcept {
    const STATUS status = OpenDatabase(kept, keptPath);
    return (status & ERR_MASK) == ERR_DBOFFLINE && BringOnline(keptPath) == NOERROR ? OpenDatabase(kept, keptPath)
                                                                                    : status;
}

STATUS OpenOrCreate(ScopedDatabase& kept) {
    constexpr WORD noNotes = 0;
    constexpr WORD noLimit = 0;
    // The server would tell its log of a database that is not there.
    const STATUS status = os::IsFile(KeptFile()) ? OpenKept(kept) : STATUS{ERR_NOEXIST};
    return (status & ERR_MASK) != ERR_NOEXIST
               ? status
               : kept.Open(NSFDbCreateAndCopy, databasePath, keptPath, noNotes, noLimit, DWORD{DBCOPY_REPLICA});
}

/** Outside the document's summary, which may have no room for it. */
STATUS NoteCopies(DBHANDLE kept, NOTEID noteId, std::string_view copies) noexcept {
    constexpr WORD noFlags = 0;
    const std::string_view item = copiesItem;
    ScopedNote note;
    STATUS status = OpenNote(note, kept, noteId);
    if (status == NOERROR && !LacksItem(note.Get(), copiesItem)) {
        status = ClearItems(note.Get(), copiesItem); // the first of two is what would be read
    }
    if (status == NOERROR) {
        status = NSFItemAppend(note.Get(), noFlags, item.data(), static_cast<WORD>(item.size()), TYPE_TEXT,
                               copies.data(), static_cast<DWORD>(copies.size()));
    }
    return status == NOERROR ? NSFNoteUpdate(note.Get(), UPDATE_FORCE) : status;
}

/** A document that is taken out a second time is kept as it is now, and what was noted of its copies stays. Returns the
 *  note that was kept earlier, 0 when there is none; nothing when that cannot be found out. */
std::optional<NOTEID> ReadEarlier(DBHANDLE kept, const UNID& unid, char (&copies)[textSize]) noexcept {
    copies[0] = '\0';
    ScopedNote note;
    const auto earlier = FindNote(kept, unid);
    const bool unread =
        earlier && *earlier != 0 &&
        (OpenNote(note, kept, *earlier) != NOERROR || !ReadItemText(note.Get(), copiesItem, copies, textSize));
    return unread ? std::nullopt : earlier;
}

/** Adds a UNID to the text unless it is in there; false when there is no room for it. */
bool Append(char (&copies)[textSize], const UNID& unid) noexcept {
    char text[unidTextSize];
    FormatUnidText(unid, text);
    if (std::strstr(copies, text) != nullptr) {
        return true;
    }
    const size_t length = std::strlen(copies);
    if (length + sizeof text > textSize) {
        return false;
    }
    std::memcpy(copies + length, text, sizeof text);
    return true;
}

/** Makes a copy of the template's document here first, to learn whether the server gives it a UNID of its own: one that
 *  got it in the database could not be told, if the process died then, from a document of the customer's. */
STATUS Prepare(DBHANDLE kept, const UNID& document, const TemplateNote& replacement, NOTEID& prepared,
               UNID& unid) noexcept {
    ScopedNote copy;
    STATUS status = NSFDbCopyNote(replacement.database, nullptr, nullptr, replacement.noteId, kept, nullptr, nullptr,
                                  &prepared, nullptr);
    if (TellsOfTakenUnid(status)) {
        prepared = 0;
        return NOERROR; // it was to keep its UNID
    }
    if (status == NOERROR) {
        status = OpenNote(copy, kept, prepared);
    }
    if (status != NOERROR) {
        return status;
    }
    unid = UnidOf(copy.Get());
    copy.Close();
    // In the document's place it would have the UNID that the document is to be kept under.
    if (!SameUnid(unid, replacement.unid) && !SameUnid(unid, document)) {
        return NOERROR;
    }
    return DeleteWithoutTrace(kept, std::exchange(prepared, 0));
}

STATUS Keep(DBHANDLE database, NOTEID noteId, DBHANDLE kept, const UNID& unid, const TemplateNote& replacement,
            NOTEID& prepared) noexcept {
    char copies[textSize];
    const auto earlier = ReadEarlier(kept, unid, copies);
    if (!earlier) {
        return ERR_UNKNOWN;
    }
    // What has the template's UNID already, or has it when it is put back, is no copy.
    auto others = FindNote(database, replacement.unid);
    if (others == NOTEID{0}) {
        others = FindNote(kept, replacement.unid);
    }
    if (!others || (*others == 0 && !Append(copies, replacement.unid))) {
        return ERR_UNKNOWN;
    }
    UNID own = {};
    STATUS status = Prepare(kept, unid, replacement, prepared, own);
    if (status != NOERROR) {
        return status;
    }
    if (prepared != 0 && !Append(copies, own)) {
        return ERR_UNKNOWN;
    }
    if (*earlier != 0) { // makes room for the document's UNID
        status = DeleteWithoutTrace(kept, *earlier);
    }
    NOTEID keptId = 0;
    if (status == NOERROR) {
        status = NSFDbCopyNote(database, nullptr, nullptr, noteId, kept, nullptr, nullptr, &keptId, nullptr);
    }
    if (status != NOERROR) {
        return status;
    }
    if (FindNote(kept, unid) != keptId) {
        return ERR_CANT_CHANGE_UNID; // it could not be put back
    }
    return NoteCopies(kept, keptId, copies);
}

/** Adds every note; not all of them are kept documents. */
STATUS CollectKept(DBHANDLE kept, std::vector<KeptNote>& notes) noexcept {
    const NoteSearch search = {.step = "CollectKept",
                               .database = kept,
                               .formula = NULLHANDLE,
                               .classMask = NOTE_CLASS_DOCUMENT,
                               .whenBrokenOff = ERR_MEMORY};
    return SearchNotes(search, [&](const SEARCH_MATCH& found) {
        notes.push_back({found.ID.NoteID, {found.OriginatorID.File, found.OriginatorID.Note}});
    });
}

/** False for a prepared copy, and for a copy of a document that is still in its place: both lack the item. */
bool MayBeKept(DBHANDLE kept, NOTEID noteId) noexcept {
    ScopedNote note;
    return OpenNote(note, kept, noteId) != NOERROR || !LacksItem(note.Get(), copiesItem);
}

/** Calls `visit` with each kept document, of which no note is open. False when one visit was false, or when not all can
 *  be found, which is logged. */
template<class Visit>
bool VisitKept(Visit visit) {
    ScopedDatabase kept;
    std::vector<KeptNote> found;
    const STATUS status = WithSecondTry([&] {
        found.clear();
        const STATUS opened = OpenKept(kept);
        return opened == NOERROR ? CollectKept(kept.Get(), found) : opened;
    });
    if (status != NOERROR) {
        DebugLog(level::progress, "Error: The kept documents cannot be read. (%s):(%x)", keptPath, status);
    }
    bool all = status == NOERROR;
    for (const KeptNote& document : found) {
        if (MayBeKept(kept.Get(), document.noteId)) {
            all = visit(kept.Get(), document) && all;
        }
    }
    return all;
}

DWORD VersionOf(NOTEHANDLE note) noexcept {
    constexpr DWORD mask = 0xFFFF; // the rest of a sequence number is flags
    return OidOf(note).Sequence & mask;
}

/** Replicas must take what stands under the document's UNID for newer than the deletion, which had the number of what
 *  is kept. Saving counts it up. */
STATUS RaiseVersion(NOTEHANDLE note, NOTEHANDLE kept) noexcept {
    STATUS status = NOERROR;
    for (DWORD version = VersionOf(note); status == NOERROR && version <= VersionOf(kept); ++version) {
        status = NSFNoteUpdate(note, UPDATE_FORCE);
    }
    return status;
}

/** Completes what stands under the document's UNID: a copy of the template's document may lack the references, and what
 *  was copied from here has the item that the document has not. */
STATUS Complete(DBHANDLE database, NOTEID noteId, NOTEHANDLE kept) {
    ScopedNote note;
    References wanted;
    References present;
    if (const STATUS status = OpenNote(note, database, noteId); status != NOERROR) {
        return status;
    }
    if (!wanted.Read(kept) || !present.Read(note.Get())) {
        return ERR_UNKNOWN;
    }
    if (!LacksItem(note.Get(), copiesItem) || !present.Includes(wanted)) {
        if (const STATUS status = ClearItems(note.Get(), copiesItem); status != NOERROR) {
            return status;
        }
        if (!wanted.AddTo(note.Get(), present) || NSFNoteUpdate(note.Get(), UPDATE_FORCE) != NOERROR) {
            return ERR_UNKNOWN;
        }
    }
    return RaiseVersion(note.Get(), kept);
}

/** Whether a note that has the UNID of a copy is one: not what the customer has made of another document meanwhile, nor
 *  a document that shares the UNID with the template's. Nothing when that cannot be found out. */
std::optional<bool> IsCopyOf(NOTEHANDLE kept, DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    if (OpenNote(note, database, noteId) != NOERROR) {
        return std::nullopt;
    }
    for (const char* item : {"Form", "name"}) { // what makes a pair of the template's document and the database's
        char wanted[textSize];
        char present[textSize];
        const auto wantedLength = ReadItemText(kept, item, wanted, sizeof wanted);
        const auto length = ReadItemText(note.Get(), item, present, sizeof present);
        if (!wantedLength || !length) {
            return std::nullopt;
        }
        if (std::string_view(wanted, *wantedLength) != std::string_view(present, *length)) {
            return false;
        }
    }
    return true;
}

/** Calls `visit` with the UNID of each copy that may stand beside a kept document; false when one visit was false, or
 *  when they cannot be read. */
template<class Visit>
bool VisitCopies(NOTEHANDLE kept, const UNID& document, Visit visit) {
    char text[textSize];
    const auto length = ReadItemText(kept, copiesItem, text, sizeof text);
    bool all = length.has_value();
    for (size_t at = 0; at + unidLength <= length.value_or(0); at += unidLength) {
        UNID copy = {};
        ParseUnidText({text + at, unidLength}, copy);
        all = (SameUnid(copy, document) || visit(copy)) && all;
    }
    return all;
}

/** Others refer to the document from now on, not to the copy that was to take its place. */
bool RemoveCopy(DBHANDLE database, NOTEHANDLE kept, const UNID& copy, const UNID& document) {
    VanishingUnids vanishing(UnidTextOf(document));
    vanishing.Add(UnidTextOf(copy));
    const auto noteId = FindNote(database, copy);
    const auto isCopy = noteId && *noteId != 0 ? IsCopyOf(kept, database, *noteId) : true;
    if (!noteId || isCopy != true) {
        return isCopy == false; // it is another document
    }
    const STATUS status = WithSecondTry([&] { return *noteId == 0 ? NOERROR : DeleteWithoutTrace(database, *noteId); });
    if (status == NOERROR) {
        vanishing.Record();
    } else {
        LogCopyThatStays(*noteId, status);
    }
    return status == NOERROR;
}

/** Copies the document back where the database has none in its place. */
STATUS PutBack(DBHANDLE database, DBHANDLE kept, const KeptNote& document, NOTEID& noteId) {
    const auto standing = FindNote(database, document.unid);
    noteId = standing.value_or(0);
    if (!standing || noteId != 0) {
        return standing ? NOERROR : ERR_UNKNOWN;
    }
    const STATUS status = StoreOverStub(database, {document.unid}, [&] {
        return NSFDbCopyNote(kept, nullptr, nullptr, document.noteId, database, nullptr, nullptr, &noteId, nullptr);
    });
    if (status != NOERROR || FindNote(database, document.unid) != NOTEID{0}) {
        return status;
    }
    // The database is no replica any more: somebody has put another one in its place.
    const STATUS removed = WithSecondTry([&] { return DeleteWithoutTrace(database, noteId); });
    if (removed != NOERROR) {
        LogCopyThatStays(noteId, removed);
    }
    return ERR_CANT_CHANGE_UNID;
}

/** Puts the document back, complete; `note` becomes the kept one. */
STATUS PutBackComplete(DBHANDLE database, DBHANDLE kept, const KeptNote& document, ScopedNote& note) {
    NOTEID noteId = 0;
    STATUS status = OpenNote(note, kept, document.noteId);
    if (status == NOERROR) {
        status = PutBack(database, kept, document, noteId);
    }
    return status == NOERROR ? Complete(database, noteId, note.Get()) : status;
}

STATUS Restore(DBHANDLE database, DBHANDLE kept, const KeptNote& document) {
    ScopedNote note;
    const STATUS status = PutBackComplete(database, kept, document, note);
    if (status == NOERROR) { // else the copy may be all that is left
        (void)VisitCopies(note.Get(), document.unid,
                          [&](const UNID& copy) { return RemoveCopy(database, note.Get(), copy, document.unid); });
    }
    return status;
}

/** Whether a note of the database is the document, or what replaces it, with all its references except the obsolete
 *  ones. */
bool IsComplete(DBHANDLE database, NOTEID noteId, NOTEHANDLE kept) {
    ScopedNote note;
    References wanted;
    References present;
    if (OpenNote(note, database, noteId) != NOERROR || !wanted.Read(kept) || !present.Read(note.Get())) {
        return false;
    }
    for (const std::string& obsolete : ObsoleteUNIDSet) {
        wanted.referDocs.erase(obsolete);
        wanted.useDocs.erase(obsolete);
    }
    return LacksItem(note.Get(), copiesItem) && present.Includes(wanted);
}

bool Stands(DBHANDLE database, DBHANDLE kept, const KeptNote& document) {
    ScopedNote note;
    const NOTEID noteId = FindNote(database, document.unid).value_or(0);
    return noteId != 0 && OpenNote(note, kept, document.noteId) == NOERROR &&
           IsComplete(database, noteId, note.Get()) && VisitCopies(note.Get(), document.unid, [&](const UNID& copy) {
               const auto copyId = FindNote(database, copy);
               return copyId && (*copyId == 0 || IsCopyOf(note.Get(), database, *copyId) == false);
           });
}

} // namespace

STATUS KeepOnDisk(DBHANDLE database, NOTEID noteId, const UNID& unid, const TemplateNote& replacement,
                  NOTEID& prepared) {
    ScopedDatabase kept;
    prepared = 0;
    STATUS status = OpenOrCreate(kept);
    if (status == NOERROR) {
        status = Keep(database, noteId, kept.Get(), unid, replacement, prepared);
    }
    return status == NOERROR ? kept.Close() : status; // closing is what writes it to the disk
}

STATUS CopyPrepared(NOTEID prepared, DBHANDLE database, NOTEID& newId) noexcept {
    ScopedDatabase kept;
    const STATUS status = OpenKept(kept);
    return status == NOERROR
               ? NSFDbCopyNote(kept.Get(), nullptr, nullptr, prepared, database, nullptr, nullptr, &newId, nullptr)
               : status;
}

bool NoteCopyOfKept(const UNID& unid, const UNID& copy) noexcept {
    ScopedDatabase kept;
    ScopedNote note;
    char copies[textSize];
    UNID wanted = unid;
    if (OpenKept(kept) != NOERROR || note.Open(NSFNoteOpenByUNID, kept.Get(), &wanted, WORD{0}) != NOERROR ||
        !ReadItemText(note.Get(), copiesItem, copies, textSize)) {
        return false;
    }
    const size_t before = std::strlen(copies);
    return Append(copies, copy) &&
           (std::strlen(copies) == before ||
            (NoteCopies(kept.Get(), NoteIdOf(note.Get()), copies) == NOERROR && kept.Close() == NOERROR));
}

STATUS PutBackKeptDocument(DBHANDLE database, const UNID& unid) {
    ScopedDatabase kept;
    ScopedNote note;
    if (const STATUS status = OpenKept(kept); status != NOERROR) {
        return status;
    }
    const NOTEID noteId = FindNote(kept.Get(), unid).value_or(0);
    return noteId != 0 ? PutBackComplete(database, kept.Get(), {noteId, unid}, note) : ERR_NOT_FOUND;
}

bool HasKeptDocuments() {
    return os::IsFile(KeptFile());
}

bool KeepsNone() {
    bool any = false;
    return VisitKept([&](DBHANDLE /*kept*/, const KeptNote& /*document*/) { return any = true; }) && !any;
}

bool PutBackKeptDocuments(DBHANDLE database) {
    (void)VisitKept([&](DBHANDLE kept, const KeptNote& document) {
        STATUS status = Restore(database, kept, document);
        if (status != NOERROR) {
            status = Restore(database, kept, document); // it takes up where the first try has failed
        }
        DebugLog(level::progress, "A document that an earlier run has kept is put back. UNID is %s, sError is %d",
                 UnidTextOf(document.unid).c_str(), status);
        return status == NOERROR;
    });
    return AllKeptDocumentsStand(database);
}

bool AllKeptDocumentsStand(DBHANDLE database) {
    return VisitKept([&](DBHANDLE kept, const KeptNote& document) {
        const auto look = [&] { return Stands(database, kept, document); };
        const bool stands = look() || look(); // a failure that passes must not count
        if (!stands) {
            DebugLog(level::progress,
                     "Error: A document is missing, not complete, or there twice. It is kept for the next run. "
                     "UNID is %s (%s)",
                     UnidTextOf(document.unid).c_str(), keptPath);
        }
        return stands;
    });
}

void RemoveKeptDocuments() {
    // Where the file stays, a later run must not find in it what customers have changed or deleted since.
    (void)VisitKept(
        [](DBHANDLE kept, const KeptNote& document) { return DeleteWithoutTrace(kept, document.noteId) == NOERROR; });
    os::RemoveFile(KeptFile().c_str());
    if (HasKeptDocuments()) {
        (void)TakeOfflineOnce(keptPath, DWORD{0}); // the server may have it open still, and can delete it itself
        (void)BringOnline(keptPath);
    }
    if (HasKeptDocuments()) {
        DebugLog(level::progress, "Error: The kept documents cannot be removed. (%s)", keptPath);
    }
}

} // namespace updkrx
