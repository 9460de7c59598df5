#include "maintenance/encyclopedia.h"

#include <string>
#include <string_view>

#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/file_copy.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/product_folder.h"
#include "foundation/second_try.h"
#include "foundation/take_offline.h"
#include "os/os.h"

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
    // Only a version that is there and was read makes the database old: an old one is deleted.
    if (LacksItem(note, item)) {
        return false;
    }
    char text[versionSize];
    const auto length = ReadItemText(note, item, text, sizeof text);
    if (!length || (*length == 0 && !HasItem(note, item))) {
        return false;
    }
    return std::string_view(text, *length).find('.') == std::string_view::npos;
}

/** Whether a pattern file's version is of the old form. A document that cannot be opened tells nothing. */
bool CheckPatternVersionCallback(DBHANDLE database, NOTEID noteId) noexcept {
    ScopedNote note;
    return OpenNote(note, database, noteId) == NOERROR && HasOldVersion(note.Get());
}

/** Finds out about the format and, if it is the old one, keeps the access control list. Returns the status of
 *  compiling the formula. */
STATUS ExamineDatabase(bool& oldFormat, ScopedMemory& accessControlList) noexcept {
    ScopedDatabase database;
    if (OpenDatabase(database, databasePath) != NOERROR) {
        return NOERROR;
    }
    ScopedFormula formula;
    const STATUS status = CompileOrLog("UpdateKrency", "FORM=\"Patternfile\"", selectionLength, formula);
    if (status != NOERROR) {
        return status;
    }
    // What a search saw before it was broken off counts.
    (void)SearchOrLog({"CheckPatternVersionCallback", database.Get(), formula.Get(), NOTE_CLASS_DOCUMENT},
                      [&](const SEARCH_MATCH& found) {
                          oldFormat = CheckPatternVersionCallback(database.Get(), found.ID.NoteID) || oldFormat;
                      });
    if (oldFormat) {
        (void)WithSecondTry(
            [&] { return accessControlList.Open(NSFDbReadACL, database.Get()); }); // else the template's stays
    }
    return NOERROR;
}

STATUS TakeOffline(DWORD options) noexcept {
    const auto take = [&] {
        return TakeOfflineWhenUnused(databasePath, options,
                                     [](int /*earlier*/) { DebugLog(level::unusual, "DB in use, waiting"); });
    };
    const STATUS status = take();
    return status == NOERROR || (status & ERR_MASK) == ERR_DBINUSE ? status : take();
}

/**
 * The old database, kept as a file beside its place while it is deleted and the new one not finished. What stands on
 * the disk tells the next run where one has died:
 *
 *     krency.nsf.updkrx-offline   the database may be offline
 *     krency.nsf.updkrx-kept      it is missing, or a new one that is not finished; this is the old one, whole. Without
 *                                 the mark above: a finished new one stands in its place
 *     krency.nsf.updkrx-old       nothing: a finished new one stands in its place
 *
 * None of them is a database by its name, so that the server leaves them alone.
 */
class KeptDatabase {
public:
    explicit KeptDatabase(const std::string& folder)
        : database_(folder + "/krency.nsf"), offline_(database_ + ".updkrx-offline"), kept_(database_ + ".updkrx-kept"),
          old_(database_ + ".updkrx-old") {}

    /** Marks that the database is going to be offline. False, which is logged, when there is no place for a file. */
    [[nodiscard]] bool MarkOffline() noexcept {
        if (!os::IsFile(offline_)) {
            const os::OwnedFile mark = os::OpenNew(offline_.c_str()); // is there or not, which is asked next
            (void)(mark && os::FlushToDisk(mark.get()));
        }
        return os::IsFile(offline_) || LogThatItCannotBeKept(copyTargetUnwritable);
    }
    /** False, which is logged, while the one that a dead run has kept could not be put back: it must not get lost. */
    [[nodiscard]] bool HasPlace() const noexcept { return !HasKept() || LogThatItCannotBeKept(copyTargetExists); }
    /** Keeps the database, which is offline, as it is now. False, which is logged, when it cannot be copied. */
    [[nodiscard]] bool Keep() noexcept {
        CopyResult result = CopyPath(database_, kept_, true);
        if (result != copied) {
            result = CopyPath(database_, kept_, true);
        }
        os::CopyAccessRights(database_.c_str(), kept_.c_str());
        return result == copied || LogThatItCannotBeKept(result);
    }

