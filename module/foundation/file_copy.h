// Copying one file over another.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace updkrx {

/** What became of a copy. */
enum CopyResult : int32_t {
    copied = 0,
    copyPathInvalid = -1,      // a path is empty, or the source is a pattern or a folder
    copySourceUnreadable = -2, // the source cannot be opened
    copyReadFailed = -3,       // the source cannot be read to its end
    copyWriteFailed = -4,      // less could be written than was read
    copyTargetUnwritable = -5, // the destination's folder cannot be made, or the destination cannot be written
    copyTargetExists = -6,     // the destination exists and must not be overwritten
};

/**
 * Copies a file, making the folders above the destination if need be. Both paths are native text. The destination is
 * replaced in one step once all bytes are on the disk: until then, and after every failure, it is what it was, and
 * nothing is left beside it. Running out of memory is a copyWriteFailed.
 */
[[nodiscard]] CopyResult CopyPath(const std::string& source, const std::string& destination, bool overwrite) noexcept;

/**
 * Copies over a file that others may keep open. Where they keep it from being replaced, which some systems allow, it is
 * written in place: its old content is kept beside it meanwhile, and put back after a failure, or by the next call when
 * a run has died. The results are those of CopyPath.
 */
[[nodiscard]] CopyResult CopyUnderReaders(const std::string& source, const std::string& destination) noexcept;

/** Puts back the old contents that runs have left kept in a folder: those of files with `name` in their names, as they
 *  died while they wrote one of them in place, or failed to put it back. Each is logged. */
void FinishCopiesOfDeadRun(const std::string& folder, std::string_view name);

} // namespace updkrx
