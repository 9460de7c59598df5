#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "embedded_notes.h"
#include "foundation/notes_text.h"
#include "hold.h"
#include "new_folder.h"
#include "platform.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "server_settings.h"
#include "text_table.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** The folders from the top down to one whose content is being copied, by their own names. */
using Chain = std::vector<fs::path>;

/** What only tells of commands on the original. */
bool IsOfTheOriginal(const fs::path& name) {
    return name.string().find(".recovery") != std::string::npos || name == "krxpatch.hold";
}

void CopyFile(const fs::path& from, const fs::path& to) {
    fs::copy_file(from, to); // follows links, so that the copy is a file of its own
    fs::permissions(to, fs::perms::owner_write, fs::perm_options::add); // a rehearsal writes
    fs::last_write_time(to, fs::last_write_time(from));
}

/** Copies what is in a folder, and what links in it lead to. Throws Failure for a link that leads back up. */
void CopyFolder(const fs::path& from, const fs::path& to, Chain& above) {
    const fs::path own = fs::canonical(from);
    if (std::ranges::find(above, own) != above.end()) {
        throw Failure(failed, from.string() + ": is a link to a folder that it lies in");
    }
    above.push_back(own);
    fs::create_directory(to);
    for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
        const fs::path name = entry.path().filename();
        if (IsOfTheOriginal(name)) {
            continue;
        }
        if (entry.is_directory()) {
            CopyFolder(entry.path(), to / name, above);
        } else if (entry.is_regular_file()) {
            CopyFile(entry.path(), to / name);
        } else {
            throw Failure(failed, entry.path().string() + ": is neither a file nor a folder, or a link to nothing");
        }
    }
    above.pop_back();
}

std::string ReadText(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    if (!text) {
        throw Failure(failed, file.string() + ": cannot be read");
    }
    return text.str();
}

void WriteText(const fs::path& file, const std::string& text) {
    std::ofstream stream(file, std::ios::binary);
    if (!(stream << text << std::flush)) {
        throw Failure(failed, file.string() + ": cannot be written");
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

/** Nobody may change the server while it is copied, and half an upgrade is no start for a rehearsal. */
void RequireAtRest(const ServerFolder& server) {
    if (const auto holder = HolderOf(server.DataDirectory())) {
        throw Failure(heldByAnother, server.Path().string() + ": is being changed: " + *holder);
    }
    if (const auto run = DeadRunOf(server)) {
        throw Failure(notStarted, server.Path().string() + ": a run died: " + *run +
                                      "; first `krxpatch restore` is to put back what it has changed");
    }
}

/** Copies the server and returns which of its databases are offline. */
std::vector<std::string> CopyServer(const fs::path& folder, const NewFolder& copy) {
    const ServerFolder server(folder, ServerFolder::Access::readOnly);
    RequireAtRest(server);
    const std::string ini = ReadText(server.IniFile());
    const std::pair<fs::path, const char*> folders[] = {{server.DataDirectory(), "data"},
                                                        {InstallFolderOf(server, ini), "install"}};
    for (const auto& [from, to] : folders) {
        Chain above;
        CopyFolder(from, copy.Content() / to, above);
    }
    WriteText(copy.Content() / "notes.ini", WithFolders(ini, copy.Target()));
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
