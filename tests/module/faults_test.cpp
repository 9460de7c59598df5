// What a step leaves behind when an operation fails, and what it logs then: one table for all steps that keep to a rule
// for every failure, and below it the failures that end in a state of their own.
#include <algorithm>
#include <map>
#include <memory>
#include <regex>

#include "foundation/console_command.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_text.h"
#include "maintenance/encyclopedia.h"
#include "maintenance/expressions.h"
#include "maintenance/replication_settings.h"
#include "maintenance/signing.h"
#include "migrations/conflict_action.h"
#include "migrations/default_rule.h"
#include "migrations/dlp_upgrade.h"
#include "migrations/obsolete_unids.h"
#include "migrations/retired_documents.h"
#include "module/migration_fixture.h"
#include "patch/build_numbers.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;
using test::OpenDatabases;

constexpr STATUS failure = ERR_NOACCESS | STS_REMOTE; // 16966
constexpr const char* unidA1 = "000000000000000000000000000000A1";
constexpr const char* unidD1 = "000000000000000000000000000000D1";

// ---- The steps

int32_t ChangeConflicts(const OpenDatabases* open) {
    return ChangeConflictAction(open->database);
}

int32_t ClearRules(const OpenDatabases* open) {
    return ClearDefaultRule(open->database);
}

int32_t UpgradeEntities(const OpenDatabases* open) {
    return UpgradeDLPForm(open->ntf, open->database, "entity", "name");
}

int32_t UpgradeDictionaries(const OpenDatabases* open) {
    return UpgradeDLPForm(open->ntf, open->database, "dictionary", "name");
}

int32_t RemoveReferences(const OpenDatabases* open) {
    ObsoleteUNIDSet = {unidA1};
    bool whole = false;
    return RemoveObsoleteUNID(open->database, whole);
}

int32_t ReplaceReferences(const OpenDatabases* open) {
    gMap = {{unidA1, unidD1}};
    bool whole = false;
    return ReplaceObsoleteUNID(open->database, whole);
}

int32_t RemoveRetired(const OpenDatabases* /*open*/) {
    return MigrateCFDLPDeleteAttachmentAction();
}

int32_t RecreateEncyclopedia(const OpenDatabases* /*open*/) {
    return static_cast<int32_t>(UpdateKrency());
}

int32_t MigrateExpressions(const OpenDatabases* /*open*/) {
    return static_cast<int32_t>(MigrateContentFilterExpressions());
}

int32_t SignAndHide(const OpenDatabases* /*open*/) {
    return SignAndHideDatabase("krmsg.nsf", PatchRunContext());
}

int32_t SetReplication(const OpenDatabases* /*open*/) {
    ScopedDatabase database;
    EXPECT_EQ(database.Open(NSFDbOpen, "krx/krmsg.nsf"), NOERROR);
    const STATUS result = CreateReplicationSettings(database.Get());
    EXPECT_EQ(database.Close(), NOERROR);
    return result;
}

int32_t ReadBuild(const OpenDatabases* /*open*/) {
    PatchRunContext context;
    context.databaseBuild = 7;
    EXPECT_EQ(GetRunningBuild(context), NOERROR);
    return context.databaseBuild;
}

int32_t SendCommand(const OpenDatabases* /*open*/) {
    return RunConsoleCommand("tell krxreal restart");
}

// ---- The table

constexpr DWORD forever = 0;

/** What is in the step's database afterwards. */
enum class Left {
    something,
    before,   // nothing has touched it
    putBack,  // what it held, with other deletion stubs
    upgraded, // what it holds when nothing fails
    oneSigned,
};

struct Row {
    const char* operation;
    DWORD n;     // of its calls, the one that fails
    DWORD times; // that it fails, or for ever
    int32_t result;
    /** Lines that come once each. AND: the status and its text, as most lines have them; TEXT: that text; LINE: a
     *  number; behind "server: ", a line of the server's log. */
    Texts lines = {};
    Left left = Left::something;
    STATUS status = failure;
};

