#include "history.h"

#include <cmath>
#include <exception>
#include <fstream>
#include <iostream>
#include <tuple>

#include <nlohmann/json.hpp>

#include "hold.h"
#include "platform.h"

namespace krxpatch {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view isoDate = "2026-11-23";
constexpr const char* timeFormat = "%Y-%m-%dT%H:%M:%SZ";

Json JsonText(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

} // namespace

std::filesystem::path HistoryFile(const std::filesystem::path& server) {
    return server / "krxpatch.history";
}

void AddToHistory(const std::filesystem::path& server, const HistoryRow& row) noexcept {
    try {
        const Json line = {{"when", row.when},
                           {"command", row.command},
                           {"who", row.who},
                           {"seconds", row.seconds ? Json(std::round(*row.seconds * 10) / 10) : Json()},
                           {"buildBefore", JsonText(row.buildBefore)},
                           {"buildAfter", JsonText(row.buildAfter)},
                           {"result", row.result},
                           {"reason", JsonText(row.reason)}};
        platform::AppendLine(HistoryFile(server), line.dump(-1, ' ', false, Json::error_handler_t::replace));
    } catch (const std::filesystem::filesystem_error& error) {
        std::cerr << "krxpatch: the history is not written: " << CauseOf(error) << '\n';
    } catch (const std::exception& error) {
        std::cerr << "krxpatch: the history is not written: " << error.what() << '\n';
    }
}

void AddDeadToHistory(const std::filesystem::path& server, const std::string& description) noexcept {
    HistoryRow row;
    constexpr std::string_view program = "krxpatch ";
    row.command = description.substr(program.size(), description.find(" by ") - program.size());
    std::tie(row.who, row.when) = WhoAndWhen(description);
    if (row.when.size() > isoDate.size()) { // "2026-11-23 03:10:07 UTC"
        row.when[isoDate.size()] = 'T';
        row.when.replace(row.when.rfind(' '), std::string::npos, "Z");
    }
    std::ifstream stream(HistoryFile(server), std::ios::binary);
    for (std::string line; std::getline(stream, line);) {
        if (line.find('"' + row.who + '"') != std::string::npos) {
            return; // it was interrupted, and could tell that itself
        }
    }
    row.result = "died";
    row.reason = "what it changed is put back";
    AddToHistory(server, row);
}

std::vector<std::string> ReadHistory(const std::filesystem::path& server) {
    const std::filesystem::path file = HistoryFile(server);
    if (const std::string why = platform::WhyUnreadable(file); !why.empty() && std::filesystem::exists(file)) {
        throw Failure(notStarted, file.string() + ": cannot be read: " + why);
    }
    std::ifstream stream(file, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        if (Json::parse(line, nullptr, false).is_object()) {
            lines.push_back(line);
        }
    }
    return lines;
}

Chronicle::Chronicle(std::filesystem::path server, std::string command) : server_(std::move(server)) {
    row_.command = std::move(command);
    row_.who = platform::DescribeProcess();
    row_.when = FormatTime(Now(), timeFormat);
}

void Chronicle::Note(const std::string& buildBefore, const std::string& buildAfter) {
    row_.buildBefore = buildBefore;
    row_.buildAfter = buildAfter;
}

double Chronicle::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
}

void Chronicle::End(const std::string& result, const std::string& reason) noexcept {
    row_.seconds = Seconds();
    row_.result = result;
    row_.reason = reason;
    AddToHistory(server_, row_);
}

} // namespace krxpatch
