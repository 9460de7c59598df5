#include "server_folder.h"

#include <algorithm>

#include "common/ascii_text.h"
#include "embedded_notes.h"
#include "failure.h"
#include "foundation/ini_file.h"
#include "foundation/install_paths.h"
#include "foundation/notes_text.h"

namespace krxpatch {
namespace {

/** A path of the product, in which "\" separates as well. */
std::filesystem::path HostPath(std::string text) {
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

std::filesystem::path ReadDataDirectory() {
    char lmbcs[MAXPATH] = "";
    (void)OSGetDataDirectory(lmbcs); // its length; the text is terminated
    char native[4 * MAXPATH];
    updkrx::ToNative(lmbcs, native, sizeof native);
    return HostPath(native);
}

bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder) {
    std::error_code ignored; // a path that cannot be resolved is below nothing
    const auto inner = std::filesystem::weakly_canonical(path, ignored);
    const auto outer = std::filesystem::weakly_canonical(folder, ignored);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

} // namespace

ServerFolder::ServerFolder(const std::filesystem::path& folder, Access access)
    : path_(std::filesystem::absolute(folder).lexically_normal()) {
    char message[1024];
    const DWORD options = access == Access::readOnly ? EMB_SESSION_READ_ONLY : 0;
    if (EmbSessionBegin(IniFile().c_str(), options, message, sizeof message) != NOERROR) {
        throw Failure(notStarted, message);
    }
    dataDirectory_ = ReadDataDirectory();
    // The notes.ini of a copied server still names the folders of the original, which a rehearsal must not touch.
    if (dataDirectory_.is_absolute() && !IsBelow(dataDirectory_, path_)) {
        EmbSessionEnd();
        throw Failure(notStarted, IniFile().string() + ": Directory=" + dataDirectory_.string() +
                                      " lies outside this server folder");
    }
    if (std::error_code ignored; !std::filesystem::is_directory(ProductFolder(), ignored)) {
        EmbSessionEnd();
        throw Failure(notStarted, ProductFolder().string() + ": no folder with the product's databases");
    }
}

ServerFolder::~ServerFolder() {
    EmbSessionEnd();
}

std::vector<std::string> ServerFolder::DatabaseNames() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(ProductFolder())) {
        const std::filesystem::path extension = entry.path().extension();
        if (extension == ".nsf" || extension == ".ntf") {
            names.push_back(entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

PatchFacts ReadPatchFacts(const ServerFolder& server) {
    char folder[MAXPATH];
    if (updkrx::GetComponentPath(updkrx::programComponent, folder, sizeof folder) == nullptr) {
        return {{}, {}, server.IniFile().string() + ": no program folder below VarnholtInstallPath"};
    }
    const std::filesystem::path programFolder = HostPath(folder);
    PatchFacts facts{updkrx::ParseVersionDirName(programFolder.filename().string()).back(), {}, {}};
    const std::string file = (programFolder / "krxpatch.ini").string();
    updkrx::IniFile config;
    char value[4096];
    int size = sizeof value;
    if (config.Load(file.c_str()) != updkrx::IDD_ERR_ZERO) {
        facts.problem = file + ": cannot be read";
    } else if (config.GetValue("Config", "BuildNumber", value, &size) != updkrx::IDD_ERR_ZERO) {
        facts.problem = file + ": no BuildNumber in section Config";
    } else if (const int32_t build = updkrx::NumberOf(value); build <= 0) {
        facts.problem = file + ": BuildNumber=" + value + " is no build number";
    } else {
        facts.patchBuild = build;
    }
    return facts;
}

std::string BuildText(int32_t build) {
    return "5.8.0." + std::to_string(build);
}

} // namespace krxpatch