struct Scene {
    const char* name;
    int32_t (*step)(const OpenDatabases* open);
    const char* fixture; // of the configuration database, which is open meanwhile; null:
    std::vector<std::pair<const char*, std::string>> databases; // path and notes, the step's first
    bool wholeLog;                                              // the lines are all that there are, here and there
    std::vector<Row> rows;
};

using Databases = std::vector<std::pair<const char*, std::string>>;

const std::string patternFile = "<document form='Patternfile'><noteinfo unid='9261BE8D7358607D48258E67000AFC80'/>"
                                "<item name='InternalPVer'><text>";
const Databases oldEncyclopedia = {
    {"krx/krency.nsf",
     "<acl><role>[PatternUpdate]</role><aclentry name='-Default-' level='reader' default='true'/></acl>" + patternFile +
         "1234</text></item></document>"},
    {"krx/krency.ntf", patternFile + "1.234.00</text></item></document>"}};
const Databases unversionedEncyclopedia = {{"krx/krency.nsf", "<document form='Patternfile'/>"}, oldEncyclopedia[1]};
const Databases designs = {{"krx/krmsg.nsf", "<note class='form'><item name='T'><text>x</text></item></note>"
                                             "<note class='view'><item name='T'><text>x</text></item></note>"}};
const Databases builtDatabase = {
    {"krx/krmsg.nsf",
     "<note class='helpusingdocument'><item name='BuildNumber'><text>5.8.0.3001</text></item></note>"}};
const Databases expression = {
    {"krx/krconf.nsf",
     "<document form='Expression'><item name='Expression'><text>this is not a joke</text></item></document>"}};

constexpr std::string_view serverLog = "server: ";
constexpr const char* namesUnread = "[1]Error: Not all names of dictionary documents can be read, so none is added.";
constexpr const char* recreate = "[0]krency.nsf is old format, recreate it";
constexpr const char* notDeleted = "[0]Failed to delete original KRX V3 krency.nsf, Error: 3E0C";
constexpr const char* startsToSign = "[1]Info: Start to sign - krmsg.nsf\n";
constexpr const char* signingFailed = "[1]Signning failed!!!";
constexpr const char* notSigned = "[1]Failed to sign krmsg.nsf - TEXT\n";
constexpr const char* signedDamaged = "[1]Error: Sign database failed - krmsg.nsf. The error number is 38696\n";
constexpr const char* runningBuild = "[1]The running KRX build is 3050";
constexpr const char* noDatabaseBuild = "[1]The running KRX database build is 0";
constexpr const char* noSettings = "[1]Error: The replication settings cannot be made. sError is 16966";
constexpr const char* notTaken = "[1]Error: The server did not take a command. (tell krxreal restart):(4246)";
constexpr const char* toldToServer = "server: TEXT";

