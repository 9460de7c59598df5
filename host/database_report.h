// The facts of one database that an upgrade changes, read through the Notes API.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace krxpatch {

struct DatabaseReport {
    std::string name;     // of the file in the product folder
    std::string error;    // why it could not be read, empty when it could; what follows then means nothing
    bool missing = false; // it could not be read because there is no such file
    bool offline = false;
    std::string title;
    std::string templateName;        // that its design is known by; empty when it is no template
    std::string inheritsFrom;        // the template that its design comes from; empty when it comes from none
    std::vector<std::string> builds; // the build text of each help note, empty where the note has none
    bool designHidden = false;
    size_t designNotes = 0;
    size_t formsAndViews = 0;             // of the design notes
    size_t signedNotes = 0;               // of the design notes
    size_t changedNotes = 0;              // of the signed notes, those that were changed afterwards
    std::vector<std::string> signers;     // by name
    std::vector<std::string> replication; // the title of each replication note
};

/** Whether another program keeps a database open. A reader like this one lets go of it in a moment. */
[[nodiscard]] bool IsKeptOpen(const std::filesystem::path& file);

/** Needs a session; opens the database for the length of the call. */
[[nodiscard]] DatabaseReport ReadDatabase(const std::string& name);

/** The same of a database anywhere. `name` is what the report is known by. */
[[nodiscard]] DatabaseReport ReadDatabaseFile(const std::string& name, const std::filesystem::path& file);

[[nodiscard]] std::vector<DatabaseReport> ReadDatabases(const std::vector<std::string>& names);

/** The builds of a database in one text: "none" when it has no help note, "missing" when there is no database. */
[[nodiscard]] std::string BuildsOf(const DatabaseReport& report);

/** The highest build that any of these databases carries; 0 when none carries one. */
[[nodiscard]] int32_t HighestBuild(const std::vector<DatabaseReport>& reports);

/** What the product's databases among these carry: "5.8.0.3050", or "5.8.0.3001 to 5.8.0.3050"; "none" when none
 *  carries a build. */
[[nodiscard]] std::string DescribeBuilds(const std::vector<DatabaseReport>& reports);

/** How far the product's databases, those of its table, have come. */
struct UpgradeState {
    size_t databases = 0;
    std::vector<DatabaseReport> behind; // those that do not carry the build

    [[nodiscard]] bool Reached() const noexcept { return behind.empty(); }
};

/** A database reaches a build when each of its help notes carries it or a later one; one without a help note has
 *  nowhere to carry it and is not held back by that. A missing or unreadable one has not reached it. */
[[nodiscard]] UpgradeState CompareWithBuild(const std::vector<DatabaseReport>& reports, int32_t build);

/** Which databases do not carry the build, in one line: the first few by name, with what they carry instead. */
[[nodiscard]] std::string DescribeBehind(const UpgradeState& state, int32_t build);

/** The first of the product's databases and templates in a folder that cannot be read, in one line; empty when all
 *  can. */
[[nodiscard]] std::string DescribeError(const std::filesystem::path& folder,
                                        const std::vector<DatabaseReport>& reports);

} // namespace krxpatch
