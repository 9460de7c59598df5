// A server folder: notes.ini, the data directory with the product's databases in krx/, and the installed program.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace krxpatch {

/** A server folder with the process's Notes session on it, which ends with this object. */
class ServerFolder {
public:
    enum class Access { readOnly, readWrite };

    /** Throws Failure, as not started, when there is no session to be had, when the data directory is not an absolute
     *  path or lies outside, or when there is no folder krx, unless it may be missing. */
    ServerFolder(const std::filesystem::path& folder, Access access, bool mayLackProduct = false);
    ~ServerFolder();
    ServerFolder(const ServerFolder&) = delete;
    ServerFolder& operator=(const ServerFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path_; }
    [[nodiscard]] std::filesystem::path IniFile() const { return path_ / "notes.ini"; }
    /** Absolute. */
    [[nodiscard]] const std::filesystem::path& DataDirectory() const noexcept { return dataDirectory_; }
    [[nodiscard]] std::filesystem::path ProductFolder() const { return dataDirectory_ / "krx"; }
    /** Where the server keeps which databases are offline; no file when none is. */
    [[nodiscard]] std::filesystem::path OfflineList() const { return path_ / "offline.lst"; }
    /** What the console was sent; no file before the first line. */
    [[nodiscard]] std::filesystem::path ConsoleLog() const { return path_ / "console.log"; }
    /** Where the module writes its log. */
    [[nodiscard]] std::filesystem::path LogFolder() const { return dataDirectory_ / "krxtemp"; }

    /** The names of the databases and templates in the product folder, and of those of the product's table that should
     *  be there, sorted. */
    [[nodiscard]] std::vector<std::string> DatabaseNames() const;

private:
    [[nodiscard]] std::string FindProblem(bool mayLackProduct) const;

    std::filesystem::path path_;
    std::filesystem::path dataDirectory_;
};

/** What the newest program folder says. */
struct PatchFacts {
    std::filesystem::path programFolder; // the newest; empty when there is none
    std::string installedVersion;        // such as 5.8.0.3050; empty without a program folder
    std::optional<int32_t> installedBuild;
    std::optional<int32_t> patchBuild;
    std::string problem;                  // why one of them is missing: one line that names the file and the cause
    std::vector<std::string> entries;     // of Databases=, as they stand there
    std::vector<std::string> undelivered; // paths of files that the patch is to install and that cannot be read
    bool signsDelivered = true;           // the patch's files, and not only the databases of the product's table
};

/** Needs the session. */
[[nodiscard]] PatchFacts ReadPatchFacts(const ServerFolder& server);

/** Which files the patch does not bring, in one line, when there are some. */
[[nodiscard]] std::string DescribeUndelivered(const PatchFacts& facts);

/** A build number as the product writes it. */
[[nodiscard]] std::string BuildText(int32_t build);

} // namespace krxpatch