// clang-format off
const Scene scenes[] = {
    {"conflict action", ChangeConflicts, "failing", {}, false,
     {{"NSFFormulaCompile", 1, 2, failure,
       {"[0][PatchKRX:LINE]ChangeConflictAction Cannot compile the formula! error[16966]\n"}},
      {"NSFSearch", 1, forever, 0, {"[1]Error: A search was broken off, and what it did not reach stays as it was. "
                            "(ChangeConflictActionCallback):(4246)"}, Left::before}}},
    {"default rules", ClearRules, "failing", {}, false,
     {{"NSFFormulaCompile", 1, 2, failure,
       {"[0][PatchKRX:LINE]ChangeConflictAction Cannot compile the formula! error[16966]\n"}},
      {"NSFSearch", 1, forever, failure, {}, Left::before}}},
    {"default rules that cannot be read", ClearRules, "rules_unread", {}, false,
     {{"NSFItemGetText", 1, forever, 0, {}, Left::before}}},
    {"entities", UpgradeEntities, "failing", {}, false,
     {{"NSFFormulaCompile", 1, 2, 16383,
       {"[1]Fail to compile SearchFormDocByDatabase", "[1]error to get form: entity document"}},
      {"NSFFormulaCompile", 2, 2, 16383,
       {"[1]Fail to compile UpgradeFormDocumentsWithIdentifiedFiled",
        "[1]upgrade dlp documetn from ntf to nsf error, form: entity ,return"}},
      {"NSFSearch", 1, 2, 16383, {"[1]NSFSearch failed for SearchFormDocByDatabase"}},
      {"NSFItemGetTextListEntries", 1, forever, 0, {}, Left::before},
      {"NSFItemGetTextListEntry", 1, forever, 0, {}, Left::before},
      {"NSFNoteOpenByUNID", 3, forever, 0, {}, Left::before}, // whether the copy's UNID is free
      {"NSFNoteOpen", 2, 2, 0, {"[1]MigrateManualScanSettingCallback, open note failed."}},
      {"NSFNoteOpen", 3, 2, 0, {"[1]open krconfntf failed."}},
      {"NSFNoteOpen", 6, 2, 0, {"[1]NSFNoteOpen error. notesid=2302, AND..."}, Left::upgraded},
      {"NSFNoteOpenByUNID", 1, 1, 0, {"[1]NSFNoteOpenByUNID, open note failed."}, Left::upgraded},
      {"NSFDbCreateAndCopy", 1, 1, 0,
       {"[1]Keep original dlp template error. unid is 000000000000000000000000000000D1, AND..."}, Left::upgraded},
      {"NSFNoteCopy", 1, 1, 0,
       {"[1]Keep original dlp template error. unid is 000000000000000000000000000000D1, AND..."}, Left::upgraded},
      {"NSFNoteCopy", 2, 1, 0, {"[1]NSFNoteCopy error. AND..."}, Left::upgraded},
      {"NSFNoteDelete", 2, 1, 0, {"[1]Delete original dlp template error. notesid=2294, AND..."}, Left::upgraded},
      {"NSFNoteDelete", 3, 1, 0, {"[1]Delete temp dlp template error. notesid=2302, AND..."}, Left::upgraded},
      {"NSFDbCopyNote", 3, 1, 0, {"[1]NSFDbCopyNote error. old notesid=2294, new notesid=0, AND..."}, Left::upgraded},
      {"NSFItemAppendTextList", 3, 1, 0, {"[1]NSFItemAppendTextList error. AND..."}, Left::upgraded},
      {"NSFNoteUpdate", 2, 1, 0, {"[1]NSFNoteUpdate error. AND..."}, Left::upgraded},
      {"NSFNoteUpdate", 3, 1, 0, {"[1]NSFNoteUpdate error. AND..."}, Left::upgraded}}},
    // What is not known by its name may be the partner of any document of the template.
    {"dictionaries", UpgradeDictionaries, "added_and_kept", {}, false,
     {{"NSFDbCopyNote", 2, 1, 0, {"[1]NSFDbCopyNote error. old notesid=2314, AND..."}},
      {"NSFNoteOpen", 1, forever, 0, {namesUnread}, Left::putBack},
      {"NSFItemGetText", 1, forever, 0, {namesUnread}, Left::putBack}}},
    {"obsolete references", RemoveReferences, "references", {}, false,
     {{"NSFFormulaCompile", 1, 2, failure,
       {"[0][PatchKRX:LINE]RemoveObsoleteUNID Cannot compile the formula! error[16966]\n"}},
      {"NSFSearch", 1, 2, failure, {"[3]RemoveObsoleteUNID: NSFSearch failed,error[16966],error message[TEXT]\n"}},
      {"NSFNoteOpen", 1, 2, 0, {"[1]ERR: RemoveObsoleteUNIDCallback:NSFNoteOpen"}},
      {"NSFItemDelete", 2, 1, 0,
       {"[1]RemoveTextListfield: NSFItemDelete error. item is ReferDocs, UNID is 00000000000000000000000000000001, "
        "AND."}},
      {"NSFItemCreateTextList", 1, 1, 0,
       {"[1]RemoveTextListfield: NSFItemCreateTextList error. UNID is 00000000000000000000000000000001, AND...",
        "[1]RemoveTextListfield: The document keeps what it had. item is ReferDocs, UNID is "
        "00000000000000000000000000000001"}},
      {"NSFItemAppendTextList", 1, 1, 0,
       {"[1]RemoveTextListfield: NSFItemAppendTextList error. UNID is 00000000000000000000000000000001, AND..."}}}},
    {"references to replaced documents", ReplaceReferences, "references", {}, false,
     {{"NSFFormulaCompile", 1, 2, failure,
       {"[0][PatchKRX:LINE]ReplaceObsoleteUNID Cannot compile the formula! error[16966]\n"}},
      {"NSFSearch", 1, 2, failure, {"[3]ReplaceObsoleteUNID: NSFSearch failed, error[16966],error message[TEXT]\n"}},
      {"NSFNoteOpen", 1, 2, 0, {"[1]ERR: ReplaceObsoleteUNIDCallback:NSFNoteOpen"}},
      {"NSFItemDelete", 1, 1, 0,
       {"[1]ReplaceTextListfield: NSFItemDelete error. item is matchRule, UNID is 00000000000000000000000000000004, "
        "AND."}},
      {"NSFItemAppendTextList", 1, 1, 0,
       {"[1]ReplaceTextListfield: NSFItemAppendTextList error. UNID is 00000000000000000000000000000004, AND...",
        "[1]ReplaceTextListfield: The document keeps what it had. item is matchRule, UNID is "
        "00000000000000000000000000000004"}}}},
    // After an entry that is obsolete.
    {"obsolete references that cannot be read", RemoveReferences, "references_unread", {}, false,
     {{"NSFItemGetTextListEntry", 2, forever, 0, {}, Left::before}}},
    {"references that cannot be read", ReplaceReferences, "references_unread", {}, false,
     {{"NSFItemGetTextListEntry", 2, forever, 0, {}, Left::before}}},
    {"retired documents", RemoveRetired, "retired", {}, false,
     {{"NSFDbOpen", 1, 2, failure, {}, Left::before},
      {"NSFFormulaCompile", 1, 2, failure,
       {"[0][PatchKRX:LINE]UpdateKrency Cannot compile the formula! error[16966]\n"}},
      {"NSFNoteOpen", 2, forever, ERR_NOACCESS, {"[3]NSFSearch failed for template"}}, // what was found goes
      {"NSFItemInfo", 1, forever, 0, {}, Left::before},
      {"NSFNoteDelete", 1, 2, 0, {"[3]cannot delete note: 8f6"}, Left::something}}},
    {"retired documents that cannot be read", RemoveRetired, "retired_unread", {}, false,
     {{"NSFItemGetText", 1, forever, 0, {}, Left::before}}},
    // Before, in or after its deletion: the old database is there and online as it was, and nothing is left beside it.
    {"encyclopedia", RecreateEncyclopedia, nullptr, oldEncyclopedia, true,
     {{"NSFDbOpen", 1, 2, 0, {}, Left::before},
      {"NSFFormulaCompile", 1, 2, ERR_FORMULA_COMPILATION,
       {"[0][PatchKRX:LINE]UpdateKrency Cannot compile the formula! error[1281]\n"}, Left::before,
       ERR_FORMULA_COMPILATION},
      {"NSFItemGetText", 1, forever, 0,
       {"[1]Error: An item cannot be read. item is InternalPVer, UNID is 9261BE8D7358607D48258E67000AFC80"},
       Left::before},
      {"NSFTakeDatabaseOffline", 1, 2, EMB_ERR_DISK, {recreate, notDeleted}, Left::before, EMB_ERR_DISK},
      {"NSFTakeDatabaseOffline", 2, forever, EMB_ERR_DISK, {recreate, notDeleted}, Left::before, EMB_ERR_DISK},
      {"NSFDbCreateAndCopy", 1, forever, EMB_ERR_DISK,
       {recreate, "[0]Failed to recreate krency.nsf, Error: 3E0C", "[0]The old krency.nsf is put back."},
       Left::before, EMB_ERR_DISK}}},
    {"encyclopedia without a version", RecreateEncyclopedia, nullptr, unversionedEncyclopedia, true,
     {{"NSFItemInfo", 1, 1, 0, {}, Left::before}}},
    {"expressions", MigrateExpressions, nullptr, expression, true,
     {{"NSFFormulaCompile", 1, 2, ERR_FORMULA_COMPILATION,
       {"[0][PatchKRX:LINE]UpdateKrency Cannot compile the formula! error[1281]\n"}, Left::before,
       ERR_FORMULA_COMPILATION}}}, // no table of expressions
    {"signing", SignAndHide, nullptr, designs, true,
     {{"NSFSearch", 1, forever, 65535, {startsToSign, notSigned, toldToServer}, Left::before},
      {"NSFSearch", 1, forever, 65535, {startsToSign, signedDamaged}, Left::before, 0x9728},
      {"NSFSearch", 1, forever, 65535, {startsToSign, notSigned, toldToServer}, Left::before, 0x1728},
      {"NSFNoteOpen", 1, forever, 65535, {startsToSign, signingFailed, notSigned, toldToServer}, Left::before},
      // Once more, and of the form when it is saved.
      {"NSFNoteOpen", 2, forever, 65535, {startsToSign, signingFailed, notSigned, toldToServer}, Left::before},
      {"NSFNoteOpen", 3, forever, 65535, {startsToSign, signingFailed, signedDamaged}, Left::oneSigned, 0x9728},
      {"NSFNoteClose", 2, forever, 65535, {startsToSign, notSigned, toldToServer}, Left::oneSigned}}},
    {"replication settings", SetReplication, nullptr, designs, false,
     {{"OSGetEnvironmentString", 1, 2, 1, {}, Left::before},
      {"NSFNoteCreate", 1, forever, failure, {noSettings}, Left::before},
      {"NSFItemSetText", 1, forever, failure, {noSettings}, Left::before}, // $TITLE
      {"NSFItemSetText", 2, forever, failure, {noSettings}, Left::before}, // $ReplVersion
      {"OSMemAlloc", 1, forever, failure, {noSettings}, Left::before},
      {"OSLockObject", 1, forever, 1, {}, Left::before},
      {"NSFItemAppend", 1, forever, failure, {noSettings}, Left::before}, // $ReplSrcServers
      {"NSFItemAppend", 2, forever, failure, {noSettings}, Left::before}, // $ReplClassMasks
      {"NSFFormulaCompile", 1, forever, 1, {}, Left::before},
      {"OSLockObject", 2, forever, 1, {}, Left::before},                  // the compiled formula
      {"NSFItemAppend", 3, forever, failure, {noSettings}, Left::before}, // $ReplFormula
      {"NSFNoteUpdate", 1, forever, failure, {noSettings}, Left::before}}},
    {"build numbers", ReadBuild, nullptr, builtDatabase, true,
     {{"NSFSearch", 1, forever, 0,
       {"[1]Error: A search was broken off, and what it did not reach stays as it was. (GetBuildNumberCallback):(4246)",
        "[1]Error: Get build number failed", runningBuild, noDatabaseBuild},
       Left::before},
      {"NSFNoteOpen", 1, 2, 0, {runningBuild, noDatabaseBuild, toldToServer}, Left::before}}},
    {"console command", SendCommand, nullptr, {}, false,
     {{"NSFRemoteConsole", 1, 1, failure, {notTaken}},
      {"SECKFMGetUserName", 1, 2, failure, {notTaken}, Left::something}}},
};
// clang-format on