    /** The database has not been deleted after all, or it has: either way it is there and online afterwards. */
    void GiveUp() noexcept {
        if (os::IsFile(kept_) && os::IsFile(database_)) {
            os::RemoveFile(kept_.c_str());
        }
        PutBack();
    }
    /** Puts the kept database, if there is one, in the place of whatever is there, and brings it online. */
    void PutBack() noexcept {
        if (os::IsFile(kept_)) {
            const STATUS status = os::IsFile(database_) ? TakeOffline(OFFLINE_NODELETE) : NOERROR;
            if (status != NOERROR || !os::MoveOver(kept_.c_str(), database_.c_str())) {
                if (status == NOERROR && os::IsFile(database_)) {
                    (void)BringBackOnline(); // what stands there is used until the next run
                }
                DebugLog(level::unusual, "Error: The old krency.nsf cannot be put back. It is kept. (%s):(%x)",
                         kept_.c_str(), status);
                return;
            }
            DebugLog(level::unusual, "The old krency.nsf is put back.");
        }
        if (BringBackOnline()) {
            Unmark();
        } // else the next run tries again
    }
    void Unmark() noexcept {
        os::RemoveFile(offline_.c_str());
        if (os::IsFile(offline_)) {
            DebugLog(level::unusual, "Error: A mark cannot be removed; the next run does that. (%s)", offline_.c_str());
        }
    }
    /** The new database stands in its place. `whole` is false when it lacks something: the old one's file stays
     *  then. */
    void Finish(bool whole) noexcept {
        Unmark(); // from here on no run puts it back
        SetAside();
        if (whole) {
            for (int tries = 0; tries < 2; ++tries) {
                os::RemoveFile(kept_.c_str());
                os::RemoveFile(old_.c_str());
            }
            if (os::IsFile(kept_) || os::IsFile(old_)) {
                DebugLog(level::unusual, "Error: The kept krency.nsf cannot be removed. (%s)",
                         (os::IsFile(kept_) ? kept_ : old_).c_str());
            }
        } else {
            DebugLog(level::unusual,
                     "Error: The new krency.nsf may lack the old one's access control list or its replica ID. "
                     "The old one is kept. (%s)",
                     (os::IsFile(kept_) ? kept_ : old_).c_str());
        }
    }
    /** Whether an old database is still kept though the new one was finished. */
    [[nodiscard]] bool IsLeftOver() const noexcept { return HasKept() && !IsMarkedOffline() && os::IsFile(database_); }
    /** Gives the kept database the name under which nothing looks for it. */
    void SetAside() noexcept {
        (void)os::MoveOver(kept_.c_str(), old_.c_str()); // else it is left over, which the next run sees
    }

    [[nodiscard]] bool BringBackOnline() noexcept {
        const STATUS status = WithSecondTry([] { return BringOnline(databasePath); });
        if (status != NOERROR) {
            DebugLog(level::unusual, "Bring database online. (%s):(%x)", database_.c_str(), status);
        }
        return status == NOERROR;
    }

    /** Whether a run has died with the old database kept, or offline. */
    [[nodiscard]] bool HasKept() const noexcept { return os::IsFile(kept_); }
    [[nodiscard]] bool IsMarkedOffline() const noexcept { return os::IsFile(offline_); }

private:
    [[nodiscard]] bool LogThatItCannotBeKept(CopyResult result) const noexcept {
        DebugLog(level::unusual, "Error: krency.nsf cannot be kept, so it is not recreated. (%s):(%d)", kept_.c_str(),
                 result);
        return false;
    }

    std::string database_;
    std::string offline_;
    std::string kept_;
    std::string old_;
};

void LogThatItIsNotDeleted(STATUS status) noexcept {
    DebugLog(level::unusual, "Failed to delete original KRX V3 krency.nsf, Error: %X", status);
}

/** Deletes the database, of which a copy is kept before. After a failure it is there and online as it was. */
STATUS DeleteDatabase(KeptDatabase& kept) noexcept {
    if (!kept.MarkOffline()) {
        return ERR_UNKNOWN;
    }
    STATUS status = TakeOffline(OFFLINE_NODELETE);
    if (status != NOERROR) {
        LogThatItIsNotDeleted(status);
        if ((status & ERR_MASK) == ERR_DBINUSE) {
            kept.Unmark();
        } else {
            kept.PutBack(); // what failed may have been done
        }
        return status;
    }
    if (!kept.Keep()) {
        kept.GiveUp();
        return ERR_UNKNOWN;
    }
    status = TakeOfflineOnce(databasePath, removeDatabase);
    if (status != NOERROR && kept.BringBackOnline()) { // some servers delete only what is online
        status = TakeOffline(removeDatabase);
    }
    if (status != NOERROR) {
        LogThatItIsNotDeleted(status);
        kept.GiveUp();
    }
    return status;
}

