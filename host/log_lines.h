// The lines of the module's log that a person meets, and what each means: one table, for the steps that a run shows,
// for `log` and `explain`, and for the cause of a run that fell short.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace krxpatch {

enum class LineKind {
    step,    // a part of the run begins
    news,    // an outcome that a person wants to know
    detail,  // for support only
    wait,    // something is tried again
    failure, // something was not done; the run went on
    ending,  // the run did nothing more
};

struct LogLine {
    const char* pattern; // of the message; "*" is any run of characters
    LineKind kind;
    const char* step; // what a run shows when it begins; null for other kinds
    const char* meaning;
};

/** The first that fits a message counts. Messages that none fits are detail, unless they tell of a failure. */
[[nodiscard]] std::span<const LogLine> LogLines();

/** The row of a message; null when none fits. */
[[nodiscard]] const LogLine* FindLogLine(std::string_view message);

[[nodiscard]] LineKind KindOf(std::string_view message);

/** The product file that a message names, such as krconf.ntf; empty when it names none. */
[[nodiscard]] std::string FileIn(std::string_view message);

/** What a Notes status means, such as "13EA: The database is in use"; empty for one that is not known. The text is a
 *  number, hexadecimal unless `decimal`. */
[[nodiscard]] std::string ExplainStatus(const std::string& text, bool decimal);

/** What a message means, with the status in it; empty when no row fits. */
[[nodiscard]] std::string Explain(std::string_view message);

/** Why a run fell short: the first message that ended the run; else the first one of a failure that names one of the
 *  databases; else the first one of any failure. Empty when no message tells of one. */
[[nodiscard]] std::string FindCause(const std::vector<std::string>& messages,
                                    const std::vector<std::string>& databases);

} // namespace krxpatch
