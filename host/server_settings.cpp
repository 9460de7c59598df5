#include "server_settings.h"

#include <algorithm>
#include <optional>

#include "common/ascii_text.h"

namespace krxpatch {
namespace {

/** Where the value of a setting stands. */
struct Place {
    size_t start;
    size_t length;
};

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r");
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

std::optional<Place> FindValue(std::string_view ini, std::string_view name) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    for (size_t at = ini.starts_with(byteOrderMark) ? byteOrderMark.size() : 0; at < ini.size();) {
        const size_t end = std::min(ini.find('\n', at), ini.size());
        const std::string_view line = ini.substr(at, end - at);
        if (const size_t equals = line.find('=');
            equals != std::string_view::npos && updkrx::EqualIgnoringAsciiCase(Trimmed(line.substr(0, equals)), name)) {
            const std::string_view value = Trimmed(line.substr(equals + 1));
            const size_t start = value.empty() ? at + equals + 1 : static_cast<size_t>(value.data() - ini.data());
            return Place{start, value.size()};
        }
        at = end + 1;
    }
    return std::nullopt;
}

void Set(std::string& ini, std::string_view name, const std::string& value) {
    if (const auto place = FindValue(ini, name)) {
        ini.replace(place->start, place->length, value);
    } else {
        ini += (ini.empty() || ini.ends_with('\n') ? "" : "\n") + std::string(name) + "=" + value + "\n";
    }
}

} // namespace

std::string SettingIn(std::string_view ini, std::string_view name) {
    const auto place = FindValue(ini, name);
    return place ? std::string(ini.substr(place->start, place->length)) : "";
}

std::string WithPath(std::string text, const std::filesystem::path& folder, const std::filesystem::path& other) {
    const std::string from = folder.string();
    const std::string to = other.string();
    constexpr std::string_view endsName = "/\\ \t\r\n,;:\"'"; // another name may begin like the folder's
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos;) {
        const size_t end = at + from.size();
        if (end == text.size() || endsName.find(text[end]) != std::string_view::npos) {
            text.replace(at, from.size(), to);
            at += to.size();
        } else {
            at = end;
        }
    }
    return text;
}

std::string WithFolders(std::string ini, const std::filesystem::path& server) {
    Set(ini, "Directory", server.string() + "/data");
    Set(ini, "VarnholtInstallPath", server.string() + "/install");
    return ini;
}

} // namespace krxpatch
