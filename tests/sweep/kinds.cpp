#include "kinds.h"

#include <algorithm>
#include <string_view>

#include "embedded_notes.h"
#include "server.h"
#include "walk.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;

/** The behaviours that decide what becomes of documents. */
constexpr std::string_view documentBehaviours[] = {
    "copy-unid", "stub-unid",    "unid-change", "append-to-text", "entries-of-text",
    "search",    "updated-note", "delete-item", "sign-again",     "soft-deletion",
};

bool TouchesDocuments(std::string_view name) {
    return std::ranges::find(documentBehaviours, name) != std::end(documentBehaviours);
}

/** The settings that a behaviour can have, the default first, which is none. */
std::vector<ServerKind> SettingsOf(const char* name) {
    std::vector<ServerKind> settings = {""};
    for (DWORD i = 1; const char* value = EmbBehaviourValue(name, i); ++i) {
        settings.push_back(std::string(name) + '=' + value);
    }
    return settings;
}

ServerKind Joined(const ServerKind& a, const ServerKind& b) {
    return a.empty() || b.empty() ? a + b : a + ',' + b;
}

/** The settings that are not defaults, of the behaviours that fit. */
std::vector<ServerKind> Deviations(bool (*fits)(std::string_view)) {
    std::vector<ServerKind> all;
    for (DWORD i = 0; const char* name = EmbBehaviourName(i); ++i) {
        const std::vector<ServerKind> settings = SettingsOf(name);
        all.insert(all.end(), settings.begin() + 1, fits(name) ? settings.end() : settings.begin() + 1);
    }
    return all;
}

std::string_view NameOf(std::string_view setting) {
    return setting.substr(0, setting.find('='));
}

} // namespace

std::vector<ServerKind> KindsOfDocuments() {
    std::vector<ServerKind> kinds = {""};
    for (DWORD i = 0; const char* name = EmbBehaviourName(i); ++i) {
        if (!TouchesDocuments(name)) {
            continue;
        }
        std::vector<ServerKind> more;
        for (const ServerKind& kind : kinds) {
            for (const ServerKind& setting : SettingsOf(name)) {
                more.push_back(Joined(kind, setting));
            }
        }
        kinds = std::move(more);
    }
    return kinds;
}

std::vector<ServerKind> SingleKinds() {
    return Deviations([](std::string_view) { return true; });
}

std::vector<ServerKind> PairsOfKinds() {
    const std::vector<ServerKind> all = SingleKinds();
    std::vector<ServerKind> kinds;
    for (size_t i = 0; i < all.size(); ++i) {
        const bool others = !TouchesDocuments(NameOf(all[i]));
        if (others) {
            kinds.push_back(all[i]);
        }
        for (size_t j = 0; j < i; ++j) {
            if ((others || !TouchesDocuments(NameOf(all[j]))) && NameOf(all[i]) != NameOf(all[j])) {
                kinds.push_back(Joined(all[j], all[i]));
            }
        }
    }
    return kinds;
}

ServerKind DrawKind(std::mt19937_64& random) {
    ServerKind kind;
    for (DWORD i = 0; const char* name = EmbBehaviourName(i); ++i) {
        const std::vector<ServerKind> settings = SettingsOf(name);
        kind = Joined(kind, settings[random() % settings.size()]);
    }
    return kind;
}

void WalkKinds(const Reference& reference, const std::vector<ServerKind>& kinds, size_t jobs, const fs::path& work,
               const std::function<void(const ServerKind& kind, const Outcome& outcome)>& report) {
    const auto judge = [&](size_t number, Outcome& outcome) {
        const fs::path copy = work / std::to_string(number);
        EnterServer(work, kinds[number], copy);
        const size_t filesBefore = OpenFiles();
        StartEvents(reference.runner, [](Kind, const char*) {});
        const int result = RunUpgrade(reference.runner);
        StopEvents();
        Report own = MakeReport({}, filesBefore);
        own.happened = true; // nothing was to
        own.result = result;
        JudgeAgreement(reference, kinds[number], own, outcome);
        fs::current_path(work);
        fs::remove_all(copy);
    };
    ForEachInProcesses(kinds.size(), jobs, judge,
                       [&](size_t number, const Outcome& outcome) { report(kinds[number], outcome); });
}

} // namespace sweep
