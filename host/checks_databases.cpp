// The checks of the databases that are there.
#include <algorithm>

#include "checks.h"
#include "patch_entries.h"
#include "platform.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

void CheckReadable(const CheckSubject& subject, Findings& findings) {
    for (const DatabaseReport& report : subject.databases) {
        if (report.error.empty()) {
            continue;
        }
        const fs::path file = subject.server.ProductFolder() / report.name;
        const bool isProduct = FindProduct(report.name) != nullptr;
        if (!isProduct) { // "missing" is also what a link leads to nothing, or a name that the platform cannot write
            findings.Warn(file, 0, report.error, "nothing for the upgrade, which leaves it alone");
        } else if (report.missing) {
            findings.Fail(file, 0, "missing: it would be upgraded by no later run either",
                          "put the database back from the backup");
        } else if (report.offline) {
            findings.Fail(file, 0, "offline: the upgrade could not open it",
                          "bring it online first: its line in " + subject.server.OfflineList().string() +
                              " keeps it offline");
        } else {
            findings.Fail(file, 0, report.error, "put the database back from the backup, or let this user read it");
        }
    }
    if (findings.All().empty()) {
        findings.Ok(std::to_string(subject.databases.size()) + " databases and templates can be read");
    }
}

void CheckUsers(const CheckSubject& subject, Findings& findings) {
    for (const DatabaseReport& report : subject.databases) {
        if (const fs::path file = subject.server.ProductFolder() / report.name; IsKeptOpen(file)) {
            findings.Fail(file, 0, "in use by another process: the upgrade would end when it comes to it",
                          "end the programs that have it open");
        }
    }
}

/** Whether there is anything to do is read from one database alone. */
void CheckBuilds(const CheckSubject& subject, Findings& findings) {
    const auto& build = subject.facts.patchBuild;
    if (!build) {
        return;
    }
    constexpr const char* deciding = "krmsg.nsf";
    const UpgradeState state = CompareWithBuild(subject.databases, *build);
    const bool decidedDone =
        std::ranges::none_of(state.behind, [](const DatabaseReport& report) { return report.name == deciding; });
    if (decidedDone && !state.Reached()) {
        findings.Fail(subject.server.ProductFolder() / deciding, 0,
                      "carries the patch's build already, so the upgrade would do nothing, though " +
                          DescribeBehind(state, *build),
                      "put the product folder back as it was before the earlier run (" +
                          CommandOn(subject.server.Path(), "restore") + ", or the backup), and run again");
    } else {
        findings.Ok(state.Reached() ? "nothing to do: all carry " + DescribeBuilds(subject.databases)
                                    : std::to_string(state.behind.size()) + " of " + std::to_string(state.databases) +
                                          " product databases are behind build " + std::to_string(*build));
    }
}

constexpr CheckRow rows[] = {
    {"databases open", CheckReadable, ofFolder},
    {"databases unused", CheckUsers, ofFolder | ofMoment},
    {"builds", CheckBuilds, ofFolder},
};

} // namespace

std::span<const CheckRow> DatabaseChecks() {
    return rows;
}

} // namespace krxpatch
