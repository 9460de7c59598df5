// The safety copy: what a run may change, as it was before. It is kept after the run, until a later run has made its
// own or somebody discards it; that of a run which fell short is kept until a run has succeeded. A run that died is put
// back from it before anything else is done.
//
//   data/krx.recovery/            beside the product folder
//     20261123-031007/            a copy by its ID, the time at which it was made; whole, or not there
//       run                       the run that it was made for
//       ended                     when that run ended, and how; missing while it goes on, and of a run that died
//       ended.next                what "ended" becomes when the disk is full by then
//       restoring                 the command that is putting it back; missing when none is
//       contents                  its files, their sizes and digests: one that has lost or changed any is not put back
//       krx/                      the product folder, with every file and folder in it
//       offline.lst               which databases were offline, when any was
//     20261123-031007.tmp/        one that is being made or removed
//
// A copy that is being put back has no "ended" either: putting back that was broken off counts as a run that died, and
// is done again.
//
// Not in it, because they are only added to and tell what the run did: the module's log and the server's console.log.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "server_folder.h"

namespace krxpatch {

/** Beside the folder itself and not beside a link to it, so that every path to the folder leads to the same copies. */
[[nodiscard]] std::filesystem::path PlaceOfCopies(const std::filesystem::path& productFolder);

struct RecoveryCopy {
    std::string id;
    std::filesystem::path productFolder;
    std::string run;                  // the description of the run that it was made for
    std::optional<std::string> ended; // when and how that run ended; unless somebody holds the server, it died without
    std::optional<std::string> restoring; // the description of the command that is putting it back, or died over that

    /** Where the copy is. */
    [[nodiscard]] std::filesystem::path Folder() const;
    /** The description of the command that died, of a copy whose run has not ended. */
    [[nodiscard]] const std::string& Dead() const { return restoring ? *restoring : run; }
};

/** What has become of a copy's files since it was made. */
struct CopyState {
    std::vector<std::string> damaged; // paths in the copy: missing, changed, or not to be read
    size_t whole = 0;                 // the other files
};

/** Reads each file of the copy. */
[[nodiscard]] CopyState Examine(const RecoveryCopy& copy);

/** "a run died: ", or what else it was, and the description. */
[[nodiscard]] std::string DescribeDeath(const std::string& description);

/** The copies of a product folder, the newest first. Writes nothing, and needs no hold. Throws Failure, as not started,
 *  when they cannot be looked at or stand behind a link. */
[[nodiscard]] std::vector<RecoveryCopy> CopiesOf(const std::filesystem::path& productFolder);

/** The copy of a run that has not ended: one that died, unless somebody holds the server. Writes nothing. */
[[nodiscard]] std::optional<RecoveryCopy> UnendedOf(const std::vector<RecoveryCopy>& copies);
[[nodiscard]] std::optional<RecoveryCopy> UnendedCopyOf(const std::filesystem::path& productFolder);

/** The description of a run that died, or of a command that died while it put one back, and whose changes are to be put
 *  back; nothing when there is none. Writes nothing, and needs no hold. */
[[nodiscard]] std::optional<std::string> DeadRunOf(const ServerFolder& server);

/** For what reads a server as a whole. Throws Failure: as held by another while a command changes it, and as not
 *  started after a run that died, as half an upgrade is no start. */
void RequireAtRest(const ServerFolder& server);

/** The bytes in the files of a folder. */
[[nodiscard]] uintmax_t SizeOf(const std::filesystem::path& folder);

// What follows changes the copies of a server that is held, while none of its databases is open.

/** How a copy's run has ended. */
namespace outcome {
inline constexpr const char* notBegun = "changed nothing";
inline constexpr const char* good = "done";
inline constexpr const char* bad = "fell short";
inline constexpr const char* putBack = "put back";
} // namespace outcome

/** Makes a copy for a run, which counts as ended until it begins. Removes older copies, but for those of runs that fell
 *  short. Throws Failure, as not started or interrupted, when it cannot be made: nothing is left of it then, and an
 *  older one stays. */
[[nodiscard]] RecoveryCopy MakeCopy(const ServerFolder& server, const std::string& run);

/** Has a copy that was put back stand for another run. */
[[nodiscard]] RecoveryCopy Reuse(const RecoveryCopy& copy, const std::string& run);

/** From here on the run changes the folder: if it dies, the next one puts the copy back. */
void MarkBegun(const RecoveryCopy& copy);

/** Notes that the copy's run has ended, and how: the next run does not put it back. On a full disk it counts as a run
 *  that fell short. */
void MarkEnded(const RecoveryCopy& copy, const char* how);

/** Removes all copies but this one. One that cannot be removed is told on standard error, and stays. */
void DiscardOthers(const RecoveryCopy& copy);

/** Removes what commands that died over the mark of a copy have left beside it. */
void RemoveHalfMarks(const std::filesystem::path& productFolder);

/** Puts everything back as it was when the copy was made (contents, times, what was offline; what was not there is
 *  removed). `description` tells of this command if it dies meanwhile. Returns the files that have no counterpart in
 *  the copy and were removed. The copy stays, and no run that died is to be put back any more. Throws Failure, as held
 *  by another, when somebody has a database open. Throws Failure when that cannot be done, or not wholly, or was
 *  interrupted: it can be done again then. */
std::vector<std::filesystem::path> PutBack(const ServerFolder& server, const RecoveryCopy& copy,
                                           const std::string& description);

/** Removes a copy. Throws Failure when that cannot be done. */
void Discard(const RecoveryCopy& copy);

} // namespace krxpatch
