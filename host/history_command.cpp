#include <iostream>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "history.h"
#include "path_checks.h"
#include "text_table.h"

namespace krxpatch {
namespace {

std::string TextOf(const Report& row, const char* member) {
    const Report value = row.value(member, Report());
    return value.is_null() ? "-" : value.is_string() ? value.get<std::string>() : value.dump();
}

} // namespace

ExitCode History(const HistoryOptions& options, Report& report) {
    RequireFolder(options.server, notStarted);
    std::vector<std::vector<std::string>> table = {
        {"WHEN", "COMMAND", "WHO", "SECONDS", "BUILD BEFORE", "BUILD AFTER", "RESULT"}};
    Report& rows = report["history"] = Report::array();
    for (const std::string& line : ReadHistory(options.server)) {
        const Report row = Report::parse(line);
        const std::string reason = TextOf(row, "reason");
        table.push_back({TextOf(row, "when"), TextOf(row, "command"), TextOf(row, "who"), TextOf(row, "seconds"),
                         TextOf(row, "buildBefore"), TextOf(row, "buildAfter"),
                         TextOf(row, "result") + (reason == "-" ? "" : ": " + reason)});
        rows.push_back(row);
    }
    std::cout << (rows.empty() ? "No command has ended here yet.\n" : FormatTable(table));
    return succeeded;
}

} // namespace krxpatch
