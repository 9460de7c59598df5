// What the migrations leave behind when an operation fails, and what they log then.
#include <algorithm>
#include <cstdlib>
#include <new>
#include <regex>
#include <utility>

#include "foundation/notes_text.h"
#include "migrations/conflict_action.h"
#include "migrations/default_rule.h"
#include "migrations/dlp_upgrade.h"
#include "migrations/obsolete_unids.h"
#include "migrations/retired_documents.h"
#include "module/migration_fixture.h"

namespace {

/** Allocations until one of them fails, in this whole process; 0 for none. */
int allocationsLeft = 0;

} // namespace

void* operator new(size_t size) {
    if (allocationsLeft > 0 && --allocationsLeft == 0) {
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { // or the compiler takes the free for a mistake
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    operator delete(memory);
}

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;
using Pairs = std::map<std::string, std::string>;
using test::confDatabase;
using test::confTemplate;
using test::OpenDatabases;

constexpr STATUS failure = ERR_NOACCESS | STS_REMOTE; // 16966
constexpr const char* unidA1 = "000000000000000000000000000000A1";
constexpr const char* unidD1 = "000000000000000000000000000000D1";
constexpr const char* restored = "[1]Restore original dlp template success. unid is 000000000000000000000000000000D1";

/** Each note of an export is one of the first or of the second. */
void ExpectNotesOf(const std::string& content, const std::string& first, const std::string& second) {
    static const std::regex note("  <note (.|\n)*?</note>\n");
    for (std::sregex_iterator at(content.begin(), content.end(), note); at != std::sregex_iterator(); ++at) {
        EXPECT_TRUE(first.find(at->str()) != std::string::npos || second.find(at->str()) != std::string::npos)
            << at->str();
    }
}

class MigrationFailuresTest : public test::MigrationFixture {
protected:
    void SetUp() override {
        MigrationFixture::SetUp();
        SwitchLogOn();
    }

    /** Loads a fixture to come back to. */
    void Load(const std::string& fixture) {
        LoadFixture(fixture);
        for (const char* path : {confDatabase, confTemplate}) {
            test::WriteFile(Server() / std::filesystem::path(path).filename(), test::ReadFile(Data() / path));
        }
    }
    /** Everything as Load left it, and an empty log. */
    void Reset() {
        for (const char* path : {confDatabase, confTemplate}) {
            test::WriteFile(Data() / path, test::ReadFile(Server() / std::filesystem::path(path).filename()));
        }
        for (const auto& log : std::filesystem::directory_iterator(Data() / "krxtemp")) {
            std::filesystem::remove(log);
        }
        ForgetCollections();
        EmbFaultClear();
    }

    using Run = int32_t (*)(const OpenDatabases&);

    /** How often a run calls each operation. */
    std::map<std::string, DWORD> CountCalls(Run run) {
        Reset();
        const OpenDatabases open;
        EmbResetCalls();
        (void)run(open);
        std::map<std::string, DWORD> calls;
        for (DWORD index = 0; const char* operation = EmbOperationName(index); ++index) {
            calls[operation] = EmbCallCount(operation);
        }
        return calls;
    }

    /** A run from the start, in which one call of an operation fails. */
    int32_t RunFailing(const std::string& operation, DWORD n, Run run) {
        Reset();
        const OpenDatabases open;
        EXPECT_EQ(EmbFaultArm(operation.c_str(), n, failure, 0), NOERROR);
        const int32_t result = run(open);
        EXPECT_EQ(EmbFaultsFired(), 1U);
        EmbFaultClear();
        return result;
    }

    /** The one document is as it is to be, or as it was; what was half made is gone; and the collections tell the
     *  same. */
    void ExpectAllOrNothing(const std::string& before, const Pairs& whenReplaced) {
        const std::string after = Content();
        const bool replaced = after == Expected();
        const bool restoring = LogCount("[1]Delete original dlp template Success. notesid=2294") != 0 && !replaced;
        if (restoring) {
            static const std::regex stub("  <krx:stub .*\n"); // of the half-made copy
            EXPECT_EQ(std::regex_replace(after, stub, ""), before);
        } else if (!replaced) {
            ExpectNotesOf(before, after, after);
        }
        EXPECT_EQ(LogCount(restored), restoring ? 1 : 0);
        EXPECT_EQ(gMap, replaced ? whenReplaced : Pairs{});
        EXPECT_EQ(ObsoleteUNIDSet.size(), gMap.size());
    }
};

int32_t UpgradeEntities(const OpenDatabases& open) {
    return UpgradeDLPForm(open.ntf, open.database, "entity", "name");
}

int32_t RemoveReferences(const OpenDatabases& open) {
    ObsoleteUNIDSet = {unidA1};
    return RemoveObsoleteUNID(open.database);
}

int32_t ReplaceReferences(const OpenDatabases& open) {
    gMap = {{unidA1, unidD1}};
    return ReplaceObsoleteUNID(open.database);
}

/** The others never fail, or what they answer then cannot be told from an item that is absent or empty. */
bool CanReportFailure(std::string_view operation) {
    return !operation.starts_with("NSFItemGet") && !operation.starts_with("OS") &&
           !operation.starts_with("NSFNoteGetInfo") && !operation.starts_with("NSFNoteSetInfo");
}

TEST_F(MigrationFailuresTest, LeaveTheOldDocumentWholeWhateverFails) {
    for (const auto& [fixture, whenReplaced] :
         {std::pair{"failing", Pairs{{unidA1, unidD1}}}, std::pair{"failing_same_unid", Pairs{}}}) {
        Load(fixture);
        const std::string before = Content();
        auto calls = CountCalls(UpgradeEntities);
        EXPECT_EQ(calls["NSFNoteDelete"] + calls["NSFNoteUpdate"], whenReplaced.empty() ? 2U : 4U);
        for (const auto& [operation, count] : calls) {
            for (DWORD n = 1; CanReportFailure(operation) && n <= count; ++n) {
                SCOPED_TRACE(std::string(fixture) + ", call " + std::to_string(n) + " of " + operation);
                RunFailing(operation, n, UpgradeEntities);
                ExpectAllOrNothing(before, whenReplaced);
            }
        }
    }
}

TEST_F(MigrationFailuresTest, LeaveTheOldDocumentWholeWhenMemoryRunsOut) {
    Load("failing");
    const std::string before = Content();
    static int countdown;
    // From the deletion on, when only memory has the document.
    EmbCallHookSet(
        [](void*, const char* operation) {
            if (countdown > 0 && operation == std::string_view("NSFNoteDelete")) {
                allocationsLeft = std::exchange(countdown, 0);
            }
        },
        nullptr);
    int restorations = 0;
    for (int n = 1, left = 0; left == 0; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        Reset();
        countdown = n;
        {
            const OpenDatabases open;
            try {
                (void)UpgradeEntities(open);
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(false) << "no exception leaves a search step";
            }
            left = std::exchange(allocationsLeft, 0);
        }
        ExpectAllOrNothing(before, {{unidA1, unidD1}});
        restorations += LogCount(restored);
    }
    EmbCallHookSet(nullptr, nullptr);
    EXPECT_GT(restorations, 5);
}

TEST_F(MigrationFailuresTest, LeaveTheCopyWhenTheOldDocumentCannotBeRestored) {
    for (const auto& [fixture, copy] : {std::pair("failing", unidA1), std::pair("failing_same_unid", unidD1)}) {
        Load(fixture);
        Reset();
        ASSERT_EQ(EmbFaultArm("NSFNoteUpdate", 1, failure, 1), NOERROR);
        EXPECT_EQ(UpgradeEntities(OpenDatabases()), NOERROR);
        char text[256];
        GetStatusText(failure, text, sizeof text);
        EXPECT_EQ(LogCount(std::string("[1]Restore original dlp template error. unid is ") + unidD1 +
                           ", sError is 16966, czErrorMessage is " + text + "..."),
                  1);
        EXPECT_NE(Content().find(std::string("<note class='document'>\n    <noteinfo unid='") + copy),
                  std::string::npos)
            << fixture;
    }
}

TEST_F(MigrationFailuresTest, LeaveAListWholeThatCannotBeRewritten) {
    const struct {
        Run rewrite;
        Texts operations;
    } cases[] = {
        // A list that cannot be deleted stays, and the document's other list is rewritten all the same.
        {RemoveReferences, {"NSFItemCreateTextList", "NSFItemAppendTextList", "NSFNoteUpdate", "NSFNoteOpen"}},
        {ReplaceReferences,
         {"NSFItemCreateTextList", "NSFItemAppendTextList", "NSFItemDelete", "NSFItemInfo", "NSFNoteUpdate"}},
    };
    Load("references");
    const std::string before = Content();
    for (const auto& [rewrite, operations] : cases) {
        auto calls = CountCalls(rewrite);
        const std::string after = Content();
        EXPECT_NE(after, before);
        for (const std::string& operation : operations) {
            for (DWORD n = 1; n <= calls[operation]; ++n) {
                SCOPED_TRACE("call " + std::to_string(n) + " of " + operation);
                (void)RunFailing(operation, n, rewrite);
                ExpectNotesOf(Content(), before, after);
            }
        }
    }
}

TEST_F(MigrationFailuresTest, LogWhatFails) {
    struct Row {
        const char* operation;
        DWORD n;
        int32_t result;
        Texts lines; // AND: the status and its text, as most lines have them; LINE: a number
    };
    const struct {
        const char* fixture;
        Run run;
        std::vector<Row> rows;
    } cases[] = {
        {"failing",
         [](const OpenDatabases& open) { return ChangeConflictAction(open.database); },
         {{"NSFFormulaCompile",
           1,
           failure,
           {"[0][PatchKRX:LINE]ChangeConflictAction Cannot compile the formula! error[16966]\n"}},
          {"NSFSearch", 1, 0, {}}}},
        {"failing",
         [](const OpenDatabases& open) -> int32_t { return ClearDefaultRule(open.database); },
         {{"NSFFormulaCompile",
           1,
           failure,
           {"[0][PatchKRX:LINE]ChangeConflictAction Cannot compile the formula! error[16966]\n"}},
          {"NSFSearch", 1, failure, {}}}},
        {"failing",
         UpgradeEntities,
         {{"NSFFormulaCompile",
           1,
           16383,
           {"[1]Fail to compile SearchFormDocByDatabase", "[1]error to get form: entity document"}},
          {"NSFFormulaCompile",
           2,
           16383,
           {"[1]Fail to compile UpgradeFormDocumentsWithIdentifiedFiled",
            "[1]upgrade dlp documetn from ntf to nsf error, form: entity ,return"}},
          {"NSFSearch", 1, 16383, {"[1]NSFSearch failed for SearchFormDocByDatabase"}},
          {"NSFSearch", 2, 16383, {"[1]NSFSearch failed for SearchFormDocByDatabase"}},
          {"NSFNoteOpen", 2, 0, {"[1]MigrateManualScanSettingCallback, open note failed."}},
          {"NSFNoteOpen", 3, 0, {"[1]open krconfntf failed."}},
          {"NSFNoteOpen", 4, 0, {"[1]NSFNoteOpen error. notesid=2302, AND..."}},
          {"NSFNoteOpenByUNID", 1, 0, {"[1]NSFNoteOpenByUNID, open note failed."}},
          {"NSFNoteCopy",
           1,
           0,
           {"[1]Keep original dlp template error. unid is 000000000000000000000000000000D1, AND..."}},
          {"NSFNoteCopy", 2, 0, {"[1]NSFNoteCopy error. AND..."}},
          {"NSFNoteDelete", 1, 0, {"[1]Delete original dlp template error. notesid=2294, AND..."}},
          {"NSFNoteDelete", 2, 0, {"[1]Delete temp dlp template error. notesid=2302, AND..."}},
          {"NSFDbCopyNote", 1, 0, {"[1]NSFDbCopyNote error. old notesid=2294, new notesid=0, AND..."}},
          {"NSFItemAppendTextList", 3, 0, {"[1]NSFItemAppendTextList error. AND..."}},
          {"NSFNoteUpdate", 1, 0, {"[1]NSFNoteUpdate error. AND..."}},
          {"NSFNoteUpdate", 2, 0, {"[1]NSFNoteUpdate error. AND..."}}}},
        {"added_and_kept",
         [](const OpenDatabases& open) -> int32_t {
             return UpgradeDLPForm(open.ntf, open.database, "dictionary", "name");
         },
         {{"NSFDbCopyNote", 2, 0, {"[1]NSFDbCopyNote error. old notesid=2314, AND..."}}}},
        {"references",
         RemoveReferences,
         {{"NSFFormulaCompile",
           1,
           failure,
           {"[0][PatchKRX:LINE]RemoveObsoleteUNID Cannot compile the formula! error[16966]\n"}},
          {"NSFSearch", 1, failure, {"[3]RemoveObsoleteUNID: NSFSearch failed,error[16966],error message[TEXT]\n"}},
          {"NSFNoteOpen", 1, 0, {"[1]ERR: RemoveObsoleteUNIDCallback:NSFNoteOpen"}},
          {"NSFItemDelete",
           1,
           0,
           {"[1]RemoveTextListfield: NSFItemDelete error. item is ReferDocs, UNID is "
            "00000000000000000000000000000001, AND."}},
          {"NSFItemCreateTextList",
           1,
           0,
           {"[1]RemoveTextListfield: NSFItemCreateTextList error. UNID is 00000000000000000000000000000001, AND...",
            "[1]RemoveTextListfield: The document keeps what it had. item is ReferDocs, UNID is "
            "00000000000000000000000000000001"}},
          {"NSFItemAppendTextList",
           1,
           0,
           {"[1]RemoveTextListfield: NSFItemAppendTextList error. UNID is 00000000000000000000000000000001, "
            "AND..."}}}},
        {"references",
         ReplaceReferences,
         {{"NSFFormulaCompile",
           1,
           failure,
           {"[0][PatchKRX:LINE]ReplaceObsoleteUNID Cannot compile the formula! error[16966]\n"}},
          {"NSFSearch", 1, failure, {"[3]ReplaceObsoleteUNID: NSFSearch failed, error[16966],error message[TEXT]\n"}},
          {"NSFNoteOpen", 1, 0, {"[1]ERR: ReplaceObsoleteUNIDCallback:NSFNoteOpen"}},
          {"NSFItemDelete",
           1,
           0,
           {"[1]ReplaceTextListfield: NSFItemDelete error. item is matchRule, UNID is "
            "00000000000000000000000000000004, AND."}},
          {"NSFItemAppendTextList",
           1,
           0,
           {"[1]ReplaceTextListfield: NSFItemAppendTextList error. UNID is 00000000000000000000000000000004, AND...",
            "[1]ReplaceTextListfield: The document keeps what it had. item is matchRule, UNID is "
            "00000000000000000000000000000004"}}}},
        {"retired",
         [](const OpenDatabases&) { return MigrateCFDLPDeleteAttachmentAction(); },
         {{"NSFDbOpen", 1, failure, {}},
          {"NSFFormulaCompile",
           1,
           failure,
           {"[0][PatchKRX:LINE]UpdateKrency Cannot compile the formula! error[16966]\n"}},
          {"NSFNoteOpen",
           2,
           ERR_NOACCESS,
           {"[3]MigrateCFDLPDeleteAttachmentActionCallback, open note failed.", "[3]NSFSearch failed for template"}},
          {"NSFNoteDelete", 1, 0, {"[3]cannot delete note: 8f6"}}}},
    };
    char text[256];
    GetStatusText(failure, text, sizeof text);
    const auto filledIn = [&](const std::string& line) {
        const std::string filled =
            std::regex_replace(line, std::regex("AND"), "sError is 16966, czErrorMessage is TEXT");
        return std::regex_replace(filled, std::regex("TEXT"), text);
    };
    for (const auto& [fixture, run, rows] : cases) {
        Load(fixture);
        for (const auto& [operation, n, result, lines] : rows) {
            SCOPED_TRACE(std::string(fixture) + ", call " + std::to_string(n) + " of " + operation);
            EXPECT_EQ(RunFailing(operation, n, run), result);
            Texts log = LogMessages();
            for (std::string& line : log) {
                line = std::regex_replace(line, std::regex(R"(\[PatchKRX:\d+\])"), "[PatchKRX:LINE]");
            }
            for (const std::string& line : lines) {
                EXPECT_EQ(std::ranges::count(log, filledIn(line)), 1) << filledIn(line);
            }
        }
    }
}

/** What was collected before a search broke off goes all the same, and so does what follows a failed deletion. */
TEST_F(MigrationFailuresTest, DeleteTheOtherRetiredDocuments) {
    const struct {
        const char* operation;
        DWORD n;
        const char* kept;
        const char* gone;
    } cases[] = {
        {"NSFNoteOpen", 2, "FCC034E15D1E590C88257DDB00338EAF", "026196EE7CA8DA4788257DDB00338EAE"},
        {"NSFNoteDelete", 1, "026196EE7CA8DA4788257DDB00338EAE", "FCC034E15D1E590C88257DDB00338EAF"},
    };
    Load("retired");
    for (const auto& [operation, n, kept, gone] : cases) {
        Reset();
        ASSERT_EQ(EmbFaultArm(operation, n, failure, 0), NOERROR);
        (void)MigrateCFDLPDeleteAttachmentAction();
        const std::string content = Content();
        const std::string info = "<noteinfo unid='";
        EXPECT_NE(content.find("<note class='document'>\n    " + info + kept), std::string::npos) << operation;
        EXPECT_NE(content.find("<krx:stub class='document'>" + info + gone), std::string::npos) << operation;
    }
}

} // namespace
} // namespace updkrx
