// What a run may change, as it was before: a run that dies half-way leaves this copy behind, and the next one puts it
// back before it starts anew.
//
//   data/krx.recovery/       beside the product folder; whole, or not there
//     run                    the run that it was made for
//     contents               its files and their sizes: one that has lost a file is not put back
//     krx/                   the product folder, with every file and folder in it
//     offline.lst            which databases were offline, when any was
//   data/krx.recovery.tmp/   one that is being made or removed
//
// Not in it, because they are only added to and tell what the dead run did: the module's log and the server's
// console.log.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "server_folder.h"

namespace krxpatch {

/** The description of the run that a copy of this folder was made for; nothing when there is no copy. Unless the caller
 *  holds the server, that run may still be going on. Writes nothing. */
[[nodiscard]] std::optional<std::string> RunWithCopyOf(const std::filesystem::path& productFolder);

/** The description of a run that died and whose changes are to be put back; nothing when there is none. Writes nothing,
 *  and needs no hold. */
[[nodiscard]] std::optional<std::string> DeadRunOf(const ServerFolder& server);

/** The copy of a server that is held. */
class RecoveryCopy {
public:
    /**
     * Puts back what a run that died has changed, if there is its copy, and takes that one over; else makes one. Needs
     * the session and no database open. `run` describes the run that begins. Throws Failure, as not started, when the
     * copy cannot be made: nothing is left of it then; and as failed when it cannot be put back: the copy stays, and
     * putting back can be tried again.
     */
    RecoveryCopy(const ServerFolder& server, const std::string& run);
    /** Discards the copy, if that can be done. */
    ~RecoveryCopy();
    RecoveryCopy(const RecoveryCopy&) = delete;
    RecoveryCopy& operator=(const RecoveryCopy&) = delete;

    /** Removes the copy: what the run changed is to stay. Throws Failure when it cannot be removed. */
    void Discard();

private:
    std::filesystem::path productFolder_;
};

} // namespace krxpatch
