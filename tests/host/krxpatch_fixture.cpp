#include "host/krxpatch_fixture.h"

#include <algorithm>

#include "embedded_notes.h"

namespace krxpatch::test {

using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;

std::map<std::string, Entry> Snapshot(const fs::path& folder) {
    std::map<std::string, Entry> entries;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        entries[entry.path().string()] = {entry.is_directory() ? "" : ReadFile(entry.path()), entry.last_write_time()};
    }
    return entries;
}

std::vector<std::string> NamesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

AssertionResult Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos ? AssertionSuccess() : AssertionFailure() << text << " lacks " << part;
}

AssertionResult Exits(const Outcome& outcome, int exitCode) {
    return outcome.exitCode == exitCode ? AssertionSuccess()
                                        : AssertionFailure() << "exit " << outcome.exitCode << "\n"
                                                             << outcome.out << outcome.error;
}

namespace {

std::string WithSlashes(std::string text) {
    std::replace(text.begin(), text.end(), static_cast<char>(fs::path::preferred_separator), '/');
    return text;
}

} // namespace

AssertionResult Fails(const Outcome& outcome, int exitCode, const std::string& text) {
    const std::string& error = outcome.error;
    if (!error.starts_with("krxpatch: ") || error.find('\n') != error.size() - 1) {
        return AssertionFailure() << "not one line: " << error;
    }
    return Exits(outcome, exitCode) ? Contains(WithSlashes(error), WithSlashes(text)) : Exits(outcome, exitCode);
}

Json KrxpatchTest::Status() const {
    const Outcome outcome = StatusAsJson();
    const Json status = Json::parse(outcome.out);
    EXPECT_TRUE(Exits(outcome, status["upToDate"] == true ? 0 : 3));
    return status;
}

Json KrxpatchTest::DatabaseIn(const Json& status, const std::string& name) {
    for (const Json& database : status["databases"]) {
        if (database["name"] == name) {
            return database;
        }
    }
    ADD_FAILURE() << name << " is not in the status";
    return {};
}

std::map<std::string, Json> KrxpatchTest::BuildsIn(const Json& status) {
    std::map<std::string, Json> builds;
    for (const Json& database : status["databases"]) {
        if (const std::string name = database["name"]; name.ends_with(".nsf")) {
            builds[name] = database["build"];
        }
    }
    return builds;
}

void KrxpatchTest::Edit(const fs::path& file, const std::string& from, const std::string& to) const {
    std::string text = ReadFile(Server() / file);
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    WriteFile(Server() / file, text.replace(at, from.size(), to));
}

void KrxpatchTest::TakeOffline(const char* database) const {
    char message[512];
    ASSERT_EQ(EmbSessionBegin((Server() / iniFile_).string().c_str(), 0, message, sizeof message), NOERROR) << message;
    EXPECT_EQ(NSFTakeDatabaseOffline(database, 0, OFFLINE_NODELETE), NOERROR);
    EmbSessionEnd();
}

void KrxpatchTest::Import(const fs::path& database, const std::string& dxl) const {
    WriteFile(Folder() / "fixture.dxl", dxl);
    ASSERT_TRUE(Exits(Krxpatch({"import", database.string(), "fixture.dxl", "--force"}), 0)) << dxl;
    fs::remove(Folder() / "fixture.dxl");
}

void KrxpatchTest::EditDatabase(const fs::path& database, const std::string& from, const std::string& to) const {
    std::string dxl = Krxpatch({"export", database.string()}).out;
    const size_t at = dxl.find(from);
    ASSERT_NE(at, std::string::npos) << database << " lacks " << from;
    Import(database, dxl.replace(at, from.size(), to));
}

void KrxpatchTest::RemoveDocuments(const fs::path& database) const {
    std::string dxl = Krxpatch({"export", database.string()}).out;
    const size_t first = dxl.find("<document ");
    const std::string end = "</document>";
    Import(database, dxl.erase(first, dxl.rfind(end) + end.size() - first));
}

} // namespace krxpatch::test
