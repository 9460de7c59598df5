#include <algorithm>
#include <set>

#include "foundation/text_lists.h"
#include "foundation/unid_text.h"
#include "migrations/conf_migration.h"
#include "migrations/conflict_action.h"
#include "migrations/default_rule.h"
#include "migrations/dlp_upgrade.h"
#include "migrations/kept_documents.h"
#include "migrations/obsolete_unids.h"
#include "migrations/retired_documents.h"
#include "module/migration_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;
using MigrationsTest = test::MigrationFixture;
using test::confDatabase;
using test::OpenDatabases;

constexpr const char* unidA2 = "000000000000000000000000000000A2";
constexpr const char* unidD2 = "000000000000000000000000000000D2";

/** Servers on which one way or another of replacing a document does not work. */
constexpr const char* servers[] = {
    "",
    "updated-note=again",
    "copy-unid=kept-if-free",
    "copy-unid=half",
    "copy-unid=new",
    "stub-unid=taken",
    "unid-change=refused",
    "unid-change=ignored",
    "soft-deletion=on",
    "append-to-text=refused,entries-of-text=none",
    "search=all,search-order=descending",
    "delete-item=first,updated-note=again",
    "get-text-size=with-terminator,translate-result=with-terminator,failed-handles=garbage",
    "copy-unid=half,stub-unid=taken,unid-change=refused",
    "copy-unid=new,stub-unid=taken,soft-deletion=on,unid-change=ignored,search=all,search-order=shuffled",
};

void Migrate() {
    EXPECT_EQ(MigrateConfDatabase(), NOERROR);
}

void RemoveRetired() {
    EXPECT_EQ(MigrateCFDLPDeleteAttachmentAction(), NOERROR);
}

TEST_F(MigrationsTest, TurnEachDatabaseIntoTheExpectedOne) {
    const struct {
        const char* fixture;
        void (*migrate)();
        std::map<std::string, std::string> replaced; // what gMap holds then
        const char* depends = nullptr;               // the behaviour on which the end rightly depends
    } cases[] = {
        {"registers_and_rules", Migrate, {}},
        {"added_and_kept", Migrate, {}, "search-order"}, // of documents of one name the first that is found counts
        {"names_of_lines", Migrate, {{unidA2, unidD2}}},
        {"several_of_a_name", Migrate, {{unidA2, unidD2}}},
        {"failing", Migrate, {{"000000000000000000000000000000A1", "000000000000000000000000000000D1"}}},
        {"replaced",
         Migrate,
         {{unidA2, unidD2}, {"000000000000000000000000000000A3", "000000000000000000000000000000D3"}}},
        {"references",
         Migrate,
         {{"000000000000000000000000000000A1", "000000000000000000000000000000D1"}, {unidA2, unidD2}}},
        {"unid_in_use", Migrate, {}, "copy-unid"}, // a copy under another UNID is not in the way of anything
        {"retired", RemoveRetired, {}},
    };
    for (const auto& [fixture, migrate, replaced, depends] : cases) {
        for (const std::string_view behaviours : servers) {
            if (depends != nullptr && behaviours.find(depends) != std::string_view::npos) {
                continue;
            }
            SCOPED_TRACE(std::string(fixture) + " on a server with " + std::string(behaviours));
            ForgetCollections();
            SetBehaviours("");
            LoadFixture(fixture);
            SetBehaviours(behaviours);
            migrate();
            EXPECT_EQ(Live(Content()), Live(Expected()));
            EXPECT_FALSE(std::filesystem::exists(KeptDocuments()));
            if (behaviours.empty()) {
                EXPECT_EQ(Content(), Expected());
                EXPECT_EQ(gMap, replaced);
            }
            EXPECT_TRUE(std::ranges::equal(ObsoleteUNIDSet, gMap, {}, {}, &decltype(gMap)::value_type::first));
            migrate();
            EXPECT_EQ(Live(Content()), Live(Expected())) << "the second run";
        }
    }
}

