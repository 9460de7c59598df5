#include <iostream>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "log_follower.h"
#include "log_lines.h"
#include "text_table.h"

namespace krxpatch {
namespace {

/** Every line that is known and more than detail. */
void ShowWholeTable(Report& report) {
    std::vector<std::vector<std::string>> rows = {{"LINE", "MEANING"}};
    for (const LogLine& line : LogLines()) {
        if (line.kind != LineKind::detail) {
            rows.push_back({line.pattern, line.meaning});
            report["lines"].push_back({{"pattern", line.pattern}, {"meaning", line.meaning}});
        }
    }
    std::cout << FormatTable(rows);
}

/** A status is hexadecimal in the log's parentheses, with or without "0x". */
std::string MeaningOf(const std::string& text) {
    if (std::string meaning = ExplainStatus(text, false); !meaning.empty()) {
        return "Status " + meaning;
    }
    if (std::string meaning = ExplainStatus(text, true); !meaning.empty()) {
        return "Status " + meaning;
    }
    return Explain(MessageOf(text));
}

} // namespace

ExitCode ExplainText(const ExplainOptions& options, Report& report) {
    if (options.text.empty()) {
        ShowWholeTable(report);
        return succeeded;
    }
    const std::string meaning = MeaningOf(options.text);
    if (meaning.empty()) {
        throw Failure(failed, "'" + Printable(options.text) +
                                  "' is no status and no line of the log that is known; "
                                  "`krxpatch explain` without it lists those that are");
    }
    report["meaning"] = meaning;
    std::cout << meaning << '\n';
    return succeeded;
}

} // namespace krxpatch
