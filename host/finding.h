// What a check before an upgrade, or an examination after it, has found.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace krxpatch {

enum class Level { ok, warning, failure };

/** "ok", "warn" or "FAIL". */
[[nodiscard]] const char* NameOf(Level level);

struct Finding {
    Level level = Level::ok;
    std::string subject;        // what was looked at: the name of a check, a database, a file, "console"
    std::filesystem::path file; // that is to be corrected; may be empty
    size_t line = 0;            // of the file; 0 when it is not about one
    std::string text;           // what is wrong, cause first; for ok what was looked at
    std::string remedy;         // what to do; empty for ok
};

[[nodiscard]] bool AnyFails(const std::vector<Finding>& findings);

/** In the form FILE:LINE: text, or the text alone. */
[[nodiscard]] std::string Describe(const Finding& finding);

/** The same with what to do as a sentence of its own. */
[[nodiscard]] std::string DescribeWithRemedy(const Finding& finding);

/** One line for each finding, with what to do below it. */
[[nodiscard]] std::string FormatFindings(const std::vector<Finding>& findings, bool colour);

/** Leaves out those that are ok: that all is well with a database goes without saying beside its row in a table. */
void KeepProblems(std::vector<Finding>& findings);

} // namespace krxpatch