class FaultsTest : public test::MigrationFixture {
protected:
    void SetUp() override {
        MigrationFixture::SetUp();
        SwitchLogOn();
        SetEnvironment("MailServer", "CN=Mail01/O=Varnholt");
    }

    /** Makes a scene's databases anew; the path of the step's own, null when it has none. */
    const char* Make(const Scene& scene) {
        ForgetCollections();
        if (scene.fixture != nullptr) {
            LoadFixture(scene.fixture);
            return test::confDatabase;
        }
        std::filesystem::remove_all(Data() / "krx");
        std::filesystem::create_directory(Data() / "krx");
        for (const auto& [path, notes] : scene.databases) {
            MakeDatabase(path, notes);
        }
        return scene.databases.empty() ? nullptr : scene.databases.front().first;
    }

    static int32_t RunFailing(const Scene& scene, const Row& row) {
        const auto open = scene.fixture != nullptr ? std::make_unique<OpenDatabases>() : nullptr;
        const DWORD armed = std::max(row.times, DWORD{1});
        for (DWORD n = row.n; n < row.n + armed; ++n) {
            EXPECT_EQ(EmbFaultArm(row.operation, n, row.status, row.times == forever), NOERROR);
        }
        const int32_t result = scene.step(open.get());
        EXPECT_GT(EmbFaultsFired(), 0U);
        EmbFaultClear();
        return result;
    }

