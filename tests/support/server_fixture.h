// A server folder of a test's own, with a session on it: notes.ini, data/krx, data/krxtemp and
// install/program/V5.8.0.3050.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "embedded_notes.h"
#include "support/temporary_folder.h"

namespace updkrx::test {

struct LogLine {
    std::string file; // its name
    std::string time;
    int pid;
    int tid;
    std::string level; // as the log shows it
    std::string message;
};

/** Ends with a check that nothing the test did left a handle open or was a misuse of the Notes API. */
class ServerFixture : public testing::Test {
protected:
    ServerFixture();
    ~ServerFixture() override;
    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] const std::filesystem::path& Server() const { return folder_.Path(); }
    [[nodiscard]] std::filesystem::path Data() const { return Server() / "data"; }
    [[nodiscard]] std::filesystem::path ProgramFolder() const { return Server() / "install/program/V5.8.0.3050"; }

    /** Sets a notes.ini value of the session; null removes it. */
    static void SetEnvironment(const char* name, const char* value);
    /** Puts exactly these behaviours in force, "name=value,name=value". */
    static void SetBehaviours(std::string_view list);
    static void SwitchLogOn() { SetEnvironment("KRX_ENABLE_KRENCY_LOG", "1"); }
    /** The lines of the module's log files; a message that ends in a line feed keeps it. */
    [[nodiscard]] std::vector<LogLine> ReadLog() const;
    /** The same lines, each as its level in brackets and its message. */
    [[nodiscard]] std::vector<std::string> LogMessages() const;
    /** Those that came since the last call of this. */
    [[nodiscard]] std::vector<std::string> NewLogMessages();

    /** Makes a database of these notes; the path is relative to the data directory, the notes are DXL. */
    void MakeDatabase(const std::string& path, std::string_view notes) const;
    /** A help note, as DXL, that carries this build text. */
    [[nodiscard]] static std::string HelpNote(std::string_view buildText);
    /** A database as DXL without IDs and times of this session. */
    [[nodiscard]] std::string ExportDatabase(const std::string& path) const;
    /** The texts of the item in each help note of a database. */
    [[nodiscard]] static std::vector<std::string> HelpItems(const char* path, const char* item);

    /** How many lines of the server's log are this text; the platform adds lines of its own. */
    [[nodiscard]] static int ServerLogCount(std::string_view text);
    /** The commands that the server's console was sent in this session. */
    [[nodiscard]] static std::vector<std::string> ConsoleCommands();

private:
    TemporaryFolder folder_;
    size_t messagesSeen_ = 0;
};

/** While this lives, somebody else saves every note of some databases just before each save of the test's own. */
class SomebodySavesFirst {
public:
    explicit SomebodySavesFirst(std::vector<const char*> databases);
    SomebodySavesFirst(const SomebodySavesFirst&) = delete;
    SomebodySavesFirst& operator=(const SomebodySavesFirst&) = delete;
    ~SomebodySavesFirst();

private:
    void SaveAll();

    std::vector<const char*> databases_;
    bool saving_ = false;
};

} // namespace updkrx::test
