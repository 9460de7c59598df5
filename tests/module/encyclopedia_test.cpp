// The encyclopedia database: when it is made anew, what it is made of, and what is left when that fails.
#include "maintenance/encyclopedia.h"

#include <regex>

#include "support/server_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* databasePath = "krx/krency.nsf";
constexpr const char* templatePath = "krx/krency.ntf";
constexpr const char* recreate = "[0]krency.nsf is old format, recreate it";
constexpr const char* inUse = "[0]DB in use, waiting";
constexpr const char* created = "[0]Success created new krency.nsf";
constexpr const char* notDeleted = "[0]Failed to delete original KRX V3 krency.nsf, Error: ";

std::string PatternFile(const std::string& version) {
    return "<document form='Patternfile'><item name='InternalPVer'><text>" + version + "</text></item></document>";
}

const std::string oldAcl = "<acl><role>[PatternUpdate]</role>"
                           "<aclentry name='-Default-' level='reader' default='true'/>"
                           "<aclentry name='CN=Hub01/O=Varnholt' level='editor' type='server' deletedocs='true'>"
                           "<role>[PatternUpdate]</role></aclentry></acl>";
const std::string oldDatabase =
    oldAcl + PatternFile("1234") + "<document form='Entry'><item name='VirusName'><text>Vrol</text></item></document>";
const std::string newDatabase = "<acl><aclentry name='LocalDomainServers' level='manager' type='servergroup'/></acl>"
                                "<document form='Patternfile'>"
                                "<noteinfo unid='9261BE8D7358607D48258E67000AFC80'/>"
                                "<item name='InternalPVer'><text>1.234.00</text></item>"
                                "</document>"
                                "<note class='form'><noteinfo unid='F49AFD5C794C4E1D48258D7600166B22'/>"
                                "<item name='$TITLE'><text>Patternfile</text></item></note>";

/** The replica ID in an export. */
const std::regex replicaId(" replicaid='[0-9A-F]{16}'");

class EncyclopediaTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
        EmbClockSetVirtual(180000000000);
        MakeDatabase(templatePath, newDatabase);
        DBHANDLE database = NULLHANDLE;
        DBREPLICAINFO info = {};
        ASSERT_EQ(NSFDbOpen(templatePath, &database), NOERROR);
        ASSERT_EQ(NSFDbReplicaInfoGet(database, &info), NOERROR);
        info.Flags = REPLFLG_HIDDEN_DESIGN;
        info.CutoffInterval = 30;
        ASSERT_EQ(NSFDbReplicaInfoSet(database, &info), NOERROR);
        ASSERT_EQ(NSFDbClose(database), NOERROR);
        Reset(oldDatabase);
    }

    /** Begins anew with a database of these notes and an empty log. */
    void Reset(const std::string& notes) {
        EmbFaultClear();
        EmbResetCalls();
        std::filesystem::remove(Data() / databasePath);
        std::filesystem::remove_all(Data() / "krxtemp");
        std::filesystem::create_directory(Data() / "krxtemp");
        MakeDatabase(databasePath, notes);
        before_ = ExportDatabase(databasePath);
    }

    [[nodiscard]] std::string Before() const { return before_; }
    [[nodiscard]] std::string Now() const { return ExportDatabase(databasePath); }
    [[nodiscard]] bool Exists() const { return std::filesystem::exists(Data() / databasePath); }
    [[nodiscard]] std::filesystem::path KeptFile() const { return Data() / "krx/krency.nsf.updkrx-kept"; }
    [[nodiscard]] std::filesystem::path OldFile() const { return Data() / "krx/krency.nsf.updkrx-old"; }
    [[nodiscard]] std::filesystem::path OfflineMark() const { return Data() / "krx/krency.nsf.updkrx-offline"; }
    /** Whether anything is left beside the database. */
    [[nodiscard]] bool IsKept() const {
        return std::filesystem::exists(KeptFile()) || std::filesystem::exists(OldFile()) ||
               std::filesystem::exists(OfflineMark());
    }
    /** The template's content under the fixed replica ID. */
    [[nodiscard]] std::string WithTemplateAcl() const {
        return std::regex_replace(ExportDatabase(templatePath), replicaId, " replicaid='852552F9001E96E4'");
    }
    /** The same with the old database's access control list. */
    [[nodiscard]] std::string Recreated() const {
        const auto aclOf = [](const std::string& database) {
            const size_t begin = database.find("  <acl>");
            return std::pair(begin, database.find("  <note", begin) - begin);
        };
        const auto [oldBegin, oldLength] = aclOf(before_);
        std::string database = WithTemplateAcl();
        const auto [begin, length] = aclOf(database);
        return database.replace(begin, length, before_.substr(oldBegin, oldLength));
    }