    /** What a row's line stands for. */
    static std::string FilledIn(const std::string& line, STATUS status) {
        char text[256];
        GetStatusText(status, text, sizeof text);
        const std::string sentence = "sError is " + std::to_string(status) + ", czErrorMessage is TEXT";
        return std::regex_replace(std::regex_replace(line, std::regex("AND"), sentence), std::regex("TEXT"), text);
    }

    void CheckLog(const Scene& scene, const Row& row) {
        Texts log = NewLogMessages();
        for (std::string& message : log) {
            message = std::regex_replace(message, std::regex(R"(\[PatchKRX:\d+\])"), "[PatchKRX:LINE]");
        }
        Texts expected;
        for (const std::string& line : row.lines) {
            const std::string filled = FilledIn(line, row.status);
            if (filled.starts_with(serverLog)) {
                ++told_[filled.substr(serverLog.size())];
                continue;
            }
            expected.push_back(filled);
            EXPECT_TRUE(std::ranges::count(log, filled) == 1 ||
                        (row.times == forever && std::ranges::find(log, filled) != log.end()))
                << filled;
        }
        if (scene.wholeLog) {
            EXPECT_EQ(std::set(log.begin(), log.end()), std::set(expected.begin(), expected.end()));
            const std::string text = FilledIn("TEXT", row.status);
            EXPECT_EQ(ServerLogCount(text), told_[text]);
        }
        EXPECT_TRUE(row.left != Left::putBack || std::ranges::none_of(log, [](const std::string& message) {
                        return message.find("ntf stays") != std::string::npos;
                    }));
    }

