#include "server_copy.h"

#include "failure.h"
#include "file_text.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"
#include "server_settings.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** It must not be the server itself, which would be copied into itself. */
fs::path PlaceForCopies(const fs::path& server) {
    std::error_code error;
    fs::path place = fs::temp_directory_path(error);
    if (error) {
        throw Failure(notStarted, "TMPDIR names no folder for temporary files: " + error.message());
    }
    place = fs::absolute(place); // as the paths of a server have to be
    RequireOutside(place, server);
    return place;
}

/** The upgrade needs the databases once more: it keeps what it replaces, and a journal holds what it changes. */
void RequireRoom(const fs::path& folder, const fs::path& products, const fs::path& program) {
    const uintmax_t needed = 2 * SizeOf(products) + 2 * SizeOf(program);
    const uintmax_t available = fs::space(folder).available;
    if (available < needed) {
        throw Failure(notStarted, folder.string() + ": the private copy of the server needs " + Megabytes(needed) +
                                      ", and " + Megabytes(available >> 20 << 20) +
                                      " are free; TMPDIR can name a folder that has more room");
    }
}

/** The files in a folder and the folders in it; a link to a file becomes the file, one to a folder is passed over. */
void CopyFiles(const fs::path& from, const fs::path& to) {
    fs::create_directories(to);
    for (const auto& entry : fs::directory_iterator(from)) {
        if (platform::IsInterrupted()) {
            throw Failure(interrupted, "interrupted; nothing was changed");
        }
        const fs::path copy = to / entry.path().filename();
        if (entry.is_directory() && !entry.is_symlink()) {
            CopyFiles(entry.path(), copy);
        } else if (entry.is_regular_file()) {
            platform::CopyFile(entry.path(), copy);
            fs::last_write_time(copy, entry.last_write_time());
        }
    }
}

} // namespace

ServerCopy::ServerCopy(const ServerFolder& server, const PatchFacts& facts)
    : folder_(PlaceForCopies(server.Path()) / "krxpatch-plan"), path_(folder_.Path()), original_(server.Path()),
      originalProgram_(facts.programFolder), program_(path_ / "install/program" / facts.programFolder.filename()) {
    RequireRoom(path_, server.ProductFolder(), facts.programFolder);
    CopyFiles(server.ProductFolder(), path_ / "data/krx");
    if (fs::is_directory(server.LogFolder())) {
        fs::create_directory(path_ / "data" / server.LogFolder().filename());
    }
    CopyFiles(facts.programFolder, program_);
    CopyIniFile(server);
    CopyOfflineList(server);
}

void ServerCopy::Remove() const noexcept {
    std::error_code ignored; // the process is about to end, and the system clears its temporary files, too
    fs::remove_all(path_, ignored);
}

std::string ServerCopy::AsOriginal(std::string text) const {
    return WithPath(WithPath(std::move(text), program_, originalProgram_), path_, original_);
}

void ServerCopy::CopyIniFile(const ServerFolder& server) const {
    WriteText(path_ / "notes.ini", WithFolders(WithPath(ReadText(server.IniFile()), original_, path_), path_));
}

/** It holds the whole paths of databases. */
void ServerCopy::CopyOfflineList(const ServerFolder& server) const {
    if (fs::exists(server.OfflineList())) {
        WriteText(path_ / server.OfflineList().filename(),
                  WithPath(ReadText(server.OfflineList()), server.ProductFolder(), path_ / "data/krx"));
    }
}

} // namespace krxpatch
