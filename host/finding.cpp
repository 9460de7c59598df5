#include "finding.h"

#include <algorithm>

#include "text_table.h"

namespace krxpatch {
namespace {

const char* ColourOf(Level level) {
    switch (level) {
    case Level::ok:
        return "\x1b[32m";
    case Level::warning:
        return "\x1b[33m";
    case Level::failure:
        break;
    }
    return "\x1b[1;31m";
}

constexpr size_t levelWidth = 6;
constexpr size_t subjectWidth = 20;

std::string Padded(std::string text, size_t width) {
    text.resize(std::max(width, text.size() + 1), ' ');
    return text;
}

std::string Format(const Finding& finding, bool colour) {
    const std::string level = Padded(NameOf(finding.level), levelWidth);
    std::string text = (colour ? ColourOf(finding.level) + level + "\x1b[0m" : level) +
                       Padded(Printable(finding.subject), subjectWidth) + Printable(Describe(finding));
    text.resize(text.find_last_not_of(' ') + 1);
    text += '\n';
    if (!finding.remedy.empty()) {
        text += std::string(levelWidth + subjectWidth, ' ') + "-> " + Printable(finding.remedy) + '\n';
    }
    return text;
}

} // namespace

const char* NameOf(Level level) {
    switch (level) {
    case Level::ok:
        return "ok";
    case Level::warning:
        return "warn";
    case Level::failure:
        break;
    }
    return "FAIL";
}

bool AnyFails(const std::vector<Finding>& findings) {
    return std::ranges::any_of(findings, [](const Finding& finding) { return finding.level == Level::failure; });
}

std::string Describe(const Finding& finding) {
    std::string place = finding.file.string();
    if (finding.line != 0) {
        place += ":" + std::to_string(finding.line);
    }
    return place + (place.empty() ? "" : ": ") + finding.text;
}

std::string DescribeWithRemedy(const Finding& finding) {
    std::string remedy = finding.remedy.empty() ? "" : ". " + finding.remedy;
    if (constexpr size_t first = 2; remedy.size() > first && remedy[first] >= 'a' && remedy[first] <= 'z') {
        remedy[first] = static_cast<char>(remedy[first] - 'a' + 'A');
    }
    return Describe(finding) + remedy;
}

std::string FormatFindings(const std::vector<Finding>& findings, bool colour) {
    std::string text;
    for (const Finding& finding : findings) {
        text += Format(finding, colour);
    }
    return text;
}

void KeepProblems(std::vector<Finding>& findings) {
    std::erase_if(findings, [](const Finding& finding) { return finding.level == Level::ok; });
}

} // namespace krxpatch
