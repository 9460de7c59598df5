// What the server does with console commands, and what signatures tell.
#include <algorithm>
#include <iterator>

#include "notes/notes_fixture.h"
#include "support/system.h"

namespace embedded::test {
namespace {

constexpr const char* designTemplate =
    "<database xmlns='http://www.lotus.com/dxl' title='The template' replicaid='48258E1C00237B5C' "
    "templatename='KRXRules'>"
    "<acl><aclentry name='-Default-' default='true' level='noaccess'/></acl>"
    "<note class='helpusingdocument'><noteinfo unid='A1000000000000000000000000000001'/>"
    "<item name='BuildNumber'><text>5.8.0.3050</text></item></note>"
    "<note class='icon'><noteinfo unid='A1000000000000000000000000000002'/>"
    "<item name='$TITLE'><text>The template<break/>#1KRXRules</text></item></note>"
    "<note class='form' default='true'><noteinfo unid='A1000000000000000000000000000003'/>"
    "<item name='$TITLE'><text>Rule</text></item><item "
    "name='$Fields'><textlist><text>Name</text><text>New</text></textlist>"
    "</item></note>"
    "<note class='view'><noteinfo unid='A1000000000000000000000000000004'/><item "
    "name='$TITLE'><text>Same</text></item></note>"
    "<note class='view'><noteinfo unid='A1000000000000000000000000000005'/><item "
    "name='$TITLE'><text>Added</text></item></note>"
    "<document form='Rule'><item name='Name'><text>from the template</text></item></document></database>";

constexpr const char* database =
    "<database xmlns='http://www.lotus.com/dxl' title='Our rules' replicaid='C1258D870034A1F0'>"
    "<acl><aclentry name='-Default-' default='true' level='author'/></acl>"
    "<note class='helpusingdocument'><noteinfo noteid='902' unid='B1000000000000000000000000000001' sequence='4'/>"
    "<item name='BuildNumber'><text>5.8.0.3001</text></item></note>"
    "<note class='icon'><noteinfo noteid='906' unid='A1000000000000000000000000000002'/>"
    "<item name='$TITLE'><text>Our rules</text></item></note>"
    "<note class='form'><noteinfo noteid='90a' unid='B1000000000000000000000000000003'/>"
    "<item name='$TITLE'><text>Rule</text></item></note>"
    "<note class='view'><noteinfo noteid='90e' unid='A1000000000000000000000000000004' sequence='4'/>"
    "<item name='$TITLE'><text>Same</text></item></note>"
    "<note class='view'><noteinfo noteid='912' unid='B1000000000000000000000000000005'/>"
    "<item name='$TITLE'><text>Gone</text></item></note>"
    "<note class='replicationformula'><noteinfo noteid='916'/><item name='$TITLE'><text>Mail01</text></item></note>"
    "<document form='Rule'><noteinfo noteid='91a'/><item name='Name'><text>ours</text></item></document></database>";

class ServerCommands : public NotesFixture {
protected:
    void SetUp() override {
        NotesFixture::SetUp();
        Import("krx/rules.ntf", designTemplate);
        Import("krx/rules.nsf", database);
    }
    void Import(const char* name, const char* dxl) {
        const auto file = updkrx::test::WriteFile(Server() / "import.dxl", dxl);
        char message[512] = "";
        ASSERT_EQ(
            EmbDxlImport((Data() / name).string().c_str(), file.c_str(), EMB_DXL_REPLACE, message, sizeof message),
            NOERROR)
            << message;
    }
    /** Sends a command; gives the outcome in the transcript, and checks that a reply came if one was due. */
    static std::string Send(std::string command, bool replyDue = false) {
        char server[] = "CN=Local/O=Embedded";
        DHANDLE reply = NULLHANDLE;
        EXPECT_EQ(NSFRemoteConsole(server, command.data(), &reply), NOERROR) << command;
        EXPECT_EQ(reply != NULLHANDLE, replyDue) << command;
        if (reply != NULLHANDLE) {
            EXPECT_EQ(OSMemFree(reply), NOERROR);
        }
        std::string transcript(EmbConsoleTranscript(nullptr, 0) + 1, '\0');
        transcript.resize(EmbConsoleTranscript(transcript.data(), static_cast<DWORD>(transcript.size())) - 1);
        const std::string line = transcript.substr(transcript.rfind('\n') + 1);
        EXPECT_EQ(line.substr(line.rfind('\t') + 1), command);
        return line.substr(line.find('\t') + 1, line.rfind('\t') - line.find('\t') - 1);
    }
    /** What a conversion would change, as the control surface tells it: one a line. */
    static std::string DesignDifferences() {
        DWORD count = 0;
        char lines[1024] = "";
        EXPECT_EQ(EmbDesignCompare("krx/rules.nsf", "krx/rules.ntf", &count, lines, sizeof lines), NOERROR);
        EXPECT_EQ(static_cast<DWORD>(std::count(lines, std::end(lines), '\n')), count);
        return lines;
    }
    static EMBSIGNATURES Signatures(const char* name, std::string* signers = nullptr) {
        EMBSIGNATURES counts{};
        char names[256] = "";
        EXPECT_EQ(EmbSignatures(name, NOTE_CLASS_ALLNONDATA, &counts, names, sizeof names), NOERROR);
        if (signers) {
            *signers = names;
        }
        return counts;
    }
};

TEST_F(ServerCommands, ConvertGivesTheTemplatesDesignAndKeepsWhatIsTheDatabasesOwn) {
    EXPECT_EQ(DesignDifferences(), "different\thelpusingdocument\t\ndifferent\ticon\tThe template\n"
                                   "different\tform\tRule\nmissing\tview\tAdded\nsurplus\tview\tGone\n");
    EXPECT_EQ(Send("load convert krx/rules.nsf * krx/rules.ntf"),
              "done: 3 design notes changed, 1 added, 1 deleted, 1 unchanged");
    DBHANDLE rules = Open("krx/rules.nsf");
    EXPECT_EQ(Search(rules, nullptr, NOTE_CLASS_DOCUMENT).Matches(), std::vector<NOTEID>{0x91a});
    EXPECT_EQ(Note(rules, 0x902).Text("BuildNumber"), "5.8.0.3050");
    EXPECT_EQ(Note(rules, 0x902).Oid().Sequence, 5U); // the note keeps its identity
    EXPECT_EQ(Note(rules, 0x906).Text("$TITLE"), std::string("Our rules\0#2KRXRules", 20));
    EXPECT_EQ(Note(rules, 0x90e).Oid().Sequence, 4U); // as in the template already, so not touched
    EXPECT_EQ(Note(rules, 0x916).Text("$TITLE"), "Mail01");
    NOTEHANDLE gone = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(rules, 0x912, 0, &gone), ERR_NOTE_DELETED);
    std::vector<std::string> views;
    for (const NOTEID id : Search(rules, nullptr, NOTE_CLASS_VIEW).Matches()) {
        views.push_back(Note(rules, id).Text("$TITLE"));
    }
    EXPECT_EQ(views, (std::vector<std::string>{"Same", "Added"}));
    const auto forms = Search(rules, nullptr, NOTE_CLASS_FORM).deliveries;
    ASSERT_EQ(forms.size(), 1U);
    EXPECT_EQ(forms[0].noteClass, NOTE_CLASS_FORM | NOTE_CLASS_DEFAULT);
    EXPECT_EQ(Note(rules, forms[0].id).List("$Fields"), (std::vector<std::string>{"Name", "New"}));
    DBREPLICAINFO info;
    EXPECT_EQ(NSFDbReplicaInfoGet(rules, &info), NOERROR);
    EXPECT_EQ(info.ID.Innards[1], 0xC1258D87U);
    EXPECT_EQ(NSFDbClose(rules), NOERROR);
    const std::string exported = ExportDatabase("krx/rules.nsf");
    EXPECT_NE(exported.find("title='Our rules'"), std::string::npos);
    EXPECT_NE(exported.find("level='author'"), std::string::npos);
    EXPECT_EQ(DesignDifferences(), "");

