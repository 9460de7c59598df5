#include "foundation/install_paths.h"

#include <iterator>
#include <string>

#include "common/ascii_text.h"
#include "common/bounded_text.h"
#include "common/name_texts.h"
#include "foundation/notes_text.h"
#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t installPathSize = 1024;
constexpr size_t maxBaseLength = 1020;
constexpr size_t patternSize = 1024;
constexpr size_t maxVersionPathLength = 1023;

struct Component {
    const char* subPath;
    bool versioned;
};

constexpr Component components[] = {
    {"program", true},         // 1, programComponent
    {"engine\\vrola", true},   // 2
    {"engine\\pelor", true},   // 3
    {"engine\\durin", true},   // 4
    {"pattern\\vrola", false}, // 5
    {"pattern\\pelor", true},  // 6
    {"engine\\kinet", true},   // 7
};

bool EndsInSeparator(std::string_view path) {
    return path.ends_with('/') || path.ends_with('\\');
}

/** "*" stands for any run of characters, "?" for any one, every other character for itself in either case. */
bool MatchesPattern(std::string_view name, std::string_view pattern) {
    if (pattern.empty()) {
        return name.empty();
    }
    if (pattern.front() == '*') {
        return MatchesPattern(name, pattern.substr(1)) || (!name.empty() && MatchesPattern(name.substr(1), pattern));
    }
    return !name.empty() && (pattern.front() == '?' || AsciiLower(pattern.front()) == AsciiLower(name.front())) &&
           MatchesPattern(name.substr(1), pattern.substr(1));
}

} // namespace

VersionNumbers ParseVersionDirName(std::string_view path) noexcept {
    path = path.substr(0, maxVersionPathLength);
    if (EndsInSeparator(path)) {
        path.remove_suffix(1);
    }
    const size_t slash = path.rfind('/');
    std::string_view name = path.substr((slash != std::string_view::npos ? slash : path.rfind('\\')) + 1);
    name = name.substr(name.empty() ? 0 : 1); // the "V"

    VersionNumbers version = {};
    size_t count = 0;
    while (count < version.size() && TakeNumber(name, version[count])) {
        ++count;
        if (!name.starts_with('.')) {
            break;
        }
        name.remove_prefix(1);
    }
    if (count == 3) {
        version = {version[0], version[1], 0, version[2]};
    }
    return version;
}

const char* FindLatestVersionDir(const char* base, const char* subPath, char* buffer, size_t capacity) {
    const std::string_view baseText = base;
    if (baseText.empty() || baseText.size() > maxBaseLength) {
        return nullptr;
    }
    char patternText[patternSize];
    bq_snprintf(patternText, sizeof patternText, "%s%s%s\\V*", base, EndsInSeparator(baseText) ? "" : "\\", subPath);
    const std::string_view pattern = patternText;
    const size_t nameStart = pattern.find_last_of("/\\") + 1;
    const std::string folder(pattern.substr(0, nameStart));

    VersionNumbers best = {};
    for (const os::DirectoryEntry& entry : os::ListDirectory(folder)) {
        if (!entry.isDirectory || !MatchesPattern(entry.name, pattern.substr(nameStart))) {
            continue;
        }
        // By its name alone: in a whole path with both separators the last "/" would end the folder.
        const VersionNumbers version = ParseVersionDirName(entry.name);
        if (version > best) {
            best = version;
            bq_snprintf(buffer, capacity, "%s%s", folder.c_str(), entry.name.c_str());
        }
    }
    return best[0] > 0 ? buffer : nullptr;
}

const char* GetComponentPath(int kind, char* buffer, size_t capacity) {
    char setting[installPathSize];
    if (!GetEnvironmentText(StringPool[installPathVariable], setting, sizeof setting)) {
        return nullptr;
    }
    char base[installPathSize];
    ToNative(setting, base, sizeof base);
    if (kind < 1 || kind > static_cast<int>(std::size(components))) {
        return nullptr;
    }
    const Component& component = components[kind - 1];
    if (component.versioned) {
        return FindLatestVersionDir(base, component.subPath, buffer, capacity);
    }
    bq_snprintf(buffer, capacity, "%s%s%s", base, "\\", component.subPath);
    return buffer;
}

} // namespace updkrx