private:
    std::string before_;
};

TEST_F(EncyclopediaTest, TellsTheOldFormatByTheVersionsOfPatternFiles) {
    const std::string digits30(30, '7');
    const struct {
        const char* what;
        std::string notes;
        bool old;
    } cases[] = {
        {"no documents", "", false},
        {"no version", "<document form='Patternfile'/>", false},
        {"digits", PatternFile("1234"), true},
        {"an empty version", PatternFile(""), true},
        {"with a dot", PatternFile("1.234"), false},
        {"with a dot at its end", PatternFile("1234."), false},
        {"a dot behind a line break", PatternFile("1<break/>2.34"), false},
        {"a dot as the last character that counts", PatternFile(digits30 + "."), false},
        {"a dot behind that", PatternFile(digits30 + "7."), true},
        {"40 characters", PatternFile(digits30 + "77777.7777"), true},
        {"one among many", PatternFile("1.1") + PatternFile("1.2") + PatternFile("3") + PatternFile("1.4"), true},
        {"another form",
         PatternFile("1.1") + "<document form='Entry'><item name='InternalPVer'><text>12</text></item></document>",
         false},
        {"no document",
         "<note class='form'><item name='Form'><text>Patternfile</text></item>"
         "<item name='InternalPVer'><text>12</text></item></note>",
         false},
    };
    for (const auto& [what, notes, old] : cases) {
        SCOPED_TRACE(what);
        Reset(oldAcl + notes);
        EXPECT_EQ(UpdateKrency(), 0U);
        EXPECT_EQ(Now(), old ? Recreated() : Before());
        EXPECT_EQ(LogMessages(), old ? (Texts{recreate, created}) : Texts{});
        EXPECT_EQ(EmbCallCount("NSFDbReadACL"), old ? 1U : 0U);
        EXPECT_FALSE(IsKept());
    }
}

TEST_F(EncyclopediaTest, MakesItAnewOnce) {
    EXPECT_EQ(UpdateKrency(), 0U);
    const std::string after = Now();
    EXPECT_EQ(after, Recreated());
    EXPECT_NE(after.find("krx:replicationflags='0020'"), std::string::npos) << "as the database was created";
    EXPECT_NE(after.find("krx:cutoffinterval='30'"), std::string::npos);
    EXPECT_EQ(EmbClockWaited(), 0);

    EXPECT_EQ(UpdateKrency(), 0U);
    EXPECT_EQ(Now(), after);
    EXPECT_EQ(LogMessages(), (Texts{recreate, created}));
}

TEST_F(EncyclopediaTest, WaitsForItsUsers) {
    const struct {
        DWORD answers;
        bool remote; // as a server answers that is not this one
        int lines;
        int64_t waited; // milliseconds
        DWORD result;
    } cases[] = {{1, true, 1, 1000, 0}, {59, false, 59, 649000, 0}, {60, false, 60, 660000, ERR_DBINUSE}};
    for (const auto& [answers, remote, lines, waited, result] : cases) {
        SCOPED_TRACE(answers);
        Reset(oldDatabase);
        ASSERT_EQ(remote ? EmbFaultArm("NSFTakeDatabaseOffline", 1, ERR_DBINUSE | STS_REMOTE, 0)
                         : EmbSetInUse(databasePath, answers),
                  NOERROR);
        const int64_t start = EmbClockWaited();
        EXPECT_EQ(UpdateKrency(), result);
        EXPECT_EQ(EmbClockWaited() - start, waited);
        EXPECT_EQ(Now(), result == 0 ? Recreated() : Before());
        Texts expected = {recreate};
        expected.insert(expected.end(), static_cast<size_t>(lines), inUse);
        expected.push_back(result == 0 ? created : notDeleted + std::string("13EA"));
        EXPECT_EQ(LogMessages(), expected);
    }
}

TEST_F(EncyclopediaTest, KeepsTheOldOneWhereAFileIsMissingOrInTheWay) {
    std::filesystem::remove(Data() / databasePath);
    EXPECT_EQ(UpdateKrency(), 0U) << "there is none";
    EXPECT_FALSE(Exists());

    Reset(oldDatabase);
    std::filesystem::remove(Data() / templatePath);
    EXPECT_EQ(UpdateKrency(), ERR_NOEXIST);
    EXPECT_EQ(Now(), Before()) << "without a template";

    Reset(oldDatabase);
    std::filesystem::create_directory(KeptFile()); // no file can be kept there
    EXPECT_NE(UpdateKrency(), NOERROR);
    EXPECT_EQ(Now(), Before()) << "without a place to keep it";
    EXPECT_FALSE(EmbIsOffline(databasePath));
}

