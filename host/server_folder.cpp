#include "server_folder.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <limits>
#include <set>

#include "common/ascii_text.h"
#include "config_file.h"
#include "embedded_notes.h"
#include "failure.h"
#include "foundation/ini_file.h"
#include "foundation/install_paths.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
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

constexpr const char* configSection = "Config";

/** What the patch is to install. */
std::vector<std::string> EntriesIn(const updkrx::IniFile& config) {
    char value[valueSize] = "";
    int size = sizeof value;
    (void)config.GetValue(configSection, "Databases", value, &size); // without it there is nothing to deliver
    std::vector<std::string> names;
    updkrx::SplitCommaList(names, value);
    return names;
}

/** A name that leads out of the product's folder; null when there is none. */
const std::string* FindPath(const std::vector<std::string>& names) {
    const auto found = std::ranges::find_if(
        names, [](const std::string& name) { return name.find_first_of("/\\") != std::string::npos; });
    return found == names.end() ? nullptr : &*found;
}

bool CanBeRead(const std::filesystem::path& file) {
    std::error_code ignored; // what cannot be looked at cannot be read
    return std::filesystem::is_regular_file(file, ignored) && std::ifstream(file).good();
}

std::vector<std::string> FindUndelivered(const std::vector<std::string>& names,
                                         const std::filesystem::path& programFolder) {
    std::vector<std::string> undelivered;
    for (const std::string& name : names) {
        if (const std::filesystem::path file = programFolder / HostPath(name); !name.empty() && !CanBeRead(file)) {
            undelivered.push_back(file.string());
        }
    }
    return undelivered;
}

} // namespace

ServerFolder::ServerFolder(const std::filesystem::path& folder, Access access, bool mayLackProduct)
    : path_(std::filesystem::absolute(folder).lexically_normal()) {
    RequireFolder(folder, notStarted);
    char message[1024];
    const DWORD options = access == Access::readOnly ? EMB_SESSION_READ_ONLY : 0;
    if (EmbSessionBegin(IniFile().string().c_str(), options, message, sizeof message) != NOERROR) {
        const std::string why = platform::WhyUnreadable(IniFile());
        if (ConfigFile(IniFile()).Bytes().find('\0') != std::string::npos) {
            throw Failure(notStarted, IniFile().string() + ":1: is UTF-16, of which the product reads nothing");
        }
        throw Failure(notStarted, why.empty() ? message : IniFile().string() + ": cannot be read: " + why);
    }
    dataDirectory_ = ReadDataDirectory();
    if (const std::string problem = FindProblem(mayLackProduct); !problem.empty()) {
        EmbSessionEnd();
        throw Failure(notStarted, problem);
    }
}

std::string ServerFolder::FindProblem(bool mayLackProduct) const {
    const std::string setting = IniFile().string() + ": Directory=" + dataDirectory_.string();
    if (!dataDirectory_.is_absolute()) { // the module would take it from wherever this program was started
        return setting + " is not an absolute path";
    }
    // The notes.ini of a copied server still names the folders of the original, which a rehearsal must not touch.
    if (!IsBelow(dataDirectory_, path_)) {
        return setting + " lies outside this server folder";
    }
    const std::string product = ProductFolder().string();
    const std::string why = platform::WhyUnreadable(ProductFolder());
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(ProductFolder(), error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return mayLackProduct ? "" : product + ": no folder with the product's databases";
    }
    return !why.empty() ? product + ": cannot be read: " + why : is_directory(status) ? "" : product + ": is no folder";
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
        const auto setting = ConfigFile(server.IniFile()).Find("", "VarnholtInstallPath");
        const std::filesystem::path programs = PathOf(setting ? setting->value : "") / "program";
        if (const std::string why = platform::WhyUnreadable(programs); setting && !why.empty()) {
            facts.problem += ": " + programs.string() + ": " + why;
        }
        return facts;
    }
    if (std::strlen(folder) + 1 == sizeof folder) { // the module would go on with the rest of it
        facts.problem = server.IniFile().string() +
                        ": the path of the newest program folder below VarnholtInstallPath" + " is longer than " +
                        std::to_string(sizeof folder - 2) + " bytes";
        return facts;
    }
    facts.programFolder = HostPath(folder);
    const updkrx::VersionNumbers version = updkrx::ParseVersionDirName(facts.programFolder.filename().string());
    for (const int32_t number : version) {
        facts.installedVersion += (facts.installedVersion.empty() ? "" : ".") + std::to_string(number);
    }
    facts.installedBuild = version.back();
    const std::string file = (facts.programFolder / "krxpatch.ini").string();
    updkrx::IniFile config;
    if (config.Load(platform::NativeFromUtf8(file).c_str()) != updkrx::IDD_ERR_ZERO) {
        const std::string why = platform::WhyUnreadable(file);
        facts.problem = file + ": cannot be read: " + (why.empty() ? "it is no text file" : why);
        return facts;
    }
    facts.entries = EntriesIn(config);
    char value[valueSize];
    int size = sizeof value;
    if (config.GetValue(configSection, "BuildNumber", value, &size) != updkrx::IDD_ERR_ZERO) {
        facts.problem = file + ": no BuildNumber in section Config";
    } else if (const int32_t build = updkrx::NumberOf(value);
               build <= 0 ||
               build == std::numeric_limits<int32_t>::max()) { // the latter stands for all that are too large
        facts.problem = file + ": BuildNumber=" + value + " is no build number";
    } else if (const std::string* path = FindPath(facts.entries)) {
        facts.problem = file + ": Databases= names " + *path + ", which is a path and no file name";
    } else {
        facts.patchBuild = build;
        facts.undelivered = FindUndelivered(facts.entries, facts.programFolder);
        size = sizeof value;
        facts.signsDelivered = config.GetValue(configSection, "SkipDbSign", value, &size) != updkrx::IDD_ERR_ZERO ||
                               updkrx::NumberOf(value) == 0;
    }
    return facts;
}

std::string DescribeUndelivered(const PatchFacts& facts) {
    return Join(facts.undelivered) + ": cannot be read, though krxpatch.ini names it in Databases=";
}

std::string BuildText(int32_t build) {
    return "5.8.0." + std::to_string(build);
}

} // namespace krxpatch
