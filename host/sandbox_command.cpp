#include <fstream>
#include <iostream>
#include <sstream>

#include "commands.h"
#include "embedded_notes.h"
#include "new_folder.h"
#include "path_checks.h"
#include "server_folder.h"
#include "server_settings.h"
#include "text_table.h"

namespace krxpatch {
namespace {

/** notes.ini with the folders of the server that is made. */
void WriteIniFile(const std::filesystem::path& sample, const std::filesystem::path& target,
                  const std::filesystem::path& server) {
    std::ostringstream text;
    text << std::ifstream(sample, std::ios::binary).rdbuf();
    std::ofstream stream(target, std::ios::binary);
    stream << WithFolders(text.str(), server) << std::flush;
    if (!text || !stream) {
        throw Failure(failed, (text ? target : sample).string() + ": cannot be copied");
    }
}

void ImportDatabase(const std::filesystem::path& dxl, const std::filesystem::path& database) {
    char message[1024];
    if (EmbDxlImport(database.string().c_str(), dxl.string().c_str(), 0, message, sizeof message) != NOERROR) {
        throw Failure(failed, message);
    }
}

/** Puts one file of the samples into a folder; `server` is where the whole is going to stand. */
void LayOutFile(const std::filesystem::path& sample, const std::filesystem::path& folder,
                const std::filesystem::path& server) {
    if (sample.filename() == ".keep") {
        return; // it only makes version control keep its folder
    }
    if (sample.extension() == ".dxl") {
        ImportDatabase(sample, folder / sample.stem());
    } else if (sample.filename() == "notes.ini") {
        WriteIniFile(sample, folder / sample.filename(), server);
    } else {
        std::filesystem::copy_file(sample, folder / sample.filename());
    }
}

void LayOut(const std::filesystem::path& samples, const std::filesystem::path& target,
            const std::filesystem::path& server) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(samples)) {
        const std::filesystem::path copy = target / entry.path().lexically_relative(samples);
        if (entry.is_directory()) {
            std::filesystem::create_directory(copy);
        } else {
            LayOutFile(entry.path(), copy.parent_path(), server);
        }
    }
}

/** What `run` would refuse. */
void RequireUpgradable(const std::filesystem::path& folder) {
    const ServerFolder server(folder, ServerFolder::Access::readOnly);
    const PatchFacts facts = ReadPatchFacts(server);
    if (!facts.patchBuild) {
        throw Failure(failed, facts.problem);
    }
    if (!facts.undelivered.empty()) {
        throw Failure(failed, DescribeUndelivered(facts));
    }
}

} // namespace

ExitCode Sandbox(const SandboxOptions& options) {
    RequireFolder(options.from, failed);
    NewFolder made(options.folder);
    LayOut(options.from, made.Content(), made.Target());
    made.PutIntoPlace();
    std::cout << (options.sample ? "The sample server" : "The server") << " is in " << made.Target().string()
              << "\nTo upgrade it: krxpatch run --server " << Quoted(made.Target().string()) << std::endl;
    if (!options.sample) {
        RequireUpgradable(made.Target());
    }
    return succeeded;
}

} // namespace krxpatch
