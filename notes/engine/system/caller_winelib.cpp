// Windows programs under Wine: drive letters lead into the host's files, and the native character set is the ANSI code
// page.
#include "engine/system/caller_system.h"

#include <algorithm>
#include <cstdlib>

#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include "engine/values/ascii.h"
#include "engine/values/charset.h"
#include "engine/values/status_error.h"

// Wine's own headers and those of the standard library exclude each other.
extern "C" {
__attribute__((ms_abi)) int MultiByteToWideChar(unsigned codePage, uint32_t flags, const char* in, int inSize,
                                                char16_t* out, int outSize);
__attribute__((ms_abi)) int WideCharToMultiByte(unsigned codePage, uint32_t flags, const char16_t* in, int inSize,
                                                char* out, int outSize, const char* replacement, int* replaced);
}

namespace embedded {
namespace {

constexpr unsigned ansiCodePage = 0;

/** Where a drive's root lies. Wine keeps a link for each drive. */
std::filesystem::path DriveRoot(char letter) {
    const char* prefix = std::getenv("WINEPREFIX");
    const char* home = std::getenv("HOME");
    const std::filesystem::path wine =
        prefix ? std::filesystem::path(prefix) : std::filesystem::path(home ? home : "/") / ".wine";
    const std::string drive = {LowerAscii(letter), ':'};
    std::error_code failed;
    std::filesystem::path root = std::filesystem::canonical(wine / "dosdevices" / drive, failed);
    if (failed) {
        throw StatusError(ERR_NOEXIST, drive + ": there is no such drive");
    }
    return root;
}

} // namespace

std::filesystem::path PathFromCaller(std::string_view path) {
    std::u8string text(path.begin(), path.end());
    std::replace(text.begin(), text.end(), u8'\\', u8'/');
    if (text.size() < 2 || text[1] != u8':') {
        return text;
    }
    const size_t rest = text.find_first_not_of(u8'/', 2);
    return DriveRoot(path.front()) / (rest == std::u8string::npos ? std::u8string() : text.substr(rest));
}

std::string PathForCaller(const std::filesystem::path& path) {
    std::string text = path.string();
    if (path.is_absolute()) {
        text.insert(0, "Z:"); // the drive that Wine gives the host's root
        std::replace(text.begin(), text.end(), '/', '\\');
    }
    return text;
}

std::string Utf8FromNative(std::string_view text) {
    std::u16string units(text.size(), u'\0');
    const int unitCount = text.empty()
                              ? 0
                              : MultiByteToWideChar(ansiCodePage, 0, text.data(), static_cast<int>(text.size()),
                                                    units.data(), static_cast<int>(units.size()));
    std::string result(static_cast<size_t>(unitCount) * 3, '\0');
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8WithSub(result.data(), static_cast<int32_t>(result.size()), &length, units.data(), unitCount, 0xFFFD,
                       nullptr, &error);
    result.resize(static_cast<size_t>(length));
    return result;
}

std::string NativeFromUtf8(std::string_view text, size_t size) {
    constexpr uint32_t noBestFit = 0x400; // "?" rather than a letter that only looks alike
    const std::u16string units = Utf16FromUtf8(text);
    std::string result;
    for (size_t i = 0; i < units.size();) {
        const int count = U16_IS_LEAD(units[i]) && i + 1 < units.size() ? 2 : 1;
        char bytes[8];
        const int length = WideCharToMultiByte(ansiCodePage, noBestFit, units.data() + i, count, bytes,
                                               static_cast<int>(sizeof bytes), nullptr, nullptr);
        if (result.size() + static_cast<size_t>(length) > size) {
            break;
        }
        result.append(bytes, static_cast<size_t>(length));
        i += static_cast<size_t>(count);
    }
    return result;
}

} // namespace embedded
