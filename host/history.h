// Who did what to a server folder: one line of JSON a command that changed it, in krxpatch.history there.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "failure.h"
#include "platform.h"
#include "times.h"

namespace krxpatch {

struct HistoryRow {
    std::string command;           // of krxpatch
    std::string who;               // user, host and process
    std::string when;              // it began, in the form of ISO 8601
    std::optional<double> seconds; // that it took, when that is known
    std::string buildBefore;       // of the product databases: one, or "lowest to highest"; empty when it is not known
    std::string buildAfter;
    std::string result; // of the exit codes' names, or what else became of it
    std::string reason; // in words; empty when all went well
};

/** No file before the first row. */
[[nodiscard]] std::filesystem::path HistoryFile(const std::filesystem::path& server);

/** Adds a row. A history that cannot be written is told on standard error and stops nobody. */
void AddToHistory(const std::filesystem::path& server, const HistoryRow& row) noexcept;

/** Adds the row of a command that died, and could not do so itself. `description` is what it told others. */
void AddDeadToHistory(const std::filesystem::path& server, const std::string& description) noexcept;

/** The rows as they stand in the file, one text of JSON each; the lines that are none are left out.
 *  Throws Failure, as not started, when there is a history that cannot be read. */
[[nodiscard]] std::vector<std::string> ReadHistory(const std::filesystem::path& server);

/** A command that is going on, and is added to the history when it ends. */
class Chronicle {
public:
    Chronicle(std::filesystem::path server, std::string command);

    void Note(const std::string& buildBefore, const std::string& buildAfter);
    /** A disk that is full when the command ends has room for its row then. */
    void KeepRoom() const noexcept { platform::KeepRoomForLine(HistoryFile(server_)); }
    void End(const std::string& result, const std::string& reason = "") noexcept;
    /** Since the command began. */
    [[nodiscard]] double Seconds() const;

private:
    std::filesystem::path server_;
    HistoryRow row_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

} // namespace krxpatch