TEST_F(MigrationsTest, OverrideWhoSavedMeanwhile) {
    for (const char* fixture : {"registers_and_rules", "replaced", "references"}) {
        SCOPED_TRACE(fixture);
        ForgetCollections();
        LoadFixture(fixture);
        {
            const test::SomebodySavesFirst somebody({confDatabase});
            Migrate();
        }
        EXPECT_EQ(Live(Content()), Live(Expected()));
    }
}

/** Whatever fails from some call on, the run after it has every document. */
TEST_F(MigrationsTest, PutBackFirstWhatAnEarlierRunHasTakenOut) {
    bool wasKept = false;
    const struct {
        const char* fixture;
        const char* operation;
        DWORD first;
        DWORD last;
    } cases[] = {
        {"replaced", "NSFNoteUpdate", 1, 9},         {"replaced", "NSFNoteDelete", 1, 9},
        {"replaced", "NSFNoteOpen", 1, 9},           {"replaced", "NSFDbCopyNote", 1, 9},
        {"references", "NSFFormulaCompile", 19, 20}, // the repair of references
        {"references", "NSFNoteUpdate", 20, 20},
    };
    for (const std::string_view behaviours : {"", "copy-unid=new,unid-change=refused", "stub-unid=taken"}) {
        for (const auto& [fixture, operation, first, last] : cases) {
            for (DWORD n = first; n <= last; ++n) {
                SCOPED_TRACE(operation + std::to_string(n) + " on " + std::string(behaviours));
                ForgetCollections();
                SetBehaviours("");
                LoadFixture(fixture);
                SetBehaviours(behaviours);
                ASSERT_EQ(EmbFaultArm(operation, n, ERR_NOACCESS, 1), NOERROR);
                Migrate();
                EmbFaultClear();
                EXPECT_TRUE(operation != std::string_view("NSFNoteUpdate") ||
                            Live(Content()).find(std::string("unid='") + unidD2) != std::string::npos)
                    << "it is copied";
                const bool kept = HasKeptDocuments() && !KeepsNone();
                wasKept = wasKept || kept;
                ForgetCollections();
                FinishConfDatabaseOfDeadRun();
                EXPECT_FALSE(std::filesystem::exists(KeptDocuments()));
                EXPECT_TRUE(!kept || Live(Content()) == Live(Expected())) << Content();
                Migrate();
                EXPECT_EQ(Live(Content()), Live(Expected()));
                EXPECT_FALSE(std::filesystem::exists(KeptDocuments()));
            }
        }
    }
    EXPECT_TRUE(wasKept);
}

/** A document that could not be put back is in no second try taken for the half copy that stands in its place. */
TEST_F(MigrationsTest, LoseNoReferencesToThreeFailuresInARow) {
    for (DWORD update = 1; update <= 6; ++update) {
        for (DWORD deletion = 1; deletion <= 6; ++deletion) {
            SCOPED_TRACE(std::to_string(update) + ", " + std::to_string(deletion));
            ForgetCollections();
            LoadFixture("replaced");
            ASSERT_EQ(EmbFaultArm("NSFNoteUpdate", update, ERR_NOACCESS, 0), NOERROR);
            ASSERT_EQ(EmbFaultArm("NSFNoteDelete", deletion, ERR_NOACCESS, 0), NOERROR);
            ASSERT_EQ(EmbFaultArm("NSFNoteDelete", deletion + 1, ERR_NOACCESS, 0), NOERROR);
            Migrate();
            EmbFaultClear();
            ForgetCollections();
            FinishConfDatabaseOfDeadRun();
            Migrate();
            EXPECT_EQ(Live(Content()), Live(Expected()));
        }
    }
}

/** Its UNID had vanished before. */
TEST_F(MigrationsTest, KeepTheReferencesToADocumentThatTheyAdd) {
    LoadFixture("added_and_kept");
    test::WriteFile(UnrepairedReferences(), "000000000000000000000000000000A4 000000000000000000000000000000D1\n");
    FinishConfDatabaseOfDeadRun();
    EXPECT_EQ(ObsoleteUNIDSet.size(), 1U);
    Migrate();
    EXPECT_EQ(Content(), Expected());
    EXPECT_TRUE(ObsoleteUNIDSet.empty());
}

