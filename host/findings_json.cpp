#include "findings_json.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace krxpatch {
namespace {

const char* NameOf(Level level) {
    return level == Level::ok ? "ok" : level == Level::warning ? "warn" : "FAIL";
}

/** The name of a check as one word. */
std::string CodeOf(std::string check) {
    std::ranges::replace(check, ' ', '-');
    return check;
}

Report ToJson(const Finding& finding) {
    return {{"check", finding.check},
            {"level", NameOf(finding.level)},
            {"file", finding.file.empty() ? Report() : Report(finding.file.string())},
            {"line", finding.line == 0 ? Report() : Report(finding.line)},
            {"message", finding.message},
            {"remedy", finding.remedy.empty() ? Report() : Report(finding.remedy)}};
}

} // namespace

void AddFindings(Report& report, const std::vector<Finding>& findings) {
    Report all = Report::array();
    Report errors = Report::array();
    for (const Finding& finding : findings) {
        all.push_back(ToJson(finding));
        if (finding.level == Level::failure) {
            errors.push_back({{"code", CodeOf(finding.check)}, {"message", Describe(finding)}});
        }
    }
    report["findings"] = std::move(all);
    report["errors"] = std::move(errors);
}

} // namespace krxpatch