    void CheckDatabase(const char* path, const std::string& before, Left left) {
        const std::string after = ExportDatabase(path);
        EXPECT_EQ(after.find("krx:replicationflags='0020'"), before.find("krx:replicationflags='0020'")) << "hidden";
        EXPECT_FALSE(EmbIsOffline(path));
        for (const auto& entry : std::filesystem::directory_iterator(Data() / "krx")) {
            EXPECT_FALSE(entry.path().string().find(std::string(path).substr(4) + ".updkrx") != std::string::npos)
                << entry.path();
        }
        switch (left) {
        case Left::before:
            EXPECT_EQ(after, before);
            break;
        case Left::putBack:
            EXPECT_EQ(Live(after), Live(before));
            break;
        case Left::upgraded:
            EXPECT_EQ(Live(Content()), Live(Expected()));
            break;
        case Left::oneSigned:
            EXPECT_EQ(Signed(path), 1U);
            break;
        case Left::something:
            break;
        }
    }

    static DWORD Signed(const char* path) {
        EMBSIGNATURES counts = {};
        EXPECT_EQ(EmbSignatures(path, NOTE_CLASS_ALLNONDATA, &counts, nullptr, 0), NOERROR);
        return counts.signedNotes;
    }

private:
    std::map<std::string, int> told_; // lines of the server's log
};