TEST_F(MigrationsTest, CopyOnceMoreWhatTheDatabaseLacks) {
    for (const DWORD n : {1U, 3U}) { // the second has a double, which is copied instead
        SCOPED_TRACE(n);
        ForgetCollections();
        LoadFixture("added_and_kept");
        ASSERT_EQ(EmbFaultArm("NSFDbCopyNote", n, ERR_NOACCESS, 0), NOERROR);
        Migrate();
        EXPECT_EQ(EmbFaultsFired(), 1U);
        EmbFaultClear();
        EXPECT_EQ(Live(Content()), Live(Expected()));
    }
}

/** References that could not be repaired, or of which it could not be found out whether they have to be. */
TEST_F(MigrationsTest, HandReferencesThatFailToTheNextRun) {
    const struct {
        const char* operation;
        DWORD first; // of its calls that fail, to the end of the run
        bool replaced;
    } cases[] = {{"NSFItemDelete", 1, true}, {"NSFFormulaCompile", 17, true}, {"NSFNoteOpenByUNID", 1, false}};
    for (const auto& [operation, first, replaced] : cases) {
        SCOPED_TRACE(operation);
        ForgetCollections();
        LoadFixture("references");
        ASSERT_EQ(EmbFaultArm(operation, first, ERR_NOACCESS, 1), NOERROR);
        Migrate();
        FinishConfDatabaseOfDeadRun();
        EmbFaultClear();
        ForgetCollections();
        EXPECT_TRUE(std::filesystem::exists(UnrepairedReferences()));
        FinishConfDatabaseOfDeadRun();
        EXPECT_FALSE(std::filesystem::exists(UnrepairedReferences()));
        EXPECT_FALSE(std::filesystem::exists(KeptDocuments()));
        EXPECT_EQ(Live(Content()) == Live(Expected()), replaced) << Content();
        EXPECT_NE(Content().find("E(000000000000000000000000000000D1) &amp; E("), std::string::npos) << Content();
    }
}

/** Not what a damaged file says, nor a UNID that has come back, nor for a document that has gone. */
TEST_F(MigrationsTest, RepairOnlyWhatIsKnownToDangle) {
    const std::string pair = "00000000000000000000000000000008 000000000000000000000000000000D1\n";
    const std::string gone = "000000000000000000000000000000A1 000000000000000000000000000000D9\n";
    for (const std::string& file : {pair, pair.substr(1), pair + gone + "0", "00" + gone}) {
        SCOPED_TRACE(file);
        ForgetCollections();
        LoadFixture("references");
        const std::string before = Content();
        test::WriteFile(UnrepairedReferences(), file);
        FinishConfDatabaseOfDeadRun();
        EXPECT_EQ(Content(), before);
        EXPECT_FALSE(std::filesystem::exists(UnrepairedReferences()));
    }
}

/** What an earlier run may have taken out is not known: a document of the template could be taken for a new one. */
TEST_F(MigrationsTest, AddNothingWhileKeptDocumentsCannotBeRead) {
    LoadFixture("added_and_kept");
    const std::string before = Content();
    test::WriteFile(KeptDocuments(), "no database");
    FinishConfDatabaseOfDeadRun();
    EXPECT_EQ(Content(), before);
}

TEST_F(MigrationsTest, SaveOnlyWhatTheyChange) {
    LoadFixture("registers_and_rules");
    const struct {
        void (*migrate)(DBHANDLE);
        DWORD saved;
    } cases[] = {
        {[](DBHANDLE database) { EXPECT_EQ(ChangeConflictAction(database), 1); }, 2},
        {[](DBHANDLE database) { EXPECT_EQ(ClearDefaultRule(database), NOERROR); }, 5},
    };
    const OpenDatabases open;
    for (const auto& [migrate, saved] : cases) {
        EmbResetCalls();
        migrate(open.database);
        EXPECT_EQ(EmbCallCount("NSFNoteUpdate"), saved);
        migrate(open.database);
        EXPECT_EQ(EmbCallCount("NSFNoteUpdate"), saved) << "the second run";
    }
}

