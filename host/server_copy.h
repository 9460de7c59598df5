// A private copy of what an upgrade reads and writes, on which it can be tried.
#pragma once

#include <filesystem>
#include <string>

#include "server_folder.h"
#include "temporary_folder.h"

namespace krxpatch {

/**
 * In the system's folder for temporary files, for as long as this object lives: the product's databases, the newest
 * program folder, the offline list, and a notes.ini all of whose paths lead into the copy. Nothing of the server folder
 * is written.
 */
class ServerCopy {
public:
    /** Needs the session. Throws Failure, as not started, when there is no room for the copy, or as interrupted. */
    ServerCopy(const ServerFolder& server, const PatchFacts& facts);

    /** The server folder that the copy is. */
    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path_; }

    /** Before this object's life is over, for a process that ends at once. */
    void Remove() const noexcept;

    /** A text with the server's own paths in place of the copy's. */
    [[nodiscard]] std::string AsOriginal(std::string text) const;

private:
    void CopyIniFile(const ServerFolder& server) const;
    void CopyOfflineList(const ServerFolder& server) const;

    TemporaryFolder folder_;
    std::filesystem::path path_;
    std::filesystem::path original_;
    std::filesystem::path originalProgram_;
    std::filesystem::path program_;
};

} // namespace krxpatch
