// Signing databases, hiding their design, and the replication settings that each gets.
#include "maintenance/signing.h"

#include "foundation/notes_scoped.h"
#include "foundation/notes_text.h"
#include "maintenance/replication_settings.h"
#include "support/server_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* items = "<item name='T'><text>x</text></item><item name='L'><textlist><text>y</text></textlist>"
                              "</item>";
constexpr const char* document = "<document form='A'><item name='N'><number>5</number></item></document>";
constexpr const char* replicationNote =
    "<note class='replicationformula'><item name='$TITLE'><text>old</text></item></note>";

std::string Note(const std::string& noteClass) {
    return "<note class='" + noteClass + "'>" + items + "</note>";
}

std::string StatusText(STATUS status) {
    char text[256];
    GetStatusText(status, text, sizeof text);
    return text;
}

class SigningTest : public test::ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        SwitchLogOn();
    }
    void TearDown() override {
        EmbCallHookSet(nullptr, nullptr);
        ServerFixture::TearDown();
    }

    /** How many notes of a database carry a signature that covers them as they are. */
    static DWORD Signed(const char* path) {
        EMBSIGNATURES counts = {};
        char signers[256] = "";
        EXPECT_EQ(EmbSignatures(path, NOTE_CLASS_ALLNONDATA, &counts, signers, sizeof signers), NOERROR);
        EXPECT_STREQ(signers, counts.signedNotes > 0 ? "CN=Local/O=Embedded\n" : "");
        EXPECT_EQ(counts.changedNotes, 0U);
        return counts.signedNotes;
    }

    [[nodiscard]] bool IsHidden(const std::string& path) const {
        return ExportDatabase(path).find("krx:replicationflags='0020'") != std::string::npos;
    }

    PatchRunContext context_;
};

TEST_F(SigningTest, SignsEveryClassButDocuments) {
    const char* notes[] = {
        "<document form='A'>",
        "<note class='helpaboutdocument'>",
        "<note class='form'>",
        "<note class='form' default='true'>",
        "<note class='form' private='true'>",
        "<note class='view'>",
        "<note class='icon'>",
        "<note krx:class='20' xmlns:krx='urn:updkrx:embedded-notes'>", // design
        "<note krx:class='40' xmlns:krx='urn:updkrx:embedded-notes'>", // access control
        "<note class='helpindex'>",
        "<note class='helpusingdocument'>",
        "<note class='filter'>",
        "<note class='sharedfield'>",
        "<note class='replicationformula'>",
    };
    for (const std::string note : notes) {
        for (const bool skipped : {false, true}) {
            SCOPED_TRACE(note + (skipped ? ", skipped" : ""));
            const bool isDocument = note.starts_with("<document");
            MakeDatabase("krx/a.nsf", note + items + (isDocument ? "</document>" : "</note>"));
            context_.skipDbSign = skipped ? 1 : 0;
            EXPECT_EQ(SignAndHideDatabase("a.nsf", context_), 0);
            EXPECT_EQ(Signed("krx/a.nsf"), isDocument || skipped ? 0U : 1U);
            EXPECT_TRUE(IsHidden("krx/a.nsf"));
            std::filesystem::remove(Data() / "krx/a.nsf");
        }
    }
}

TEST_F(SigningTest, ReportsADatabaseThatCannotBeOpened) {
    EXPECT_EQ(SignAndHideDatabase("a.nsf", context_), 65535);
    const std::string missing = StatusText(ERR_NOEXIST);
    EXPECT_EQ(LogMessages(), Texts{"[1]Failed to open a.nsf - " + missing + "\n"});
    EXPECT_EQ(ServerLogCount("krx/a.nsf"), 1);
    EXPECT_EQ(ServerLogCount(missing), 1);
    EXPECT_EQ(EmbCallCount("NSFDbOpen"), 1U);
}

// ---- All product databases

constexpr const char* newReplicationNote = R"(
    <item name='$TITLE'><text>CN=Mail01/O=Varnholt</text></item>
    <item name='$ReplVersion'><text>2</text></item>
    <item name='$ReplSrcServers'><textlist><text>-</text></textlist></item>
    <item name='$ReplClassMasks'><textlist><text>2047</text></textlist></item>
    <item name='$ReplFormula'><formula>SELECT @All</formula></item>
  </note>
)";

int Count(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

class SignDatabaseTest : public SigningTest {
protected:
    void SetUp() override {
        SigningTest::SetUp();
        SetEnvironment("MailServer", "CN=Mail01/O=Varnholt");
    }

    [[nodiscard]] int ReplicationNotes(const std::string& path) const {
        return Count(ExportDatabase(path), "<note class='replicationformula'>"); // a deleted one has an attribute more
    }
};

TEST_F(SignDatabaseTest, LeavesOneReplicationNoteOfItsOwn) {
    MakeDatabase("krx/krmsg.nsf", replicationNote + Note("view") + replicationNote + document + replicationNote);
    for (int run = 0; run < 2; ++run) {
        SignDatabase("krx");
        const std::string dxl = ExportDatabase("krx/krmsg.nsf");
        EXPECT_EQ(ReplicationNotes("krx/krmsg.nsf"), 1);
        EXPECT_EQ(Count(dxl, newReplicationNote), 1) << dxl;
        EXPECT_EQ(Count(dxl, "<note class='view'>"), 1);
        EXPECT_EQ(Count(dxl, "<note class='document'>"), 1);
    }
    SetEnvironment("MailServer", nullptr);
    SignDatabase("krx");
    EXPECT_EQ(ReplicationNotes("krx/krmsg.nsf"), 0);
}

TEST_F(SignDatabaseTest, KeepsReplicationSettingsThatAreSavedBeforeTheyFail) {
    MakeDatabase("krx/krmsg.nsf", document);
    ScopedDatabase database;
    ASSERT_EQ(database.Open(NSFDbOpen, "krx/krmsg.nsf"), NOERROR);
    ASSERT_EQ(EmbFaultArm("NSFNoteClose", 1, ERR_NOACCESS, 0), NOERROR);
    EXPECT_EQ(CreateReplicationSettings(database.Get()), ERR_NOACCESS);
    ASSERT_EQ(database.Close(), NOERROR);
    EXPECT_EQ(ReplicationNotes("krx/krmsg.nsf"), 1);
}

} // namespace
} // namespace updkrx