TEST_F(MigrationsTest, RewriteReferencesOfDlpFormsOnly) {
    LoadFixture("references");
    const OpenDatabases open;
    EmbResetCalls();
    bool whole = false;
    EXPECT_EQ(RemoveObsoleteUNID(open.database, whole), NOERROR);
    EXPECT_EQ(EmbCallCount("NSFNoteUpdate"), 10U) << "changed or not";
    EmbResetCalls();
    EXPECT_EQ(ReplaceObsoleteUNID(open.database, whole), NOERROR);
    EXPECT_EQ(EmbCallCount("NSFNoteUpdate"), 4U);
}

/** Others that refer to it by the template's UNID are to find it. */
TEST_F(MigrationsTest, NoteTheUnidThatAnAddedDocumentHasToKeep) {
    LoadFixture("added_and_kept");
    SetBehaviours("copy-unid=new");
    const OpenDatabases open;
    ASSERT_EQ(EmbFaultArm("NSFNoteUpdate", 1, ERR_NOACCESS, 1), NOERROR);
    (void)UpgradeDLPForm(open.ntf, open.database, "dictionary", "name");
    EmbFaultClear();
    EXPECT_TRUE(gMap.contains("000000000000000000000000000000A6"));
}

/** Replicas must take the new document for newer than the deletion of the old one. */
TEST_F(MigrationsTest, GiveARecreatedDocumentTheNextVersion) {
    LoadFixture("replaced");
    const OpenDatabases open;
    ASSERT_EQ(EmbFaultArm("NSFNoteUpdate", 3, ERR_NOACCESS, 0), NOERROR); // as the number is counted up
    EXPECT_EQ(UpgradeDLPDocumentFromNTFtoNSF(open.ntf, open.database), NOERROR);
    for (const char* text : {"000000000000000000000000000000D1", unidD2}) { // copied under it, and saved under it
        UNID unid = {};
        ParseUnidText(text, unid);
        NOTEHANDLE note = NULLHANDLE;
        ASSERT_EQ(NSFNoteOpenByUNID(open.database, &unid, 0, &note), NOERROR);
        OID oid = {};
        NSFNoteGetInfo(note, _NOTE_OID, &oid);
        EXPECT_EQ(NSFNoteClose(note), NOERROR);
        EXPECT_EQ(oid.Sequence, 7U) << "5, and 6 was the deletion";
    }
}

TEST_F(MigrationsTest, CutAnEntryThatIsTooLong) {
    const std::string text(8200, 'x');
    MakeDatabase(confDatabase, "<document form='A'><item name='list' summary='false'><textlist><text>" + text +
                                   "</text><text>first<break/>second</text><text/></textlist></item></document>");
    DBHANDLE database = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(confDatabase, &database), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(database, 0x8F6, 0, &note), NOERROR);
    TextSet entries = {"before"};
    EXPECT_TRUE(ReadTextListfield(note, "list", entries));
    EXPECT_TRUE(ReadTextListfield(note, "absent", entries));
    EXPECT_EQ(entries, (TextSet{"", "before", "first", text.substr(0, 8191)}));
    EXPECT_EQ(NSFNoteClose(note), NOERROR);
    EXPECT_EQ(NSFDbClose(database), NOERROR);
}