    EXPECT_EQ(Send("load convert krx/rules.nsf * krx/rules.ntf"),
              "done: 0 design notes changed, 0 added, 0 deleted, 5 unchanged");
    // A refresh finds the template by its name.
    Import("krx/rules.ntf",
           std::string(designTemplate).replace(std::string(designTemplate).find("Added"), 5, "Later").c_str());
    EXPECT_EQ(Send("load design -f krx/rules.nsf"), "done: 1 design notes changed, 0 added, 0 deleted, 4 unchanged");
}

TEST_F(ServerCommands, WhatCannotBeDoneIsSaid) {
    struct {
        const char* command;
        const char* outcome;
        bool reply;
    } const cases[] = {
        {"tell krxreal restart", "done", false},
        {"tell", "usage: tell TASK COMMAND", true},
        {"load convert krx/rules.nsf *", "usage: load convert DATABASE OLDTEMPLATE TEMPLATE", true},
        {"load convert krx/rules.nsf Other krx/rules.ntf", "done: the database does not inherit from Other", false},
        {"load design -f krx/rules.nsf", "done: the database inherits from no template", false},
        {"load design krx/rules.nsf", "usage: load design -f DATABASE", true},
        {"load nothing", "unknown command", true},
        {"", "unknown command", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Send(c.command, c.reply), c.outcome) << c.command;
    }
    EXPECT_EQ(Send("load convert krx/none.nsf * krx/rules.ntf", true).rfind("failed: File does not exist", 0), 0U);
    EXPECT_EQ(NSFTakeDatabaseOffline("krx/rules.nsf", 0, OFFLINE_NODELETE), NOERROR);
    EXPECT_EQ(Send("load convert krx/rules.nsf * krx/rules.ntf", true), "failed: The database is offline");
}

TEST_F(ServerCommands, ARefreshPassesOverTemplatesThatCannotBeOpened) {
    EXPECT_EQ(Send("load convert krx/rules.nsf * krx/rules.ntf").rfind("done: 3", 0), 0U);
    updkrx::test::WriteFile(Data() / "krx/a.ntf", "no database");
    EXPECT_EQ(Send("load design -f krx/rules.nsf").rfind("done: 0", 0), 0U);
    EXPECT_EQ(NSFTakeDatabaseOffline("krx/rules.ntf", 0, OFFLINE_NODELETE), NOERROR);
    EXPECT_EQ(Send("load design -f krx/rules.nsf", true), "failed: File does not exist (template KRXRules)");
}

TEST_F(ServerCommands, AConversionThatCannotBeStoredIsSaidToHaveFailedAndLeavesTheDesign) {
    if (!updkrx::test::FileSizeLimit::available) {
        GTEST_SKIP() << "no disk can be made full here";
    }
    std::string large = designTemplate;
    const std::string views = "<note class='view'><item name='Big' summary='false'><text>" + std::string(60'000, 'x') +
                              "</text></item></note>";
    for (int i = 0; i < 50; ++i) {
        large.insert(large.find("<document"), views);
    }
    Import("krx/large.ntf", large.c_str());
    const std::string before = ExportDatabase("krx/rules.nsf");
    {
        const updkrx::test::FileSizeLimit full(200'000);
        EXPECT_EQ(Send("load convert krx/rules.nsf * krx/large.ntf", true).rfind("failed: Disk error", 0), 0U);
    }
    EXPECT_EQ(ExportDatabase("krx/rules.nsf"), before);
    EXPECT_EQ(Send("load convert krx/rules.nsf * krx/large.ntf"),
              "done: 3 design notes changed, 51 added, 1 deleted, 1 unchanged");
}

TEST_F(ServerCommands, SignaturesTellWhoSignedAndWhatChangedSince) {
    DBHANDLE rules = Open("krx/rules.nsf");
    const auto sign = [&](NOTEID id, WORD flags) {
        Note note(rules, id, flags);
        EXPECT_EQ(NSFNoteSign(note), NOERROR);
        if (flags & OPEN_EXPAND) {
            EXPECT_EQ(NSFNoteContract(note), NOERROR);
        }
        EXPECT_EQ(note.Update(UPDATE_FORCE), NOERROR);
    };
    sign(0x902, OPEN_EXPAND);
    SetEnvironment("EmbeddedIDName", "CN=Почта/O=Example");
    sign(0x90a, OPEN_EXPAND);
    sign(0x90e, 0);
    std::string signers;
    EMBSIGNATURES counts = Signatures("krx/rules.nsf", &signers);
    EXPECT_EQ(counts.designNotes, 6U);
    EXPECT_EQ(counts.signedNotes, 3U);
    EXPECT_EQ(counts.changedNotes, 0U);
    EXPECT_EQ(signers, "CN=Local/O=Embedded\nCN=Почта/O=Example\n");
    {
        Note note(rules, 0x902);
        note.SetText("BuildNumber", "5.8.0.3050");
        EXPECT_EQ(note.Update(UPDATE_FORCE), NOERROR);
    }
    counts = Signatures("krx/rules.nsf");
    EXPECT_EQ(counts.signedNotes, 3U);
    EXPECT_EQ(counts.changedNotes, 1U);
    EXPECT_EQ(NSFDbClose(rules), NOERROR);
}

} // namespace
} // namespace embedded::test
