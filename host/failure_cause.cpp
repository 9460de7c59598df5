#include "failure_cause.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace krxpatch {
namespace {

/** What the messages begin with behind which a run did nothing more. */
constexpr std::string_view endings[] = {
    "Cannot get the latest path!",
    "Cannot get the build number from path.",
    "Cannot get the value in configuration file. (",
    "Cannot open the file. (",
    "Bring database offline. (",
};

/** What a message of a failure holds somewhere. */
constexpr std::string_view failures[] = {"ailed", "rror", "ERROR", "Cannot "};

bool EndsRun(std::string_view message) {
    return std::any_of(std::begin(endings), std::end(endings),
                       [&](std::string_view start) { return message.starts_with(start); });
}

bool TellsOfFailure(std::string_view message) {
    // A line that begins with a tab shows the customer's data, in which any word may stand.
    return !message.starts_with('\t') && std::any_of(std::begin(failures), std::end(failures), [&](auto part) {
        return message.find(part) != std::string_view::npos;
    });
}

} // namespace

std::string FindCause(const std::vector<std::string>& messages, const std::vector<std::string>& databases) {
    const auto namesOne = [&](std::string_view message) {
        return TellsOfFailure(message) && std::any_of(databases.begin(), databases.end(), [&](const auto& database) {
                   return message.find(database) != std::string_view::npos;
               });
    };
    const auto first = [&](const auto& tells) {
        const auto found = std::find_if(messages.begin(), messages.end(), tells);
        return found == messages.end() ? std::string() : *found;
    };
    std::string cause = first(EndsRun);
    if (cause.empty()) {
        cause = first(namesOne);
    }
    return cause.empty() ? first(TellsOfFailure) : cause;
}

} // namespace krxpatch