bool SetReplicaId(DBHANDLE database) noexcept {
    DBREPLICAINFO info = {};
    // The record is written as a whole, and the rest of it must stay.
    if (WithSecondTry([&] { return NSFDbReplicaInfoGet(database, &info); }) != NOERROR) {
        return false;
    }
    info.ID = replicaId;
    return WithSecondTry([&] { return NSFDbReplicaInfoSet(database, &info); }) == NOERROR;
}

bool StoreAccessControlList(DBHANDLE database, const ScopedMemory& list) noexcept {
    return list.Get() != NULLHANDLE &&
           WithSecondTry([&] { return NSFDbStoreACL(database, list.Get(), 0, 0); }) == NOERROR;
}

/** Copies the template. What a server may refuse is tried in another way: a path that is still offline, and the private
 *  design notes of others. */
STATUS CopyTemplate(ScopedDatabase& database) noexcept {
    WORD classes = NOTE_CLASS_ALL;
    bool broughtOnline = false;
    bool again = false;
    while (true) {
        const STATUS status =
            database.Open(NSFDbCreateAndCopy, templatePath, databasePath, classes, sizeLimit, DWORD{0});
        const STATUS code = status & ERR_MASK;
        if (code == ERR_DBOFFLINE && !broughtOnline) {
            broughtOnline = true;
            (void)WithSecondTry([] { return BringOnline(databasePath); }); // the next attempt tells
        } else if (code == ERR_NOACCESS && (classes & NOTE_CLASS_PRIVATE) != 0) {
            classes &= static_cast<WORD>(~NOTE_CLASS_PRIVATE);
        } else if (status != NOERROR && !again) {
            again = true;
        } else {
            return status;
        }
    }
}

STATUS CreateDatabase(const ScopedMemory& accessControlList, KeptDatabase& kept) noexcept {
    ScopedDatabase database;
    const STATUS status = CopyTemplate(database);
    if (status != NOERROR) {
        DebugLog(level::unusual, "Failed to recreate krency.nsf, Error: %X", status);
        kept.PutBack();
        return status;
    }
    const bool hasId = SetReplicaId(database.Get());
    const bool hasList = StoreAccessControlList(database.Get(), accessControlList);
    DebugLog(level::unusual, "Success created new krency.nsf");
    kept.Finish(database.Close() == NOERROR && hasId && hasList);
    return NOERROR;
}

STATUS RecreateDatabase(const ScopedMemory& accessControlList) {
    const auto folder = GetProductFolder();
    if (!folder) {
        return ERR_UNKNOWN;
    }
    KeptDatabase kept(*folder);
    if (!kept.HasPlace()) {
        return ERR_UNKNOWN;
    }
    const STATUS status = DeleteDatabase(kept);
    return status == NOERROR ? CreateDatabase(accessControlList, kept) : status;
}

/** True when a kept database was put back, and so is to be made anew. */
bool RecoverFromDeadRun() {
    const auto folder = GetProductFolder(Report::silent); // without one, nothing was kept
    if (!folder) {
        return false;
    }
    KeptDatabase kept(*folder);
    if (kept.IsLeftOver()) {
        kept.SetAside();
    }
    const bool hadKept = kept.HasKept() && !kept.IsLeftOver();
    if (hadKept || kept.IsMarkedOffline()) {
        kept.PutBack();
    }
    return hadKept && !kept.HasKept();
}

} // namespace

void FinishKrencyOfDeadRun() noexcept {
    if (WithoutExceptions("FinishKrencyOfDeadRun", false, RecoverFromDeadRun)) {
        (void)UpdateKrency(); // its failures are logged
    }
}

void KeepNoKrencyOfDeadRun() noexcept {
    (void)WithoutExceptions("KeepNoKrencyOfDeadRun", NOERROR, [] {
        if (const auto folder = GetProductFolder(Report::silent)) {
            KeptDatabase kept(*folder);
            if (kept.HasKept()) {
                kept.Unmark();
                kept.SetAside();
            }
        }
        return NOERROR;
    });
}

DWORD UpdateKrency() noexcept {
    bool oldFormat = false;
    ScopedMemory accessControlList;
    const STATUS status = ExamineDatabase(oldFormat, accessControlList);
    if (!oldFormat) {
        return status;
    }
    DebugLog(level::unusual, "krency.nsf is old format, recreate it");
    return WithoutExceptions("UpdateKrency", STATUS{ERR_MEMORY}, [&] { return RecreateDatabase(accessControlList); });
}

} // namespace updkrx
