#include "migrations/unrepaired_references.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "common/startup.h"
#include "foundation/debug_log.h"
#include "foundation/product_folder.h"
#include "foundation/unid_text.h"
#include "migrations/note_identity.h"
#include "migrations/obsolete_unids.h"
#include "os/os.h"

namespace updkrx {
namespace {

using UnidPairs = std::map<std::string, std::string>;
constexpr size_t unidLength = unidTextSize - 1;

std::optional<std::string> PairsFile() {
    const auto folder = GetProductFolder(Report::silent);
    return folder ? std::optional(*folder + "/krconf.updkrx-references") : std::nullopt;
}

void LogFailure(const char* what, const std::string& path) noexcept {
    DebugLog(level::progress, "Error: The references that are to be repaired cannot be %s. (%s)", what, path.c_str());
}

UNID UnidFrom(const std::string& text) noexcept {
    UNID unid = {};
    ParseUnidText(text, unid);
    return unid;
}

/** Adds the pair of a line; false when it is not as WritePairs writes it. */
bool AddPair(const std::string& line, UnidPairs& pairs) {
    const std::string from = line.substr(0, unidLength);
    const std::string to = line.substr(std::min(line.size(), unidLength + 1));
    const bool isPair = UnidTextOf(UnidFrom(from)) == from && UnidTextOf(UnidFrom(to)) == to;
    if (isPair) {
        pairs.emplace(from, to);
    }
    return isPair;
}

/** Nothing, which is logged, when the file is there and cannot be read. A line that somebody has damaged is passed
 *  over. */
std::optional<UnidPairs> ReadPairs(const std::string& path) {
    UnidPairs pairs;
    if (!os::IsFile(path)) {
        return pairs;
    }
    const os::OwnedFile file = os::OpenForReading(path.c_str());
    std::string line;
    int next = EOF;
    while (file && (next = std::fgetc(file.get())) != EOF) {
        if (next != '\n') {
            line += static_cast<char>(next);
            continue;
        }
        if (!AddPair(line, pairs)) {
            LogFailure("read", path);
        }
        line.clear();
    }
    if (!file || std::ferror(file.get()) != 0) {
        LogFailure("read", path);
        return std::nullopt;
    }
    return pairs;
}

bool WritePairs(const UnidPairs& pairs, const std::string& path) {
    const std::string successor = path + "-new";
    os::RemoveFile(successor.c_str()); // of a run that died
    os::OwnedFile file = os::OpenNew(successor.c_str());
    if (!file) {
        return false;
    }
    std::string text;
    for (const auto& [from, to] : pairs) {
        text.append(from).append(" ").append(to).append("\n");
    }
    const bool written =
        std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() && os::FlushToDisk(file.get());
    const bool whole = os::Close(std::move(file)) && written;
    if (!whole || !os::MoveOver(successor.c_str(), path.c_str())) {
        os::RemoveFile(successor.c_str());
        return false;
    }
    return true;
}

} // namespace

bool HasUnrepairedReferences() {
    const auto path = PairsFile();
    return path && os::IsFile(*path);
}

bool RecordUnrepairedReferences(DBHANDLE database) {
    const auto path = PairsFile();
    auto pairs = path ? ReadPairs(*path) : std::nullopt;
    if (!pairs) {
        return false;
    }
    pairs->merge(std::exchange(DoubtfulUNIDMap, {}));
    for (const auto& [from, to] : *pairs) {
        if (FindNote(database, UnidFrom(to)) == NOTEID{0}) {
            continue; // nothing takes its place any more
        }
        VanishingUnids vanishing(to);
        vanishing.Add(from);
        vanishing.RecordUnlessTaken(database, UnidFrom(from));
    }
    return DoubtfulUNIDMap.empty();
}

bool KeepUnrepairedReferences() {
    const auto path = PairsFile();
    auto earlier = path ? ReadPairs(*path) : std::nullopt;
    bool kept = false;
    if (earlier) {
        UnidPairs pairs = gMap; // what is known now counts
        pairs.insert(DoubtfulUNIDMap.begin(), DoubtfulUNIDMap.end());
        pairs.merge(*earlier);
        kept = WritePairs(pairs, *path);
    }
    if (!kept) {
        LogFailure("kept", path.value_or(""));
    }
    return kept;
}

void ForgetUnrepairedReferences() {
    const auto path = PairsFile();
    if (!path || !os::IsFile(*path)) {
        return;
    }
    os::RemoveFile(path->c_str());
    if (os::IsFile(*path)) {
        DebugLog(level::progress, "Error: The references that were repaired cannot be forgotten. (%s)", path->c_str());
    }
}

} // namespace updkrx
