// krxpatch as an administrator meets it: the built program, run in a folder of the test's own.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/child_process.h"
#include "support/temporary_folder.h"

namespace krxpatch::test {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using updkrx::test::ReadFile;
using updkrx::test::WriteFile;

struct Entry {
    std::string content;
    fs::file_time_type time;

    bool operator==(const Entry&) const = default;
};

/** Every file and folder below a folder, with its content and time. */
std::map<std::string, Entry> Snapshot(const fs::path& folder);
/** Sorted. */
std::vector<std::string> NamesIn(const fs::path& folder);

testing::AssertionResult Contains(const std::string& text, const std::string& part);
testing::AssertionResult Exits(const Outcome& outcome, int exitCode);
/** One line on standard error that begins with the program's name and holds the text; whichever separator of the system
 *  its paths have. */
testing::AssertionResult Fails(const Outcome& outcome, int exitCode, const std::string& text);

class KrxpatchTest : public testing::Test {
protected:
    Outcome Krxpatch(const std::vector<std::string>& arguments) const {
        return RunProgram(KRXPATCH_PROGRAM, arguments, Folder());
    }
    void MakeSandbox() const { ASSERT_TRUE(Exits(Krxpatch({"sandbox", "server"}), 0)); }
    /** A command on the server, with further arguments. */
    Outcome OnServer(const std::string& command, const std::vector<std::string>& further = {}) const {
        std::vector<std::string> arguments = {command, "--server", "server"};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return Krxpatch(arguments);
    }
    Outcome Run() const { return OnServer("run"); }
    Outcome RunModule(const std::string& module) const { return OnServer("run", {"--module", module}); }
    Outcome StatusAsJson() const { return OnServer("status", {"--json"}); }

    /** Of a server with which nothing is wrong. */
    Json Status() const;
    static Json DatabaseIn(const Json& status, const std::string& name);
    /** The build of each database, but not of templates. */
    static std::map<std::string, Json> BuildsIn(const Json& status);

    /** Replaces a text in a file of the server folder. */
    void Edit(const fs::path& file, const std::string& from, const std::string& to) const;
    void TakeOffline(const char* database) const;
    void Import(const fs::path& database, const std::string& dxl) const;
    /** Replaces a text in a database, by way of DXL. */
    void EditDatabase(const fs::path& database, const std::string& from, const std::string& to) const;
    void RemoveDocuments(const fs::path& database) const;

    [[nodiscard]] const fs::path& Folder() const { return folder_.Path(); }
    [[nodiscard]] fs::path Server() const { return Folder() / "server"; }
    [[nodiscard]] fs::path Databases() const { return Server() / "data/krx"; }
    [[nodiscard]] fs::path Copies() const { return Server() / "data/krx.recovery"; }

    const fs::path iniFile_ = "notes.ini";
    const fs::path patchFile_ = "install/program/V5.8.0.3050/krxpatch.ini";

private:
    updkrx::test::TemporaryFolder folder_;
};

} // namespace krxpatch::test
