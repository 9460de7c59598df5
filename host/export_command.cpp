#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string_view>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "config_file.h"
#include "embedded_notes.h"
#include "file_text.h"
#include "json_report.h"
#include "patch_entries.h"
#include "path_checks.h"
#include "platform.h"
#include "server_settings.h"
#include "temporary_folder.h"
#include "watched_work.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** The report goes past standard output as a stream: a command that prints none itself has that silenced. */
[[noreturn]] void EndInterrupted(bool json) {
    const std::string text = "interrupted; nothing is exported";
    if (json) {
        std::puts(HeadOf("export", interrupted, {{NameOf(interrupted), text}}).dump(2).c_str());
        (void)std::fflush(stdout); // the process ends in any case
    }
    std::cerr << "krxpatch: " << text << std::endl;
    std::_Exit(interrupted);
}

/** Makes the file in a folder that goes away when the command is interrupted. What goes wrong with it is told of the
 *  file that it is made for. */
void ExportToFolder(const ExportOptions& options, const fs::path& folder, const fs::path& dxl,
                    const fs::path& madeFor) {
    platform::NoteInterrupts();
    DoWatched(
        [&] {
            char message[1024];
            const DWORD flags = options.stable ? EMB_DXL_STABLE : 0;
            if (EmbDxlExport(options.database.string().c_str(), dxl.string().c_str(), flags, message, sizeof message) !=
                NOERROR) {
                throw Failure(failed, WithPath(message, dxl, madeFor));
            }
        },
        [&] {
            if (platform::IsInterrupted()) {
                std::error_code ignored; // the process ends in any case
                fs::remove_all(folder, ignored);
                EndInterrupted(options.json);
            }
        });
}

void ExportToFile(const ExportOptions& options, const fs::path& target) {
    const TemporaryFolder folder(target);
    const fs::path dxl = folder.Path() / "export.dxl"; // short: the target's name may be as long as the system allows
    ExportToFolder(options, folder.Path(), dxl, target);
    fs::rename(dxl, target);
}

/** By way of a file, so that a database that turns out to be damaged prints nothing instead of a part. */
void ExportToStream(const ExportOptions& options, std::ostream& out) {
    const TemporaryFolder folder(fs::temp_directory_path() / "krxpatch");
    const fs::path dxl = folder.Path() / "export.dxl";
    ExportToFolder(options, folder.Path(), dxl, dxl);
    ReadFile(dxl, [&](std::string_view part) { out << part; });
    out << std::flush;
}

/** Two names in the wrong order are soon typed, and a database is gone. */
void RequireNoDatabase(const fs::path& target) {
    constexpr std::string_view beginning = "SQLite format 3";
    std::string bytes(beginning.size(), '\0');
    std::ifstream(target, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (bytes == beginning || IsDatabaseName(LowerCase(target.filename().string()))) {
        throw Failure(notStarted, target.string() + ": is a database, which DXL does not take the place of, also not "
                                                    "with --force: give the DXL another name");
    }
}

/** What a name stands for that is there already. A link stays one, and a device, which can only be written to, stays
 *  what it is. */
void ExportOver(const ExportOptions& options) {
    if (fs::is_regular_file(options.dxl)) {
        ExportToFile(options, fs::canonical(options.dxl));
        return;
    }
    WriteFile(
        options.dxl, [&](std::ostream& device) { ExportToStream(options, device); }, options.dxl);
}

} // namespace

ExitCode Export(const ExportOptions& options) {
    RequireFile(options.database);
    if (options.dxl.empty() || options.dxl == "-") {
        ExportToStream(options, std::cout);
        return succeeded;
    }
    RequirePlaceForFile(options.dxl);
    if (fs::is_regular_file(options.dxl)) {
        RequireNoDatabase(options.dxl);
    }
    if (!fs::exists(fs::symlink_status(options.dxl))) {
        ExportToFile(options, options.dxl);
    } else if (options.force) {
        ExportOver(options);
    } else {
        throw Failure(notStarted, options.dxl.string() + ": exists already (--force replaces it)");
    }
    return succeeded;
}

} // namespace krxpatch
