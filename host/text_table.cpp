#include "text_table.h"

#include <algorithm>
#include <filesystem>

namespace krxpatch {
namespace {

/** In characters of UTF-8. */
size_t WidthOf(std::string_view text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::vector<size_t> ColumnWidths(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], WidthOf(row[i]));
        }
    }
    return widths;
}

} // namespace

std::string Join(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : ", ") + text;
    }
    return joined;
}

std::string Printable(std::string_view text) {
    std::string printable(text);
    std::replace(printable.begin(), printable.end(), '\t', ' ');
    std::replace_if(
        printable.begin(), printable.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; }, '?');
    return printable;
}

std::string Quoted(std::string_view text) {
    std::string plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/:._-";
    if (std::filesystem::path::preferred_separator == '\\') { // the shell there knows this quote alone
        plain += '\\';
        return text.find_first_not_of(plain) == std::string_view::npos ? std::string(text)
                                                                       : '"' + std::string(text) + '"';
    }
    if (text.find_first_not_of(plain) == std::string_view::npos) {
        return std::string(text);
    }
    std::string quoted = "'";
    for (const char character : text) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

std::string CommandOn(const std::filesystem::path& server, const std::string& command, const std::string& options) {
    return "`krxpatch " + command + " --server " + Quoted(std::filesystem::absolute(server).string()) +
           (options.empty() ? "" : " ") + options + "`";
}

std::string FormatTable(const std::vector<std::vector<std::string>>& rows) {
    constexpr size_t gap = 2;
    const std::vector<size_t> widths = ColumnWidths(rows);
    std::string table;
    for (const auto& row : rows) {
        std::string line;
        size_t owed = 0; // blanks before the next text, so that no line ends in blanks
        for (size_t i = 0; i < row.size(); ++i) {
            if (!row[i].empty()) {
                line += std::string(owed, ' ') + Printable(row[i]);
                owed = 0;
            }
            owed += widths[i] - WidthOf(row[i]) + gap;
        }
        table += line + '\n';
    }
    return table;
}

std::string Megabytes(uintmax_t bytes) {
    constexpr uintmax_t megabyte = 1'000'000;
    return std::to_string((bytes + megabyte - 1) / megabyte) + " MB";
}

} // namespace krxpatch
