#include "history.h"

#include <cmath>
#include <exception>
#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>

#include "platform.h"

namespace krxpatch {
namespace {

using Json = nlohmann::ordered_json;

std::filesystem::path HistoryFile(const std::filesystem::path& server) {
    return server / "krxpatch.history";
}

Json JsonText(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

} // namespace

void AddToHistory(const std::filesystem::path& server, const HistoryRow& row) noexcept {
    try {
        const Json line = {{"when", FormatTime(row.start, "%Y-%m-%dT%H:%M:%SZ")},
                           {"command", row.command},
                           {"who", row.who},
                           {"seconds", std::round(row.seconds * 10) / 10},
                           {"buildBefore", JsonText(row.buildBefore)},
                           {"buildAfter", JsonText(row.buildAfter)},
                           {"result", row.result},
                           {"reason", JsonText(row.reason)}};
        platform::AppendLine(HistoryFile(server), line.dump(-1, ' ', false, Json::error_handler_t::replace));
    } catch (const std::exception& error) {
        std::cerr << "krxpatch: the history is not written: " << error.what() << '\n';
    }
}

std::vector<std::string> ReadHistory(const std::filesystem::path& server) {
    std::ifstream stream(HistoryFile(server), std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        if (Json::accept(line)) {
            lines.push_back(line);
        }
    }
    return lines;
}

Chronicle::Chronicle(std::filesystem::path server, std::string command) : server_(std::move(server)) {
    row_.command = std::move(command);
    row_.who = platform::DescribeProcess();
    row_.start = Now();
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
