#include "maintenance/encyclopedia.h"

#include <string_view>

#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/take_offline.h"

namespace updkrx {
namespace {

constexpr const char* databasePath = "krx/krency.nsf";
constexpr const char* templatePath = "krx/krency.ntf";
constexpr WORD selectionLength = 31;
constexpr size_t versionSize = 32;
constexpr DWORD removeDatabase = 0; // an option: taken offline for good
constexpr WORD sizeLimit = 4096;    // megabytes
/** The same on every server, so that their encyclopedias replicate. */
constexpr TIMEDATE replicaId = {{0x001E96E4, 0x852552F9}};

bool HasOldVersion(NOTEHANDLE note) noexcept {
    constexpr const char* item = "InternalPVer";
    if (LacksItem(note, item)) {
        return false;
    }
    char text[versionSize];
    const auto length = ReadItemText(note, item, text, sizeof text);
    // Only a version that was read makes the database old: an old one is deleted.
    return length && std::string_view(text, *length).find('.') == std::string_view::npos;
}

/** Finds out about the format and, if it is the old one, keeps the access control list. Returns the status of
 *  compiling the formula. */
STATUS ExamineDatabase(bool& oldFormat, ScopedMemory& accessControlList) noexcept {
    ScopedDatabase database;
    if (NSFDbOpen(databasePath, database.Out()) != NOERROR) {
        return NOERROR;
    }
    ScopedFormula formula;
    const STATUS status = CompileSelection("FORM=\"Patternfile\"", selectionLength, formula);
    if (status != NOERROR) {
        LogCompileFailure("UpdateKrency", status);
        return status;
    }
    PatternVersionSearch search = {database.Get(), 0};
    // What a search saw before it was broken off counts.
    (void)SearchNotes(database.Get(), formula.Get(), NOTE_CLASS_DOCUMENT, CheckPatternVersionCallback, &search);
    oldFormat = search.oldFormat != 0;
    if (oldFormat) {
        (void)NSFDbReadACL(database.Get(), accessControlList.Out()); // without it, the template's list stays
    }
    return NOERROR;
}

STATUS DeleteDatabase() noexcept {
    const STATUS status = TakeOfflineWhenUnused(databasePath, removeDatabase,
                                                [](int /*earlier*/) { DebugLog(level::retry, "DB in use, waiting"); });
    if (status != NOERROR) {
        DebugLog(level::retry, "Failed to delete original KRX V3 krency.nsf, Error: %X", status);
    }
    return status;
}

void SetReplicaId(DBHANDLE database) noexcept {
    DBREPLICAINFO info = {};
    if (NSFDbReplicaInfoGet(database, &info) != NOERROR) {
        return; // the record is written as a whole, and the rest of it must stay
    }
    info.ID = replicaId;
    (void)NSFDbReplicaInfoSet(database, &info); // with an ID of its own the database still works
}

STATUS CreateDatabase(const ScopedMemory& accessControlList) noexcept {
    ScopedDatabase database;
    const STATUS status = NSFDbCreateAndCopy(templatePath, databasePath, NOTE_CLASS_ALL, sizeLimit, 0, database.Out());
    if (status != NOERROR) {
        DebugLog(level::retry, "Failed to recreate krency.nsf, Error: %X", status);
        return status;
    }
    SetReplicaId(database.Get());
    if (accessControlList.Get() != NULLHANDLE) {
        (void)NSFDbStoreACL(database.Get(), accessControlList.Get(), 0, 0); // as above, the template's list stays
    }
    DebugLog(level::retry, "Success created new krency.nsf");
    return NOERROR;
}

} // namespace

DWORD UpdateKrency() noexcept {
    bool oldFormat = false;
    ScopedMemory accessControlList;
    STATUS status = ExamineDatabase(oldFormat, accessControlList);
    if (!oldFormat) {
        return status;
    }
    DebugLog(level::retry, "krency.nsf is old format, recreate it");
    status = DeleteDatabase();
    if (status == NOERROR) {
        status = CreateDatabase(accessControlList);
    }
    return status;
}

STATUS LNCALLBACK CheckPatternVersionCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("CheckPatternVersionCallback", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        PatternVersionSearch& search = *static_cast<PatternVersionSearch*>(parameter);
        ScopedNote note;
        if (IsMatch(found) && NSFNoteOpen(search.database, found.ID.NoteID, 0, note.Out()) == NOERROR &&
            HasOldVersion(note.Get())) {
            search.oldFormat = 1;
        }
        return NOERROR;
    });
}

} // namespace updkrx
