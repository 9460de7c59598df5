// The configuration database and its template from a fixture file, whose parts begin with the remarks "database",
// "template" and "expected": the database, its template (which may be missing), and the whole database afterwards.
#pragma once

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "common/startup.h"
#include "support/server_fixture.h"

namespace updkrx::test {

inline constexpr const char* confDatabase = "krx/krconf.nsf";
inline constexpr const char* confTemplate = "krx/krconf.ntf";

class MigrationFixture : public ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        ForgetCollections();
        EmbClockSetVirtual(int64_t{1'800'000'000} * 100);
    }
    void TearDown() override {
        ForgetCollections();
        ServerFixture::TearDown();
    }

    static void ForgetCollections() {
        gMap.clear();
        ObsoleteUNIDSet.clear();
        DoubtfulUNIDMap.clear();
        RetiredDocumentUNIDSet.clear();
    }

    /** Makes the databases of a fixture, in place of those that are there. */
    void LoadFixture(const std::string& name) {
        const std::string text = ReadFile(std::filesystem::path(MIGRATION_FIXTURES) / (name + ".dxl"));
        std::map<std::string, std::string> parts;
        for (const char* part : {"database", "template", "expected"}) {
            const std::string remark = std::string("<!-- ") + part + " -->\n";
            if (const size_t at = text.find(remark); at != std::string::npos) {
                const size_t begin = at + remark.size();
                parts[part] = text.substr(begin, text.find("\n\n", begin) - begin);
            }
        }
        std::filesystem::remove(KeptDocuments());
        std::filesystem::remove(UnrepairedReferences());
        Make(confDatabase, parts["database"]);
        Make(confTemplate, parts["template"]);
        Make(expectedDatabase, parts["expected"]);
    }

    /** What is there only while documents are out. */
    [[nodiscard]] std::filesystem::path KeptDocuments() const { return Data() / "krx/krconf.updkrx-kept.nsf"; }
    [[nodiscard]] std::filesystem::path UnrepairedReferences() const { return Data() / "krx/krconf.updkrx-references"; }
    [[nodiscard]] std::string Content() const { return Notes(confDatabase); }
    [[nodiscard]] std::string Expected() const { return Notes(expectedDatabase); }
    /** Without the deletion stubs, which differ from server to server. */
    [[nodiscard]] static std::string Live(const std::string& content) {
        static const std::regex stub("  <krx:(stub|deleted) [^]*?(</krx:(stub|deleted)>|/>)\n(?=  <|</database)");
        return std::regex_replace(content, stub, "");
    }

private:
    static constexpr const char* expectedDatabase = "krx/expected.nsf";

    void Make(const char* path, const std::string& notes) {
        std::filesystem::remove(Data() / path);
        MakeDatabase(path, notes);
    }
    /** A database's notes and deletion stubs; the head in front of them holds its own replica ID. */
    [[nodiscard]] std::string Notes(const char* path) const {
        const std::string content = ExportDatabase(path);
        return content.substr(content.find("<acl"));
    }
};

/** Opens the configuration database, and its template, for the length of a scope. */
class OpenDatabases {
public:
    OpenDatabases() {
        EXPECT_EQ(NSFDbOpen(confDatabase, &database), NOERROR);
        EXPECT_EQ(NSFDbOpen(confTemplate, &ntf), NOERROR);
    }
    OpenDatabases(const OpenDatabases&) = delete;
    OpenDatabases& operator=(const OpenDatabases&) = delete;
    ~OpenDatabases() {
        EXPECT_EQ(NSFDbClose(ntf), NOERROR);
        EXPECT_EQ(NSFDbClose(database), NOERROR);
    }
    DBHANDLE database = NULLHANDLE;
    DBHANDLE ntf = NULLHANDLE;
};

} // namespace updkrx::test
