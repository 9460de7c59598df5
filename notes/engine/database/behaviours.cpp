#include "engine/database/behaviours.h"

#include <algorithm>
#include <array>
#include <vector>

#include "engine/values/ascii.h"
#include "engine/values/status_error.h"

namespace embedded {
namespace {

constexpr std::array copyUnid = {"kept", "kept-if-free", "half", "new"};
constexpr std::array stubUnid = {"replaced", "taken"};
constexpr std::array unidChange = {"allowed", "refused", "ignored"};
constexpr std::array deletedPath = {"free", "offline"};
constexpr std::array offlinePath = {"relative", "full"};
constexpr std::array appendToText = {"converts", "refused"};
constexpr std::array entriesOfText = {"one", "none"};
constexpr std::array idleDelay = {"waits", "quit"};
constexpr std::array privateDesign = {"copied", "refused"};
constexpr std::array search = {"matches", "all"};
constexpr std::array updatedNote = {"once", "again"};
constexpr std::array signAgain = {"replaces", "appends"};
constexpr std::array deleteItem = {"all", "first"};
constexpr std::array terminator = {"without-terminator", "with-terminator"};
constexpr std::array failedHandles = {"zero", "kept", "garbage"};
constexpr std::array softDeletion = {"off", "on"};
constexpr std::array searchOrder = {"ascending", "descending", "shuffled"};

constexpr Behaviour table[] = {
    {"copy-unid", copyUnid, Deviation::copyUnidKeptIfFree,
     "copies between databases that are no replicas: a new UNID by the reference, half a new one by a support article"},
    {"stub-unid", stubUnid, Deviation::stubUnidTaken, "creating a note under the UNID of a deletion stub: not stated"},
    {"unid-change", unidChange, Deviation::unidChangeRefused,
     "another UNID for a stored note: there is a status for it"},
    {"deleted-path", deletedPath, Deviation::deletedPathOffline,
     "whether a path is offline after its database was taken offline for good: not stated"},
    {"offline-path", offlinePath, Deviation::offlinePathFull, "taking offline and bringing online ask for a full path"},
    {"append-to-text", appendToText, Deviation::appendToTextRefused, "appending a list entry to a text: not stated"},
    {"entries-of-text", entriesOfText, Deviation::entriesOfTextNone, "how many entries a text has: generally one"},
    {"idle-delay", idleDelay, Deviation::idleDelayQuit, "a task that is told to end does not wait"},
    {"private-design", privateDesign, Deviation::privateDesignRefused,
     "copying a database with the private design of others: refused on a server"},
    {"search", search, Deviation::searchAll, "the reference calls the step for matches, others tell of all notes"},
    {"updated-note", updatedNote, Deviation::updatedNoteAgain, "a note saved in a search's step may come again"},
    {"sign-again", signAgain, Deviation::signAgainAppends, "signing a note that is signed: an item is appended"},
    {"delete-item", deleteItem, Deviation::deleteItemFirst, "deleting one of several items of a name: not stated"},
    {"get-text-size", terminator, Deviation::getTextSizeWithTerminator,
     "whether the size for an item's text counts the terminator: not stated"},
    {"translate-result", terminator, Deviation::translateResultWithTerminator,
     "whether the length of a translated text counts the terminator: it does not, by the reference"},
    {"failed-handles", failedHandles, Deviation::failedHandlesKept,
     "what a failed operation leaves in the place of its handle: not stated"},
    {"soft-deletion", softDeletion, Deviation::softDeletionOn,
     "a database that keeps deleted documents for a while: an option of the database"},
    {"search-order", searchOrder, Deviation::searchOrderDescending, "the order of a search: any"},
};

size_t BitOf(const Behaviour& behaviour, size_t value) {
    return static_cast<size_t>(behaviour.first) + value - 1;
}

template<typename Names>
std::string Listed(const Names& names) {
    std::string list;
    for (const std::string_view name : names) {
        list.append(list.empty() ? "" : ", ").append(name);
    }
    return list;
}

} // namespace

std::span<const Behaviour> KnownBehaviours() noexcept {
    return table;
}

const Behaviour* FindBehaviour(std::string_view name) noexcept {
    const auto found = std::ranges::find(table, name, &Behaviour::name);
    return found == std::end(table) ? nullptr : found;
}

void Behaviours::Set(std::string_view name, std::optional<std::string_view> value) {
    const Behaviour* behaviour = FindBehaviour(name);
    if (!behaviour) {
        std::vector<std::string_view> names;
        for (const Behaviour& row : table) {
            names.emplace_back(row.name);
        }
        throw StatusError(EMB_ERR_ARGUMENT,
                          "no behaviour is named '" + std::string(name) + "'; there are " + Listed(names));
    }
    const auto& values = behaviour->values;
    const auto found = value
                           ? std::ranges::find(values, *value, [](const char* text) { return std::string_view(text); })
                           : values.begin();
    if (found == values.end()) {
        throw StatusError(EMB_ERR_ARGUMENT,
                          std::string(name) + " cannot be '" + std::string(*value) + "'; it can be " + Listed(values));
    }
    for (size_t other = 1; other < values.size(); ++other) {
        deviations_[BitOf(*behaviour, other)] = values.begin() + static_cast<std::ptrdiff_t>(other) == found;
    }
}

void Behaviours::SetAll(std::string_view list) {
    while (!list.empty()) {
        const size_t end = std::min(list.find(','), list.size());
        const std::string_view entry = Trimmed(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
        const size_t equals = entry.find('=');
        if (equals == std::string_view::npos) {
            throw StatusError(EMB_ERR_ARGUMENT, "'" + std::string(entry) + "' is not of the form name=value");
        }
        Set(Trimmed(entry.substr(0, equals)), Trimmed(entry.substr(equals + 1)));
    }
}

const char* Behaviours::InForce(const Behaviour& behaviour) const noexcept {
    for (size_t value = 1; value < behaviour.values.size(); ++value) {
        if (deviations_[BitOf(behaviour, value)]) {
            return behaviour.values[value];
        }
    }
    return behaviour.values.front();
}

} // namespace embedded