/** What dresses the new one is tried twice; without it, the file of the old one stays. */
TEST_F(EncyclopediaTest, KeepsTheOldOneBesideANewOneThatLacksSomething) {
    const std::string newId = " replicaid=''";
    const struct {
        const char* operation;
        std::string after;
        bool ownReplicaId;
    } cases[] = {
        {"NSFDbReadACL", WithTemplateAcl(), false},
        {"NSFDbStoreACL", WithTemplateAcl(), false},
        {"NSFDbReplicaInfoGet", Recreated(), true},
        {"NSFDbReplicaInfoSet", Recreated(), true},
    };
    for (const auto& [operation, after, ownReplicaId] : cases) {
        for (const bool persists : {false, true}) {
            SCOPED_TRACE(operation + std::to_string(persists));
            Reset(oldDatabase);
            const std::string old = test::ReadFile(Data() / databasePath);
            ASSERT_EQ(EmbFaultArm(operation, 1, ERR_NOACCESS, persists), NOERROR);
            EXPECT_EQ(UpdateKrency(), 0U);
            EXPECT_EQ(EmbFaultsFired(), persists ? 2U : 1U);
            EmbFaultClear();
            EXPECT_EQ(IsKept(), persists);
            if (!persists) {
                EXPECT_EQ(Now(), Recreated());
                continue;
            }
            EXPECT_EQ(test::ReadFile(OldFile()), old) << "where no later run takes it for the old one of a dead run";
            EXPECT_FALSE(std::filesystem::exists(KeptFile()));
            EXPECT_EQ(LogMessages().size(), 3U);
            EXPECT_EQ(Now() != after, ownReplicaId);
            EXPECT_EQ(std::regex_replace(Now(), replicaId, newId), std::regex_replace(after, replicaId, newId));
            std::filesystem::remove(OldFile());
        }
    }
}

TEST_F(EncyclopediaTest, FinishesWhatADeadRunHasBegun) {
    FinishKrencyOfDeadRun();
    EXPECT_EQ(EmbCallCount("NSFDbOpen") + EmbCallCount("NSFBringDatabaseOnline"), 0U) << "nothing to do";
    const std::string old = test::ReadFile(Data() / databasePath);
    const std::string expected = Recreated();
    for (const char* there : {"none", "the old one, offline", "a new one"}) {
        SCOPED_TRACE(there);
        if (*there == 'n') {
            std::filesystem::remove(Data() / databasePath);
        } else if (*there == 'a') {
            std::filesystem::remove(Data() / databasePath);
            MakeDatabase(databasePath, newDatabase);
        } else {
            test::WriteFile(Data() / databasePath, old);
            ASSERT_EQ(NSFTakeDatabaseOffline(databasePath, 0, OFFLINE_NODELETE), NOERROR);
        }
        test::WriteFile(KeptFile(), old);
        test::WriteFile(OfflineMark(), "");
        FinishKrencyOfDeadRun();
        EXPECT_EQ(Now(), expected);
        EXPECT_FALSE(EmbIsOffline(databasePath));
        EXPECT_FALSE(IsKept());
    }

    Reset(oldDatabase);
    test::WriteFile(OfflineMark(), ""); // the run died before it had a copy
    ASSERT_EQ(NSFTakeDatabaseOffline(databasePath, 0, OFFLINE_NODELETE), NOERROR);
    FinishKrencyOfDeadRun();
    EXPECT_EQ(Now(), Before());
    EXPECT_FALSE(EmbIsOffline(databasePath));
    EXPECT_FALSE(IsKept());

    test::WriteFile(KeptFile(), "whatever"); // the run died when the new one was finished
    FinishKrencyOfDeadRun();
    EXPECT_EQ(Now(), Before());
    EXPECT_FALSE(std::filesystem::exists(KeptFile()));
    EXPECT_EQ(test::ReadFile(Data() / "krx/krency.nsf.updkrx-old"), "whatever") << "the new one may lack something";

    test::WriteFile(KeptFile(), "whatever");
    test::WriteFile(OfflineMark(), "");
    ASSERT_EQ(EmbSetInUse(databasePath, 60), NOERROR);
    FinishKrencyOfDeadRun();
    EXPECT_TRUE(IsKept()) << "nothing is put in the place of what somebody has open";
    std::filesystem::remove(KeptFile());
}

} // namespace
} // namespace updkrx
