#include "server_folder.h"

#include <algorithm>
#include <set>

#include "common/ascii_text.h"
#include "embedded_notes.h"
#include "failure.h"
#include "foundation/ini_file.h"
#include "foundation/install_paths.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
#include "patch/patch_config.h"
#include "path_checks.h"
#include "platform.h"
#include "text_table.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

constexpr size_t valueSize = 4096; // more than a line of krxpatch.ini can hold

/** A path of the product, in which "\" separates as well. */
std::filesystem::path HostPath(std::string_view native) {
    std::string text = platform::Utf8FromNative(native);
    std::replace(text.begin(), text.end(), '\\', '/');
    return PathOf(text);
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

constexpr const char* configSection = "Config";

std::vector<std::string> FindUndelivered(const updkrx::IniFile& config, const std::filesystem::path& programFolder) {
    char value[valueSize] = "";
    int size = sizeof value;
    (void)config.GetValue(configSection, "Databases", value, &size); // without it there is nothing to deliver
    std::vector<std::string> names;
    updkrx::SplitCommaList(names, value);
    std::vector<std::string> undelivered;
    for (const std::string& name : names) {
        const std::filesystem::path file = programFolder / HostPath(name);
        if (std::error_code ignored; !std::filesystem::is_regular_file(file, ignored) && !name.empty()) {
            undelivered.push_back(file.string());
        }
    }
    return undelivered;
}

} // namespace

ServerFolder::ServerFolder(const std::filesystem::path& folder, Access access)
    : path_(std::filesystem::absolute(folder).lexically_normal()) {
    RequireFolder(folder, notStarted);
    char message[1024];
    const DWORD options = access == Access::readOnly ? EMB_SESSION_READ_ONLY : 0;
    if (EmbSessionBegin(IniFile().string().c_str(), options, message, sizeof message) != NOERROR) {
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
    std::set<std::string> names;
    for (const updkrx::ProductDatabase& product : updkrx::ProductDatabases) {
        names.insert(product.databaseName);
    }
    for (const auto& entry : std::filesystem::directory_iterator(ProductFolder())) {
        const std::filesystem::path extension = entry.path().extension();
        if (extension == ".nsf" || extension == ".ntf") {
            names.insert(entry.path().filename().string());
        }
    }
    return {names.begin(), names.end()};
}

PatchFacts ReadPatchFacts(const ServerFolder& server) {
    PatchFacts facts;
    char folder[MAXPATH];
    if (updkrx::GetComponentPath(updkrx::programComponent, folder, sizeof folder) == nullptr) {
        facts.problem = server.IniFile().string() + ": no program folder below VarnholtInstallPath";
        return facts;
    }
    const std::filesystem::path programFolder = HostPath(folder);
    facts.installedBuild = updkrx::ParseVersionDirName(programFolder.filename().string()).back();
    const std::string file = (programFolder / "krxpatch.ini").string();
    updkrx::IniFile config;
    char value[valueSize];
    int size = sizeof value;
    if (config.Load(platform::NativeFromUtf8(file).c_str()) != updkrx::IDD_ERR_ZERO) {
        facts.problem = file + ": cannot be read";
    } else if (config.GetValue(configSection, "BuildNumber", value, &size) != updkrx::IDD_ERR_ZERO) {
        facts.problem = file + ": no BuildNumber in section Config";
    } else if (const int32_t build = updkrx::NumberOf(value); build <= 0) {
        facts.problem = file + ": BuildNumber=" + value + " is no build number";
    } else {
        facts.patchBuild = build;
        facts.undelivered = FindUndelivered(config, programFolder);
    }
    return facts;
}

std::string DescribeUndelivered(const PatchFacts& facts) {
    return Join(facts.undelivered) + ": not there, though krxpatch.ini names it in Databases=";
}

std::string BuildText(int32_t build) {
    return "5.8.0." + std::to_string(build);
}

} // namespace krxpatch
