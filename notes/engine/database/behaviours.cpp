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
    {"copy-unid", copyUnid, Deviation::copyUnidKeptIfFree},
    {"stub-unid", stubUnid, Deviation::stubUnidTaken},
    {"unid-change", unidChange, Deviation::unidChangeRefused},
    {"deleted-path", deletedPath, Deviation::deletedPathOffline},
    {"offline-path", offlinePath, Deviation::offlinePathFull},
    {"append-to-text", appendToText, Deviation::appendToTextRefused},
    {"entries-of-text", entriesOfText, Deviation::entriesOfTextNone},
    {"idle-delay", idleDelay, Deviation::idleDelayQuit},
    {"private-design", privateDesign, Deviation::privateDesignRefused},
    {"search", search, Deviation::searchAll},
    {"updated-note", updatedNote, Deviation::updatedNoteAgain},
    {"sign-again", signAgain, Deviation::signAgainAppends},
    {"delete-item", deleteItem, Deviation::deleteItemFirst},
    {"get-text-size", terminator, Deviation::getTextSizeWithTerminator},
    {"translate-result", terminator, Deviation::translateResultWithTerminator},
    {"failed-handles", failedHandles, Deviation::failedHandlesKept},
    {"soft-deletion", softDeletion, Deviation::softDeletionOn},
    {"search-order", searchOrder, Deviation::searchOrderDescending},
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
