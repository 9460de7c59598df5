#include "database_table.h"

#include <algorithm>

#include "text_table.h"

namespace krxpatch {
namespace {

using Row = std::vector<std::string>;

/** The columns behind the builds; of a database that could not be read, the cause. */
const Row factTitles = {"OFFLINE", "DESIGN", "SIGNED", "SIGNED BY", "TITLE", "REPLICATION NOTE"};

std::string SignedNotes(const DatabaseReport& report) {
    std::string text = std::to_string(report.signedNotes) + " of " + std::to_string(report.designNotes);
    if (report.changedNotes != 0) {
        text += ", " + std::to_string(report.changedNotes) + " changed since";
    }
    return text;
}

Row FactsOf(const DatabaseReport& report) {
    if (report.missing) {
        return {"-", "-", "-", "-"};
    }
    if (!report.error.empty()) {
        return {report.offline ? "yes" : "no", "-", "-", "-", "(" + report.error + ")"};
    }
    return {report.offline ? "yes" : "no",
            report.designHidden ? "hidden" : "open",
            SignedNotes(report),
            report.signers.empty() ? "-" : Join(report.signers),
            report.title,
            report.replication.empty() ? "none" : Join(report.replication)};
}

Row operator+(Row left, const Row& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::string BuildBefore(const std::vector<DatabaseReport>& before, const DatabaseReport& after) {
    const auto found = std::find_if(before.begin(), before.end(),
                                    [&](const DatabaseReport& report) { return report.name == after.name; });
    const bool made = found == before.end() || (found->missing && !after.missing);
    return made ? "(new)" : BuildsOf(*found);
}

} // namespace

std::string FormatDatabases(const std::vector<DatabaseReport>& reports) {
    std::vector<Row> rows = {Row{"DATABASE", "BUILD"} + factTitles};
    for (const DatabaseReport& report : reports) {
        rows.push_back(Row{report.name, BuildsOf(report)} + FactsOf(report));
    }
    return FormatTable(rows);
}

std::string FormatDatabases(const std::vector<DatabaseReport>& before, const std::vector<DatabaseReport>& after) {
    std::vector<Row> rows = {Row{"DATABASE", "BUILD BEFORE", "BUILD AFTER"} + factTitles};
    for (const DatabaseReport& report : after) {
        rows.push_back(Row{report.name, BuildBefore(before, report), BuildsOf(report)} + FactsOf(report));
    }
    return FormatTable(rows);
}

} // namespace krxpatch
