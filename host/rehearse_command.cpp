#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "embedded_notes.h"
#include "file_text.h"
#include "folder_walk.h"
#include "foundation/notes_text.h"
#include "new_folder.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "server_settings.h"
#include "text_table.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** What only tells of commands on the original. */
bool IsOfTheOriginal(const fs::path& name) {
    return name == "krx.recovery" || name == "krxpatch.hold" || name.extension() == ".tmp";
}

/** The files that were copied, and when each of them had last been written. */
using Copied = std::vector<std::pair<fs::path, fs::file_time_type>>;

void CopyFile(const fs::directory_entry& from, const fs::path& to) {
    platform::CopyFile(from, to); // follows links, so that the copy is a file of its own
    fs::permissions(to, fs::perms::owner_write, fs::perm_options::add); // a rehearsal writes
    fs::last_write_time(to, from.last_write_time());
}

void CopyFolder(const fs::path& from, const fs::path& to, Copied& copied) {
    fs::create_directory(to);
    WalkFolder(from, [&](const fs::directory_entry& entry, const fs::path& place) {
        if (IsOfTheOriginal(place.filename())) {
            return false;
        }
        if (entry.is_directory()) {
            fs::create_directory(to / place);
        } else {
            copied.emplace_back(entry.path(), entry.last_write_time());
            CopyFile(entry, to / place);
        }
        return true;
    });
}

/** Before a disk is filled. */
void RequireRoom(const std::vector<fs::path>& folders, const NewFolder& copy) {
    uintmax_t needed = 0;
    for (const fs::path& folder : folders) {
        WalkFolder(folder, [&](const fs::directory_entry& entry, const fs::path& place) {
            needed += entry.is_directory() ? 0 : entry.file_size();
            return !IsOfTheOriginal(place.filename());
        });
    }
    if (const uintmax_t available = fs::space(copy.Content()).available; available < needed) {
        throw Failure(notStarted, copy.Target().string() + ": too little room on the disk: the copy needs " +
                                      Megabytes(needed) + ", and " + Megabytes(available >> 20 << 20) + " are free");
    }
}

/** Nobody may have changed the server while it was copied. */
void RequireUnchanged(const Copied& copied) {
    for (const auto& [file, time] : copied) {
        if (std::error_code ignored; fs::last_write_time(file, ignored) != time) { // what is gone has another
            throw Failure(heldByAnother, file.string() + ": was changed while it was copied; stop what does that, then "
                                                         "try again");
        }
    }
}

/** Where the installed program stands; "\" separates as well. */
fs::path InstallFolderOf(const ServerFolder& server, const std::string& ini) {
    std::string text = SettingIn(ini, "VarnholtInstallPath");
    if (text.empty()) {
        throw Failure(notStarted, server.IniFile().string() + ": no VarnholtInstallPath");
    }
    std::ranges::replace(text, '\\', '/');
    return server.Path() / PathOf(text);
}

/** Copies the server and returns which of its databases are offline. */
std::vector<std::string> CopyServer(const fs::path& folder, const NewFolder& copy) {
    const ServerFolder server(folder, ServerFolder::Access::readOnly);
    RequireAtRest(server);
    const std::string ini = ReadText(server.IniFile());
    const std::pair<fs::path, const char*> folders[] = {{server.DataDirectory(), "data"},
                                                        {InstallFolderOf(server, ini), "install"}};
    RequireRoom({server.DataDirectory(), InstallFolderOf(server, ini)}, copy);
    Copied copied;
    for (const auto& [from, to] : folders) {
        CopyFolder(from, copy.Content() / to, copied);
    }
    RequireUnchanged(copied);
    WriteText(copy.Content() / "notes.ini", WithFolders(WithPath(ini, server.Path(), copy.Target()), copy.Target()));
    std::vector<std::string> offline = server.DatabaseNames();
    std::erase_if(offline, [](const std::string& name) { return EmbIsOffline(("krx/" + name).c_str()) == 0; });
    return offline;
}

/** The list of those that are offline names them by their paths, so it cannot be copied. */
void TakeOffline(const fs::path& folder, const std::vector<std::string>& names) {
    const ServerFolder server(folder, ServerFolder::Access::readWrite);
    for (const std::string& name : names) {
        const std::string file = (server.ProductFolder() / name).string();
        char path[4 * MAXPATH];
        updkrx::ToLmbcs(platform::NativeFromUtf8(file).c_str(), path, sizeof path);
        if (NSFTakeDatabaseOffline(path, 0, OFFLINE_NODELETE) != NOERROR) {
            throw Failure(failed, file + ": cannot be taken offline");
        }
    }
}

} // namespace

ExitCode Rehearse(const RehearseOptions& options) {
    RequireOutside(options.folder, options.server);
    NewFolder copy(options.folder);
    const std::vector<std::string> offline = CopyServer(options.server, copy);
    copy.PutIntoPlace();
    try {
        TakeOffline(copy.Target(), offline);
    } catch (...) {
        fs::remove_all(copy.Target());
        throw;
    }
    std::cout << "A copy for a rehearsal is in " << copy.Target().string() << "\nTo upgrade it: krxpatch run --server "
              << Quoted(copy.Target().string()) << '\n';
    return succeeded;
}

} // namespace krxpatch