TEST_F(MigrationsTest, RefreshTheDesignWhateverCanBeOpened) {
    SwitchLogOn();
    MakeDatabase(confDatabase, "<document form='Register'/>");
    const int64_t waited = EmbClockWaited();
    Migrate();
    EXPECT_EQ(LogMessages(), (Texts{"[3]cannot open krconf.ntf, path: krx/krconf.ntf",
                                    "[1]Run command load design -f krx/krconf.nsf"}));
    EXPECT_NE(Content().find("$ConflictAction"), std::string::npos);
    std::filesystem::remove(Data() / confDatabase);
    Migrate();
    EXPECT_EQ(LogMessages().size(), 3U) << "the database is missing: the command, and nothing else";
    char transcript[1024];
    EmbConsoleTranscript(transcript, sizeof transcript);
    const std::string commands = transcript;
    const std::string command = "\tload design -f krx/krconf.nsf";
    EXPECT_NE(commands.find(command), commands.rfind(command)) << "twice";
    EXPECT_EQ(EmbClockWaited() - waited, 6000);
}

TEST_F(MigrationsTest, KnowEveryRowOfTheirTables) {
    RetiredDocumentUNIDSet = {"left over"};
    InitRetiredDocumentUNIDSet();
    std::set<std::string> endings;
    for (const std::string& unid : RetiredDocumentUNIDSet) {
        EXPECT_EQ(unid.substr(16, 14), "88257DDB00338E");
        endings.insert(unid.substr(30));
    }
    EXPECT_EQ(RetiredDocumentUNIDSet.size(), 46U);
    EXPECT_EQ(endings.size(), 46U);
    EXPECT_EQ(*endings.begin(), "85");
    EXPECT_EQ(*endings.rbegin(), "B2");
}

/** A document that shares the UNID of the template's document is no copy of it, whatever a server has answered once. */
TEST_F(MigrationsTest, LeaveAnotherDocumentThatHasTheUnidOfACopy) {
    LoadFixture("unid_in_use");
    SetBehaviours("copy-unid=new");
    ASSERT_EQ(EmbFaultArm("NSFNoteOpenByUNID", 3, ERR_NOT_FOUND, 0), NOERROR);
    EXPECT_EQ(MigrateConfDatabase(), NOERROR);
    EXPECT_EQ(EmbFaultsFired(), 1U);
    FinishConfDatabaseOfDeadRun();
    EXPECT_NE(Content().find("Asia"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(KeptDocuments()));
}

/** A document with the UNID that the copy has to get does not pass, as other failures do. */
TEST_F(MigrationsTest, TryOnceWhatAnotherDocumentKeepsOut) {
    SwitchLogOn();
    LoadFixture("unid_in_use");
    Migrate();
    EXPECT_EQ(std::ranges::count_if(
                  NewLogMessages(),
                  [](const std::string& message) { return message.find("NSFDbCopyNote error") != std::string::npos; }),
              2)
        << "one of the two documents of the template each";
}

/** What is noted beside a kept document needs no room in its summary. */
TEST_F(MigrationsTest, ReplaceADocumentWhoseSummaryIsFull) {
    const std::string entity = "<document form='entity'><noteinfo unid='";
    const std::string name = "'/><item name='name'><text>Card</text></item><item name='pre-defined'><text>true</text>"
                             "</item><item name='words'><text>";
    const std::string words(32767 - 60, 'x'); // what else is in the summary takes less than 60 bytes
    std::filesystem::create_directories(Data() / "krx");
    MakeDatabase(confDatabase, entity + unidD2 + name + words + "</text></item></document>");
    MakeDatabase(test::confTemplate, entity + unidA2 + name + "new</text></item></document>");
    Migrate();
    EXPECT_NE(Content().find("<text>new</text>"), std::string::npos);
}

/** Servers on which a copy has the UNID of the very document that it is to replace, or a new one each time. */
TEST_F(MigrationsTest, ReplaceADocumentAgainForAsLongAsItsCopiesCanBeNoted) {
    const struct {
        const char* fixture;
        const char* before;
        const char* after;
        int runs;
        int notKept;
    } cases[] = {{"added_and_kept", "copy-unid=half,unid-change=refused", "copy-unid=half", 1, 0},
                 // 15 UNIDs, one is the template document's; each time after that is tried twice.
                 {"failing", "copy-unid=new", "copy-unid=new", 17, 8}};
    SwitchLogOn();
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

} // namespace
} // namespace updkrx