TEST_F(FaultsTest, LeaveWhatTheStepPromises) {
    for (const Scene& scene : scenes) {
        for (const Row& row : scene.rows) {
            SCOPED_TRACE(std::string(scene.name) + ": call " + std::to_string(row.n) + " of " + row.operation);
            const char* path = Make(scene);
            const std::string before = path != nullptr ? ExportDatabase(path) : "";
            EXPECT_EQ(RunFailing(scene, row), row.result);
            CheckLog(scene, row);
            EXPECT_TRUE(ConsoleCommands().empty());
            if (path != nullptr) {
                CheckDatabase(path, before, row.left);
            }
        }
    }
}

/** Once the new version stands under the old UNID, nothing undoes it: not even a copy of it that cannot be removed. */
TEST_F(FaultsTest, LeaveAFinishedDocument) {
    const Scene scene = {"entities", UpgradeEntities, "failing", {}, false, {}};
    (void)Make(scene);
    const std::string expected = Live(Expected());
    const std::string copy = std::string("<noteinfo unid='") + unidA1;
    for (const bool persists : {false, true}) {
        SCOPED_TRACE(persists);
        (void)Make(scene);
        EXPECT_EQ(RunFailing(scene, {"NSFNoteDelete", 3, persists ? forever : 1, 0}), NOERROR);
        std::string content = Live(Content());
        EXPECT_EQ(content.find(copy) != std::string::npos, persists);
        EXPECT_EQ(gMap.contains(unidA1), !persists) << "references to a copy that is there are right";
        if (const size_t at = content.find(copy); at != std::string::npos) {
            const size_t begin = content.rfind("  <note ", at);
            const std::string end = "</note>\n";
            content.erase(begin, content.find(end, at) + end.size() - begin);
        }
        EXPECT_EQ(content, expected);
    }
}

/** A list that cannot be written anew stays as it was; the other one of the document is worked on all the same. */
TEST_F(FaultsTest, RewriteOneListWithoutTheOther) {
    const std::string lists = "<document form='region'><noteinfo unid='00000000000000000000000000000001'/>";
    const auto list = [](const std::string& item, const std::string& entries) {
        return "<item name='" + item + "'><textlist>" + entries + "</textlist></item>";
    };
    const std::string obsolete = std::string("<text>U1</text><text>") + unidA1 + "</text>";
    const std::string rest = "<text>U1</text>";
    const struct {
        DWORD n; // of the list's creation that fails
        std::string expected;
    } cases[] = {{1, list("ReferDocs", obsolete) + list("UseDocs", rest)},
                 {2, list("UseDocs", obsolete) + list("ReferDocs", rest)}};
    for (const auto& [n, expected] : cases) {
        SCOPED_TRACE(n);
        const auto contentOf = [&](const std::string& items) {
            std::filesystem::remove(Data() / test::confDatabase);
            MakeDatabase(test::confDatabase, lists + items + "</document>");
            return Content();
        };
        const std::string after = contentOf(expected);
        (void)contentOf(list("ReferDocs", obsolete) + list("UseDocs", obsolete));
        DBHANDLE database = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(test::confDatabase, &database), NOERROR);
        ObsoleteUNIDSet = {unidA1};
        for (const DWORD call : {n, n + 2}) { // the list's, and again as the document is tried once more
            ASSERT_EQ(EmbFaultArm("NSFItemCreateTextList", call, failure, 0), NOERROR);
        }
        bool whole = true;
        EXPECT_EQ(RemoveObsoleteUNID(database, whole), NOERROR);
        EXPECT_FALSE(whole);
        EmbFaultClear();
        EXPECT_EQ(NSFDbClose(database), NOERROR);
        EXPECT_EQ(Content(), after);
    }
}

} // namespace
} // namespace updkrx
