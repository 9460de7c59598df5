// What the migrations leave behind when an operation fails, and what they log then.
#include <algorithm>
#include <regex>

#include "foundation/notes_text.h"
#include "migrations/conf_migration.h"
#include "migrations/conflict_action.h"
#include "migrations/default_rule.h"
#include "migrations/dlp_upgrade.h"
#include "migrations/obsolete_unids.h"
#include "migrations/retired_documents.h"
#include "module/migration_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;
using test::OpenDatabases;

constexpr STATUS failure = ERR_NOACCESS | STS_REMOTE; // 16966
constexpr const char* unidA1 = "000000000000000000000000000000A1";
constexpr const char* unidD1 = "000000000000000000000000000000D1";

class MigrationFailuresTest : public test::MigrationFixture {
protected:
    void SetUp() override {
        MigrationFixture::SetUp();
        SwitchLogOn();
    }

    using Run = int32_t (*)(const OpenDatabases&);

    /** A run on a fixture's databases in which the n-th call of an operation fails, and with `persists` those
     *  after it. */
    int32_t RunFailing(const std::string& fixture, const char* operation, DWORD n, Run run, bool persists = false) {
        ForgetCollections();
        LoadFixture(fixture);
        const OpenDatabases open;
        EXPECT_EQ(EmbFaultArm(operation, n, failure, persists), NOERROR);
        const int32_t result = run(open);
        EXPECT_GT(EmbFaultsFired(), 0U);
        EmbFaultClear();
        return result;
    }
};

int32_t UpgradeEntities(const OpenDatabases& open) {
    return UpgradeDLPForm(open.ntf, open.database, "entity", "name");
}

int32_t RemoveReferences(const OpenDatabases& open) {
    ObsoleteUNIDSet = {unidA1};
    bool whole = false;
    return RemoveObsoleteUNID(open.database, whole);
}

int32_t ReplaceReferences(const OpenDatabases& open) {
    gMap = {{unidA1, unidD1}};
    bool whole = false;
    return ReplaceObsoleteUNID(open.database, whole);
}

int32_t RemoveRetired(const OpenDatabases& /*open*/) {
    return MigrateCFDLPDeleteAttachmentAction();
}

