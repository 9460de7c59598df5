#include "migrations/unrepaired_references.h"

#include <array>
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
constexpr size_t lineLength = 2 * unidLength + 2;

/** Empty when the folder is not known: no file has this name. */
std::string PairsFile() {
    const auto folder = GetProductFolder(Report::silent);
    return folder ? *folder + "/krconf.updkrx-references" : "";
}

UNID UnidFrom(const std::string& text) noexcept {
    UNID unid = {};
    ParseUnidText(text, unid);
    return unid;
}

/** Nothing when the file is there and cannot be read, or is another one than KeepUnrepairedReferences writes. */
std::optional<UnidPairs> ReadPairs(const std::string& path) {
    UnidPairs pairs;
    if (!os::IsFile(path)) {
        return pairs;
    }
    const os::OwnedFile file = os::OpenForReading(path.c_str());
    std::array<char, lineLength> line = {};
    size_t length = 0;
    while (file && (length = std::fread(line.data(), 1, line.size(), file.get())) == line.size()) {
        const std::string from(line.data(), unidLength);
        const std::string to(line.data() + unidLength + 1, unidLength);
        if (UnidTextOf(UnidFrom(from)) != from || UnidTextOf(UnidFrom(to)) != to) {
            return std::nullopt;
        }
        pairs.emplace(from, to);
    }
    return file && length == 0 && std::ferror(file.get()) == 0 ? std::optional(std::move(pairs)) : std::nullopt;
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
        text += from + ' ' + to + '\n';
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
    return os::IsFile(PairsFile());
}

bool RecordUnrepairedReferences(DBHANDLE database) {
    const std::string path = PairsFile();
    auto pairs = ReadPairs(path);
    if (!pairs) {
        DebugLog(level::progress, "Error: The references that are to be repaired cannot be read. (%s)", path.c_str());
        return false;
    }
    pairs->merge(std::exchange(DoubtfulUNIDMap, {}));
    for (const auto& [from, to] : *pairs) {
        VanishingUnids vanishing(to);
        vanishing.Add(from);
        vanishing.RecordUnlessTaken(database, UnidFrom(from));
    }
    return DoubtfulUNIDMap.empty();
}

bool KeepUnrepairedReferences() {
    const std::string path = PairsFile();
    auto pairs = ReadPairs(path);
    if (pairs) {
        pairs->insert(gMap.begin(), gMap.end());
        pairs->insert(DoubtfulUNIDMap.begin(), DoubtfulUNIDMap.end());
    }
    if (!pairs || path.empty() || !WritePairs(*pairs, path)) {
        DebugLog(level::progress, "Error: The references that are to be repaired cannot be kept. (%s)", path.c_str());
        return false;
    }
    return true;
}

void ForgetUnrepairedReferences() {
    const std::string path = PairsFile();
    if (!os::IsFile(path)) {
        return;
    }
    os::RemoveFile(path.c_str());
    if (os::IsFile(path)) {
        DebugLog(level::progress, "Error: The references that were repaired cannot be forgotten. (%s)", path.c_str());
    }
}

} // namespace updkrx
