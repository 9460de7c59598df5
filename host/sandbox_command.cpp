#include <fstream>
#include <iostream>
#include <sstream>

#include "commands.h"
#include "embedded_notes.h"
#include "path_checks.h"
#include "temporary_folder.h"

namespace krxpatch {
namespace {

constexpr std::string_view serverMark = "@SERVER@";

/** notes.ini with the server's folder in place of each mark. */
void WriteIniFile(const std::filesystem::path& sample, const std::filesystem::path& target, const std::string& server) {
    std::ostringstream text;
    text << std::ifstream(sample, std::ios::binary).rdbuf();
    std::string ini = text.str();
    for (size_t at = 0; (at = ini.find(serverMark, at)) != std::string::npos; at += server.size()) {
        ini.replace(at, serverMark.size(), server);
    }
    std::ofstream stream(target, std::ios::binary);
    stream << ini << std::flush;
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
void LayOutFile(const std::filesystem::path& sample, const std::filesystem::path& folder, const std::string& server) {
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

void LayOut(const std::filesystem::path& samples, const std::filesystem::path& target, const std::string& server) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(samples)) {
        const std::filesystem::path copy = target / entry.path().lexically_relative(samples);
        if (entry.is_directory()) {
            std::filesystem::create_directory(copy);
        } else {
            LayOutFile(entry.path(), copy.parent_path(), server);
        }
    }
}

/** The folder by its own name, without links, "." and an ending separator. */
std::filesystem::path TargetOf(const std::filesystem::path& folder) {
    const std::filesystem::path target = std::filesystem::weakly_canonical(std::filesystem::absolute(folder));
    return target.has_filename() ? target : target.parent_path();
}

void RequireNewOrEmpty(const std::filesystem::path& target) {
    RequireFolder(target.parent_path(), failed);
    if (!std::filesystem::exists(target)) {
        return;
    }
    if (!std::filesystem::is_directory(target)) {
        throw Failure(failed, target.string() + ": is a file; the sandbox needs a new or empty folder");
    }
    if (!std::filesystem::is_empty(target)) {
        throw Failure(failed, target.string() + ": is not empty; the sandbox needs a new or empty folder");
    }
}

} // namespace

ExitCode Sandbox(const SandboxOptions& options) {
    const std::filesystem::path target = TargetOf(options.folder);
    RequireNewOrEmpty(target);
    const TemporaryFolder made(target);
    const std::filesystem::path content = made.Path() / target.filename();
    std::filesystem::create_directory(content); // with the permissions that the user's folders have
    LayOut(options.samples, content, target.string());
    std::filesystem::remove(target); // an empty folder; if it is not empty any more, this throws
    std::filesystem::rename(content, target);
    std::cout << "The sample server is in " << target.string() << ". To upgrade it: krxpatch run --server "
              << target.string() << '\n';
    return succeeded;
}

} // namespace krxpatch