/** Once the new version stands under the old UNID, nothing undoes it: not even a copy of it that cannot be removed. */
TEST_F(MigrationFailuresTest, LeaveAFinishedDocument) {
    LoadFixture("failing");
    const std::string expected = Live(Expected());
    const std::string copy = std::string("<noteinfo unid='") + unidA1;
    for (const bool persists : {false, true}) {
        SCOPED_TRACE(persists);
        EXPECT_EQ(RunFailing("failing", "NSFNoteDelete", 3, UpgradeEntities, persists), NOERROR);
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

/** What is not known by its name may be the partner of any document of the template. */
TEST_F(MigrationFailuresTest, AddNothingBesideADocumentWithoutAKnownName) {
    const Run upgrade = [](const OpenDatabases& open) -> int32_t {
        return UpgradeDLPForm(open.ntf, open.database, "dictionary", "name");
    };
    LoadFixture("added_and_kept");
    const std::string before = Live(Content());
    const struct {
        const char* operation;
        DWORD n;
    } cases[] = {{"NSFNoteOpen", 1}, {"NSFItemGetText", 1}, {"OSTranslate", 2}}; // the first translates the formula
    for (const auto& [operation, n] : cases) {
        SCOPED_TRACE(operation);
        EXPECT_EQ(RunFailing("added_and_kept", operation, n, upgrade), NOERROR);
        EXPECT_EQ(Live(Content()), before);
        EXPECT_EQ(std::ranges::count(NewLogMessages(),
                                     "[1]Error: Not all names of dictionary documents can be read, so none is added."),
                  1);
    }
}

/** A list that cannot be written anew stays as it was; the other one of the document is worked on all the same. */
TEST_F(MigrationFailuresTest, RewriteOneListWithoutTheOther) {
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
        ASSERT_EQ(EmbFaultArm("NSFItemCreateTextList", n, failure, 0), NOERROR);
        bool whole = true;
        EXPECT_EQ(RemoveObsoleteUNID(database, whole), NOERROR);
        EXPECT_FALSE(whole);
        EmbFaultClear();
        EXPECT_EQ(NSFDbClose(database), NOERROR);
        EXPECT_EQ(Content(), after);
    }
}

TEST_F(MigrationFailuresTest, KeepWhatCannotBeRead) {
    const Run clearRules = [](const OpenDatabases& open) -> int32_t { return ClearDefaultRule(open.database); };
    const struct {
        const char* fixture;
        const char* operation;
        DWORD n; // of the first call that fails
        Run run;
    } cases[] = {
        {"failing", "NSFItemGetTextListEntries", 1, UpgradeEntities},
        {"failing", "NSFItemGetTextListEntry", 1, UpgradeEntities},
        {"failing", "NSFNoteOpenByUNID", 3, UpgradeEntities}, // whether the UNID of the template's document is free
        {"references_unread", "NSFItemGetTextListEntry", 2, RemoveReferences}, // after one that is obsolete
        {"references_unread", "NSFItemGetTextListEntry", 2, ReplaceReferences},
        {"retired", "NSFItemInfo", 1, RemoveRetired},
        {"retired_unread", "NSFItemGetText", 1, RemoveRetired},
        {"rules_unread", "NSFItemGetText", 1, clearRules},
    };
    for (const auto& [fixture, operation, n, run] : cases) {
        SCOPED_TRACE(std::string(fixture) + ", " + operation);
        LoadFixture(fixture);
        const std::string before = Content();
        (void)RunFailing(fixture, operation, n, run, true);
        EXPECT_EQ(Content(), before);
    }
}

/** A document that is out when the new version cannot be made is put back, and no copy stays beside it. */
TEST_F(MigrationFailuresTest, PutBackWhatCannotBeReplaced) {
    LoadFixture("failing");
    const std::string before = Live(Content());
    const std::pair<const char*, DWORD> cases[] = {{"NSFDbCopyNote", 3},
                                                   {"NSFNoteOpen", 6},
                                                   {"NSFNoteCopy", 2},
                                                   {"NSFItemAppendTextList", 3},
                                                   {"NSFNoteUpdate", 2}};
    for (const auto& [operation, n] : cases) {
        SCOPED_TRACE(operation);
        (void)RunFailing("failing", operation, n, UpgradeEntities);
        EXPECT_EQ(Live(Content()), before);
        EXPECT_EQ(std::ranges::count_if(
                      NewLogMessages(),
                      [](const std::string& message) { return message.find("ntf stays") != std::string::npos; }),
                  0);
    }
}

/** A document that shares the UNID of the template's document is no copy of it, whatever a server has answered once. */
TEST_F(MigrationFailuresTest, LeaveAnotherDocumentThatHasTheUnidOfACopy) {
    LoadFixture("unid_in_use");
    SetBehaviours("copy-unid=new");
    ASSERT_EQ(EmbFaultArm("NSFNoteOpenByUNID", 3, ERR_NOT_FOUND, 0), NOERROR);
    EXPECT_EQ(MigrateConfDatabase(), NOERROR);
    EXPECT_EQ(EmbFaultsFired(), 1U);
    FinishConfDatabaseOfDeadRun();
    EXPECT_NE(Content().find("Asia"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(KeptDocuments()));
}

/** Servers on which a copy has the UNID of the very document that it is to replace, or a new one each time. */
TEST_F(MigrationFailuresTest, ReplaceADocumentAgainForAsLongAsItsCopiesCanBeNoted) {
    const struct {
        const char* fixture;
        const char* before;
        const char* after;
        int runs;
        int notKept;
    } cases[] = {{"added_and_kept", "copy-unid=half,unid-change=refused", "copy-unid=half", 1, 0},
                 {"failing", "copy-unid=new", "copy-unid=new", 17, 4}}; // 15 UNIDs, one is the template document's
    for (const auto& [fixture, before, after, runs, notKept] : cases) {
        SCOPED_TRACE(fixture);
        ForgetCollections();
        SetBehaviours("");
        LoadFixture(fixture);
        SetBehaviours(before);
        const OpenDatabases open;
        (void)UpgradeDLPDocumentFromNTFtoNSF(open.ntf, open.database);
        SetBehaviours(after);
        for (int run = 0; run < runs; ++run) {
            (void)UpgradeDLPDocumentFromNTFtoNSF(open.ntf, open.database);
        }
        EXPECT_EQ(std::ranges::count_if(
                      NewLogMessages(),
                      [](const std::string& message) { return message.find("Keep original") != std::string::npos; }),
                  notKept);
    }
}

TEST_F(MigrationFailuresTest, LogWhatFails) {
    struct Row {
        const char* operation;
        DWORD n;
        int32_t result;
        const char* line; // AND: the status and its text, as most lines have them; LINE: a number
        const char* secondLine = nullptr;
    };
    const struct {
        const char* fixture;
        Run run;
        std::vector<Row> rows;
    } cases[] = {
        {"failing",
         [](const OpenDatabases& open) { return ChangeConflictAction(open.database); },
         {{"NSFFormulaCompile", 1, failure,
           "[0][PatchKRX:LINE]ChangeConflictAction Cannot compile the formula! error[16966]\n"},
          {"NSFSearch", 1, 0, nullptr}}},
        {"failing",
         [](const OpenDatabases& open) -> int32_t { return ClearDefaultRule(open.database); },
         {{"NSFFormulaCompile", 1, failure,
           "[0][PatchKRX:LINE]ChangeConflictAction Cannot compile the formula! error[16966]\n"},
          {"NSFSearch", 1, failure, nullptr}}},
        {"failing",
         UpgradeEntities,
         {{"NSFFormulaCompile", 1, 16383, "[1]Fail to compile SearchFormDocByDatabase",
           "[1]error to get form: entity document"},
          {"NSFFormulaCompile", 2, 16383, "[1]Fail to compile UpgradeFormDocumentsWithIdentifiedFiled",
           "[1]upgrade dlp documetn from ntf to nsf error, form: entity ,return"},
          {"NSFSearch", 1, 16383, "[1]NSFSearch failed for SearchFormDocByDatabase"},
          {"NSFNoteOpen", 2, 0, "[1]MigrateManualScanSettingCallback, open note failed."},
          {"NSFNoteOpen", 3, 0, "[1]open krconfntf failed."},
          {"NSFNoteOpen", 6, 0, "[1]NSFNoteOpen error. notesid=2302, AND..."},
          {"NSFNoteOpenByUNID", 1, 0, "[1]NSFNoteOpenByUNID, open note failed."},
          {"NSFDbCreateAndCopy", 1, 0,
           "[1]Keep original dlp template error. unid is 000000000000000000000000000000D1, AND..."},
          {"NSFNoteCopy", 1, 0,
           "[1]Keep original dlp template error. unid is 000000000000000000000000000000D1, AND..."},
          {"NSFNoteCopy", 2, 0, "[1]NSFNoteCopy error. AND..."},
          {"NSFNoteDelete", 2, 0, "[1]Delete original dlp template error. notesid=2294, AND..."},
          {"NSFNoteDelete", 3, 0, "[1]Delete temp dlp template error. notesid=2302, AND..."},
          {"NSFDbCopyNote", 3, 0, "[1]NSFDbCopyNote error. old notesid=2294, new notesid=0, AND..."},
          {"NSFItemAppendTextList", 3, 0, "[1]NSFItemAppendTextList error. AND..."},
          {"NSFNoteUpdate", 2, 0, "[1]NSFNoteUpdate error. AND..."},
          {"NSFNoteUpdate", 3, 0, "[1]NSFNoteUpdate error. AND..."}}},
        {"added_and_kept",
         [](const OpenDatabases& open) -> int32_t {
             return UpgradeDLPForm(open.ntf, open.database, "dictionary", "name");
         },
         {{"NSFDbCopyNote", 2, 0, "[1]NSFDbCopyNote error. old notesid=2314, AND..."}}},
        {"references",
         RemoveReferences,
         {{"NSFFormulaCompile", 1, failure,
           "[0][PatchKRX:LINE]RemoveObsoleteUNID Cannot compile the formula! error[16966]\n"},
          {"NSFSearch", 1, failure, "[3]RemoveObsoleteUNID: NSFSearch failed,error[16966],error message[TEXT]\n"},
          {"NSFNoteOpen", 1, 0, "[1]ERR: RemoveObsoleteUNIDCallback:NSFNoteOpen"},
          {"NSFItemDelete", 2, 0,
           "[1]RemoveTextListfield: NSFItemDelete error. item is ReferDocs, UNID is "
           "00000000000000000000000000000001, AND."},
          {"NSFItemCreateTextList", 1, 0,
           "[1]RemoveTextListfield: NSFItemCreateTextList error. UNID is 00000000000000000000000000000001, AND...",
           "[1]RemoveTextListfield: The document keeps what it had. item is ReferDocs, UNID is "
           "00000000000000000000000000000001"},
          {"NSFItemAppendTextList", 1, 0,
           "[1]RemoveTextListfield: NSFItemAppendTextList error. UNID is 00000000000000000000000000000001, "
           "AND..."}}},
        {"references",
         ReplaceReferences,
         {{"NSFFormulaCompile", 1, failure,
           "[0][PatchKRX:LINE]ReplaceObsoleteUNID Cannot compile the formula! error[16966]\n"},
          {"NSFSearch", 1, failure, "[3]ReplaceObsoleteUNID: NSFSearch failed, error[16966],error message[TEXT]\n"},
          {"NSFNoteOpen", 1, 0, "[1]ERR: ReplaceObsoleteUNIDCallback:NSFNoteOpen"},
          {"NSFItemDelete", 1, 0,
           "[1]ReplaceTextListfield: NSFItemDelete error. item is matchRule, UNID is "
           "00000000000000000000000000000004, AND."},
          {"NSFItemAppendTextList", 1, 0,
           "[1]ReplaceTextListfield: NSFItemAppendTextList error. UNID is 00000000000000000000000000000004, AND...",
           "[1]ReplaceTextListfield: The document keeps what it had. item is matchRule, UNID is "
           "00000000000000000000000000000004"}}},
        {"retired",
         RemoveRetired,
         {{"NSFDbOpen", 1, failure, nullptr},
          {"NSFFormulaCompile", 1, failure,
           "[0][PatchKRX:LINE]UpdateKrency Cannot compile the formula! error[16966]\n"},
          {"NSFNoteOpen", 2, ERR_NOACCESS, "[3]MigrateCFDLPDeleteAttachmentActionCallback, open note failed.",
           "[3]NSFSearch failed for template"},
          {"NSFNoteDelete", 1, 0, "[3]cannot delete note: 8f6"}}},
    };
    char text[256];
    GetStatusText(failure, text, sizeof text);
    const auto filledIn = [&](const std::string& line) {
        const std::string filled =
            std::regex_replace(line, std::regex("AND"), "sError is 16966, czErrorMessage is TEXT");
        return std::regex_replace(filled, std::regex("TEXT"), text);
    };
    for (const auto& [fixture, run, rows] : cases) {
        for (const auto& [operation, n, result, line, secondLine] : rows) {
            SCOPED_TRACE(std::string(fixture) + ", call " + std::to_string(n) + " of " + operation);
            EXPECT_EQ(RunFailing(fixture, operation, n, run), result);
            Texts log = NewLogMessages();
            for (std::string& message : log) {
                message = std::regex_replace(message, std::regex(R"(\[PatchKRX:\d+\])"), "[PatchKRX:LINE]");
            }
            for (const char* expected : {line, secondLine}) {
                if (expected != nullptr) {
                    EXPECT_EQ(std::ranges::count(log, filledIn(expected)), 1) << filledIn(expected);
                }
            }
        }
    }
}

} // namespace
} // namespace updkrx
