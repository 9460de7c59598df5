#include "checks.h"

#include <algorithm>

#include "patch_entries.h"
#include "text_table.h"

namespace krxpatch {
namespace {

struct LevelLook {
    const char* name;
    const char* colour; // of a terminal
};

LevelLook LookOf(Level level) {
    switch (level) {
    case Level::ok:
        return {"ok", "\x1b[32m"};
    case Level::warning:
        return {"warn", "\x1b[33m"};
    case Level::failure:
        break;
    }
    return {"FAIL", "\x1b[1;31m"};
}

constexpr size_t levelWidth = 6;
constexpr size_t nameWidth = 20;

std::string Padded(std::string text, size_t width) {
    text.resize(std::max(width, text.size() + 1), ' ');
    return text;
}

std::string Format(const Finding& finding, bool colour) {
    const LevelLook look = LookOf(finding.level);
    const std::string level = Padded(look.name, levelWidth);
    std::string text = (colour ? look.colour + level + "\x1b[0m" : level) + Padded(finding.check, nameWidth) +
                       Printable(Describe(finding));
    text.resize(text.find_last_not_of(' ') + 1);
    text += '\n';
    if (!finding.remedy.empty()) {
        text += std::string(levelWidth + nameWidth, ' ') + "-> " + Printable(finding.remedy) + '\n';
    }
    return text;
}

} // namespace

CheckSubject Examine(const ServerFolder& server, bool isHeld) {
    PatchFacts facts = ReadPatchFacts(server);
    std::filesystem::path patchFile = facts.programFolder.empty() ? "" : facts.programFolder / "krxpatch.ini";
    std::vector<DatabaseReport> delivered;
    for (const std::string& entry : facts.entries) {
        const std::filesystem::path file = facts.programFolder / entry;
        std::error_code ignored; // what is missing has a check of its own
        if (IsDatabaseName(entry) && std::filesystem::is_regular_file(file, ignored)) {
            delivered.push_back(ReadDatabaseFile(entry, file));
        }
    }
    return {server,    isHeld,           ConfigFile(server.IniFile()),          ConfigFile(patchFile),
            patchFile, std::move(facts), ReadDatabases(server.DatabaseNames()), std::move(delivered)};
}

std::vector<Finding> RunChecks(const CheckSubject& subject, bool afterDeadRun) {
    std::vector<Finding> all;
    for (const auto& rows : {SettingsChecks(), FolderChecks(), PatchChecks(), DatabaseChecks()}) {
        for (const CheckRow& row : rows) {
            if (afterDeadRun && row.ofFolder) {
                continue;
            }
            Findings findings;
            row.check(subject, findings);
            if (findings.All().empty()) {
                findings.Ok("");
            }
            for (Finding finding : findings.All()) {
                finding.check = row.name;
                all.push_back(std::move(finding));
            }
        }
    }
    return all;
}

bool AnyFails(const std::vector<Finding>& findings) {
    return std::ranges::any_of(findings, [](const Finding& finding) { return finding.level == Level::failure; });
}

std::string Describe(const Finding& finding) {
    std::string place = finding.file.string();
    if (finding.line != 0) {
        place += ":" + std::to_string(finding.line);
    }
    return place + (place.empty() ? "" : ": ") + finding.message;
}

std::string DescribeFailures(const std::vector<Finding>& findings) {
    std::string first;
    size_t others = 0;
    for (const Finding& finding : findings) {
        if (finding.level == Level::failure) {
            others += !first.empty();
            first = first.empty() ? Describe(finding) : first;
        }
    }
    return first + (others == 0 ? "" : " (and " + std::to_string(others) + " more)");
}

std::string FormatFindings(const std::vector<Finding>& findings, bool onlyBad, bool colour) {
    std::string text;
    for (const Finding& finding : findings) {
        if (!onlyBad || finding.level != Level::ok) {
            text += Format(finding, colour);
        }
    }
    return text;
}

} // namespace krxpatch
