#include <algorithm>
#include <iostream>

#include "checks.h"
#include "commands.h"
#include "common/ascii_text.h"
#include "dxl_file.h"
#include "file_text.h"
#include "folder_walk.h"
#include "new_folder.h"
#include "path_checks.h"
#include "platform.h"
#include "server_settings.h"
#include "text_table.h"

namespace krxpatch {
namespace {

/** notes.ini with the folders of the server that is made. */
void WriteIniFile(const std::filesystem::path& sample, const std::filesystem::path& target,
                  const std::filesystem::path& server) {
    WriteText(target, WithFolders(ReadText(sample), server));
}

bool IsDxl(const std::filesystem::path& file) {
    return updkrx::EqualIgnoringAsciiCase(file.extension().string(), ".dxl");
}

/** Puts one file of the samples into a folder; `server` is where the whole is going to stand. */
void LayOutFile(const std::filesystem::path& sample, const std::filesystem::path& folder,
                const std::filesystem::path& server) {
    if (sample.filename() == ".keep") {
        return; // it only makes version control keep its folder
    }
    if (IsDxl(sample)) {
        std::cout << ImportDxlFile(folder / sample.stem(), sample, 0);
    } else if (sample.filename() == "notes.ini") {
        WriteIniFile(sample, folder / sample.filename(), server);
    } else {
        platform::CopyFile(sample, folder / sample.filename());
    }
}

void LayOut(const std::filesystem::path& samples, const std::filesystem::path& target,
            const std::filesystem::path& server) {
    WalkFolder(samples, [&](const std::filesystem::directory_entry& entry, const std::filesystem::path& place) {
        if (entry.is_directory()) {
            std::filesystem::create_directory(target / place);
        } else {
            LayOutFile(entry.path(), (target / place).parent_path(), server);
        }
        return true;
    });
}

/** What `run` would refuse. The folder stays, for what is missing to be added. */
void RequireUpgradable(const std::filesystem::path& folder, bool colour) {
    std::vector<Finding> findings = CheckFolder(folder).findings;
    KeepProblems(findings);
    std::cout << FormatFindings(findings, colour);
    if (AnyFails(findings)) {
        const auto first = std::ranges::find(findings, Level::failure, &Finding::level);
        throw Failure(failed,
                      "an upgrade would fail: " + Describe(*first) + "; " + CommandOn(folder, "check") + " tells all");
    }
}

} // namespace

ExitCode Sandbox(const SandboxOptions& options) {
    RequireFolder(options.from, notStarted);
    RequireOutside(options.folder, options.from);
    NewFolder made(options.folder);
    LayOut(options.from, made.Content(), made.Target());
    made.PutIntoPlace();
    std::cout << (options.sample ? "The sample server" : "The server") << " is in " << made.Target().string()
              << std::endl;
    if (!options.sample) {
        RequireUpgradable(made.Target(), options.colour);
    }
    std::cout << "To upgrade it: krxpatch run --server " << Quoted(made.Target().string()) << '\n';
    return succeeded;
}

} // namespace krxpatch
