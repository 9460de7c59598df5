// krxpatch as an administrator meets it: the built program, what it prints and what it exits with.
#include "host/krxpatch_fixture.h"

#include <functional>
#include <initializer_list>
#include <regex>

namespace krxpatch::test {
namespace {

TEST_F(KrxpatchTest, RefusesABadCommandLineBeforeItTouchesAnything) {
    MakeSandbox();
    WriteFile(Folder() / "new.dxl", "<database xmlns='http://www.lotus.com/dxl'/>");
    const struct {
        std::vector<std::string> arguments;
        const char* message;
    } cases[] = {
        {{}, "a command is missing"},
        {{"upgrade", "--server", "server"}, "there is no command 'upgrade' ("},
        {{"statsu", "--server", "server"}, "there is no command 'statsu'; is status meant?"},
        {{"check", "--sever", "server"}, "there is no option '--sever'; is --server meant?"},
        {{"restore", "--server", "server", "--list", "--discard"}, "--list excludes --discard"},
        {{"run", "--server", "server", "--real-time=3"}, "--real-time is a switch and takes no value"},
        {{"run", "--server", ""}, "must not be empty"},
        {{"run", "--server", "server", "--dry-run"}, "--dry-run"},
        {{"import", "new.nsf", "new.dxl", "--server", "server"}, "--server"},
    };
    const auto before = Snapshot(Folder());
    for (const auto& [arguments, message] : cases) {
        const Outcome outcome = Krxpatch(arguments);
        EXPECT_TRUE(Fails(outcome, 2, message)) << message;
        EXPECT_EQ(outcome.out, "") << message;
    }
    EXPECT_TRUE(Snapshot(Folder()) == before);
}

TEST_F(KrxpatchTest, HelpAndVersionAreNoErrors) {
    const std::string all = Krxpatch({"--help"}).out;
    EXPECT_TRUE(Contains(all, "\n  130  interrupted"));
    for (const char* command : {"check", "run", "restore", "status", "history", "log", "explain", "plan", "verify",
                                "diff", "sandbox", "rehearse", "import", "export"}) {
        const Outcome help = Krxpatch({command, "-h"});
        EXPECT_TRUE(Exits(help, 0));
        EXPECT_TRUE(Contains(help.out, std::string("Usage: krxpatch ") + command));
    }
    EXPECT_TRUE(Contains(Krxpatch({"run", "--help"}).out, "Usage: krxpatch run --server DIR [OPTIONS]\n"));
    EXPECT_EQ(Krxpatch({"--version"}).out, "krxpatch 5.8.0\n");
}

class SandboxTest : public KrxpatchTest {
protected:
    void SetUp() override {
        WriteFile(Samples() / "notes.ini", "\xEF\xBB\xBF;directory=no\r\ndirectory = C:\\D\r\nX=1\r\nDirectory=D");
        WriteFile(Samples() / "data/krx/krmsg.nsf.dxl", "<database xmlns='http://www.lotus.com/dxl' title='Texts'/>");
        WriteFile(Samples() / "data/krxtemp/.keep", "");
        WriteFile(Samples() / "install/program/V5.8.0.7/krxpatch.ini", "[Config]\nBuildNumber=7\n");
        WriteFile(Samples() / "install/policy.dat", std::string("\0\r\nDirectory=\xff", 14));
    }
    [[nodiscard]] fs::path Samples() const { return Folder() / "samples"; }
    Outcome Sandbox(const std::string& folder) const { return Krxpatch({"sandbox", folder, "--from", "samples/"}); }
};

TEST_F(SandboxTest, LaysOutTheSamplesInANewOrEmptyFolder) {
    fs::create_directory(Folder() / "empty");
    std::vector<std::pair<const char*, fs::path>> cases = {{"new", Folder() / "new"}, {"./empty/", Folder() / "empty"}};
    std::error_code unsupported; // by some systems' libraries
    fs::create_directory_symlink(Folder() / "target", Folder() / "link", unsupported);
    if (!unsupported) {
        fs::create_directory(Folder() / "target");
        cases.emplace_back("link", Folder() / "target");
    }
    for (const auto& [argument, folder] : cases) {
        EXPECT_TRUE(Fails(Sandbox(argument), 1, "an upgrade would fail: ")) << argument;
        const std::string name = fs::canonical(folder).string();
        EXPECT_EQ(ReadFile(folder / "notes.ini"), "\xEF\xBB\xBF;directory=no\r\ndirectory = " + name +
                                                      "/data\r\nX=1\r\nDirectory=D\nVarnholtInstallPath=" + name +
                                                      "/install\n");
        EXPECT_EQ(NamesIn(folder), (std::vector<std::string>{"data", "install", "notes.ini"}));
        EXPECT_EQ(NamesIn(folder / "data/krx"), std::vector<std::string>{"krmsg.nsf"});
        EXPECT_EQ(NamesIn(folder / "data/krxtemp"), std::vector<std::string>{});
        EXPECT_EQ(ReadFile(folder / "install/policy.dat"), ReadFile(Samples() / "install/policy.dat"));
        EXPECT_TRUE(Contains(Krxpatch({"export", (folder / "data/krx/krmsg.nsf").string()}).out, "title='Texts'"));
    }
}

TEST_F(SandboxTest, RefusesAnyOtherFolderAndLeavesNothingHalfMade) {
    WriteFile(Folder() / "full/precious", "keep me");
    WriteFile(Folder() / "file", "keep me");
    fs::create_directory(Folder() / "empty");
    const std::pair<const char*, const char*> cases[] = {
        {"full", "full: is not empty"}, {"file", "file: is a file"}, {"none/new", "none: no such folder"}};
    const auto before = Snapshot(Folder());
    for (const auto& [folder, message] : cases) {
        EXPECT_TRUE(Fails(Sandbox(folder), 2, message));
    }
    EXPECT_TRUE(Snapshot(Folder()) == before);

    WriteFile(Samples() / "data/krx/broken.nsf.dxl", "<database xmlns='http://www.lotus.com/dxl'>");
    const std::vector<std::string> names = NamesIn(Folder());
    for (const char* folder : {"new", "empty"}) {
        EXPECT_TRUE(Fails(Sandbox(folder), 1, "broken.nsf.dxl:1: "));
    }
    EXPECT_EQ(NamesIn(Folder()), names);
    EXPECT_TRUE(fs::is_empty(Folder() / "empty"));
}

/** What is left of an export when nothing counts that signing changes: the signatures, the new replication note, and
 *  lists of one entry, which become texts in a design note that is expanded and contracted. */
std::string ButForSigning(std::string dxl) {
    for (const auto& [pattern, replacement] : std::initializer_list<std::pair<const char*, const char*>>{
             {"\n    <item name='\\$Signature'[^\n]*", ""},
             {"  <note class='replicationformula'>[^]*?</note>\n", ""},
             {"<textlist>(<text>[^<]*</text>)</textlist>", "$1"},
             {"type='50[01]'>[^<]*", ""}}) {
        dxl = std::regex_replace(dxl, std::regex(pattern), replacement);
    }
    return dxl;
}

/** Rich text, attachments, forms, views and agents as design tools write them. */
TEST_F(KrxpatchTest, AnUpgradeLeavesWhatOtherServersExportAsItWas) {
    const std::string database = "server/data/krx/krlists.nsf";
    MakeSandbox();
    for (const std::string file : {"database.dxl", "agent.dxl", "view.dxl", "note.dxl"}) {
        WriteFile(Folder() / file, ReadFile(fs::path(DXL_FIXTURES) / file));
        const char* how = file == "database.dxl" ? "--force" : "--into";
        ASSERT_TRUE(Exits(Krxpatch({"import", database, file, how}), 0));
    }
    const std::string before = Krxpatch({"export", database, "-", "--stable"}).out;
    EXPECT_TRUE(Contains(before, "<richtext"));
    ASSERT_TRUE(Exits(Run(), 0));
    const std::string after = Krxpatch({"export", database, "-", "--stable"}).out;
    EXPECT_TRUE(Contains(after, "<item name='$Signature'"));
    EXPECT_EQ(ButForSigning(after), ButForSigning(before));
}

TEST_F(KrxpatchTest, ARehearsalSharesNothingWithTheServer) {
    MakeSandbox();
    TakeOffline("krx/krtime.nsf");
    WriteFile(Databases() / "krx.recovery.tmp", "of the server's own");
    fs::rename(Databases() / "krhelp.nsf", Folder() / "elsewhere.nsf");
    fs::create_hard_link(Folder() / "elsewhere.nsf", Databases() / "krhelp.nsf");
    std::error_code unsupported; // by some systems' libraries
    fs::rename(Server() / "install", Folder() / "programs");
    fs::create_directory_symlink(Folder() / "programs", Server() / "install", unsupported);
    if (unsupported) {
        fs::rename(Folder() / "programs", Server() / "install");
    }
    const auto before = Snapshot(Folder());
    ASSERT_TRUE(Exits(Krxpatch({"rehearse", "--server", "server", "copy"}), 0));
    const fs::path copy = Folder() / "copy";
    EXPECT_EQ(NamesIn(copy), (std::vector<std::string>{"data", "install", "notes.ini", "offline.lst"}));
    EXPECT_FALSE(fs::is_symlink(copy / "install"));
    EXPECT_FALSE(fs::exists(copy / "data/krx/krx.recovery.tmp"));
    EXPECT_TRUE(fs::last_write_time(copy / "data/krx/krmsg.nsf") == fs::last_write_time(Databases() / "krmsg.nsf"));

    EXPECT_TRUE(Fails(Krxpatch({"run", "--server", "copy", "--force"}), 1, "krtime.nsf (The database is offline)"));
    EXPECT_TRUE(ReadFile(copy / "data/krx/krhelp.nsf") != ReadFile(Databases() / "krhelp.nsf"));
    fs::remove_all(copy);
    EXPECT_TRUE(Snapshot(Folder()) == before);

    fs::create_directory_symlink(Server() / "data", Databases() / "round", unsupported);
    if (!unsupported) {
        EXPECT_TRUE(
            Fails(Krxpatch({"rehearse", "--server", "server", "copy"}), 1, "is a link to a folder that it lies"));
        EXPECT_FALSE(fs::exists(copy));
    }
}

TEST_F(KrxpatchTest, RunUpgradesTheSampleServerOnce) {
    MakeSandbox();
    const Json before = Status();
    EXPECT_EQ(before["patchBuild"], 3050);
    EXPECT_EQ(before["installedBuild"], 3050);
    EXPECT_EQ(before["upToDate"], false);
    EXPECT_EQ(BuildsIn(before).size(), 11U);
    for (const auto& [name, build] : BuildsIn(before)) {
        EXPECT_EQ(build, "5.8.0.3001") << name;
    }

    const Outcome first = Run();
    ASSERT_TRUE(Exits(first, 0));
    EXPECT_EQ(first.error, "");
    EXPECT_FALSE(Contains(first.out, "Behaviours"));
    EXPECT_TRUE(Contains(first.out, " UTC  replace krxquor.ntf (2 of 8)\n"));
    EXPECT_FALSE(Contains(first.out, "The running KRX database build is 3001")) << "a line of the module's log";
    EXPECT_TRUE(Contains(first.out, "\nkrmsg.nsf        5.8.0.3001    5.8.0.3050  "));
    EXPECT_TRUE(Contains(first.out, "\nDone: the product databases carry build 5.8.0.3050.\n"));
    const Json after = Status();
    EXPECT_EQ(after["upToDate"], true);
    EXPECT_EQ(BuildsIn(after).size(), 11U);
    for (const auto& [name, build] : BuildsIn(after)) {
        EXPECT_EQ(build, "5.8.0.3050") << name;
    }

    const auto upgraded = Snapshot(Server() / "data");
    const Outcome second = Run();
    EXPECT_TRUE(Exits(second, 0));
    EXPECT_TRUE(Contains(second.out, "\nNothing to do: the product databases carry build 5.8.0.3050.\n"));
    EXPECT_TRUE(Snapshot(Server() / "data") == upgraded) << "the copy of the first run included";

    const Json history = Json::parse(OnServer("history", {"--json"}).out)["history"];
    ASSERT_EQ(history.size(), 2U);
    EXPECT_EQ(history[0]["result"], "done");
    EXPECT_EQ(history[0]["buildBefore"], "5.8.0.3001");
    EXPECT_EQ(history[0]["buildAfter"], "5.8.0.3050");
    EXPECT_EQ(history[1]["buildBefore"], "5.8.0.3050");
}

TEST_F(KrxpatchTest, RunShowsNoStepsWhileTheLogIsOff) {
    MakeSandbox();
    ASSERT_NO_FATAL_FAILURE(Edit(iniFile_, "KRX_ENABLE_KRENCY_LOG=1",
                                 "KRX_ENABLE_KRENCY_LOG=0\n"
                                 "EmbeddedBehaviour=updated-note=once,search=all"));
    const Outcome outcome = Run();
    EXPECT_TRUE(Exits(outcome, 0));
    EXPECT_TRUE(Contains(outcome.out, "\nSteps cannot be shown: the module's log is off ("));
    EXPECT_FALSE(Contains(outcome.out, "The running KRX"));
    EXPECT_FALSE(Contains(outcome.out, "Module's log"));
    EXPECT_TRUE(Contains(outcome.out, "\nBehaviours   search=all\n"));
    EXPECT_TRUE(fs::is_empty(Server() / "data/krxtemp"));
}

TEST_F(KrxpatchTest, RunThatDoesNotReachTheBuildSaysWhy) {
    MakeSandbox();
    ASSERT_NO_FATAL_FAILURE(Edit(patchFile_, "Files=", "File="));
    const auto before = Snapshot(Databases());
    const Outcome outcome = OnServer("run", {"--force"});
    EXPECT_TRUE(Fails(outcome, 1,
                      "krxpatch.ini: no Files in section Config: the upgrade would not begin. "
                      "krxpatch.ini lacks the key that the line names; nothing was touched. The log says: "
                      "Cannot get the value in configuration file. (Config:Files). "));
    EXPECT_TRUE(Fails(outcome, 1,
                      "data/krx: 11 of 11 product databases do not carry build 5.8.0.3050: krconf.nsf (5.8.0.3001), "
                      "krxquor.nsf (5.8.0.3001), krency.nsf (5.8.0.3001), .... `krxpatch restore --server "));
    EXPECT_TRUE(Contains(outcome.out, "\nkrmsg.nsf        5.8.0.3001    5.8.0.3001  "));
    EXPECT_FALSE(Contains(outcome.out, "Done"));
    EXPECT_TRUE(Snapshot(Databases()) == before);
}

TEST_F(KrxpatchTest, RunShowsWhatTheModuleDoesAndWhatItLost) {
    MakeSandbox();
    WriteFile(Databases() / "other.nsf", "no database"); // which the platform reports to the server's log
    const Outcome outcome = OnServer("run", {"--module", PROBE_MODULE, "-v"});
    EXPECT_TRUE(Contains(outcome.out, "\nSteps\n  first?[2J\n  shown at once\n  went on at once\n\n"
                                      "Server log\n  a word to the server\n\n"
                                      "DATABASE         BUILD BEFORE  BUILD AFTER  OFFLINE  "));
    EXPECT_TRUE(Contains(outcome.out, "\n\nConsole commands\n  tell krxreal restart  done\n\n"));
    EXPECT_TRUE(Contains(outcome.out, "\nkrtime.nsf       5.8.0.3001    missing      -        -       -        -\n"));
    EXPECT_TRUE(Fails(outcome, 1, "11 of 11 product databases do not carry build 5.8.0.3050"));
    EXPECT_TRUE(
        Contains(OnServer("run", {"--module", PROBE_MODULE, "-v", "--force", "--real-time"}).out, "\n  paused\n"));
}

TEST_F(KrxpatchTest, RunThatCannotStartTouchesNothing) {
    const struct {
        const char* message;
        std::function<void()> spoil;
        std::vector<std::string> arguments;
    } cases[] = {
        {"server: no such folder", [&] { fs::remove_all(Server()); }, {}},
        {"server/notes.ini: cannot be read", [&] { fs::remove(Server() / iniFile_); }, {}},
        {"/server/data/krxpatch.hold: ", [&] { fs::create_directory(Server() / "data/krxpatch.hold"); }, {}},
        {"server/notes.ini:1: is UTF-16",
         [&] { WriteFile(Server() / iniFile_, std::string("\xFF\xFE[\0N\0", 6)); },
         {}},
        {"server/notes.ini: EmbeddedBehaviour=: no behaviour is named 'x'; there are copy-unid, ",
         [&] { Edit(iniFile_, "[Notes]", "[Notes]\nEmbeddedBehaviour=x=y"); },
         {}},
        {"server/data/krx: no folder", [&] { fs::remove_all(Databases()); }, {}},
        {"V5.8.0.3050/krxpatch.ini:3: BuildNumber=99999999999 is no",
         [&] { Edit(patchFile_, "BuildNumber=3050", "BuildNumber=99999999999"); },
         {}},
        {"V5.8.0.3050/krxpatch.ini:4: Databases= names ../krmsg.nsf, which is a path",
         [&] { Edit(patchFile_, "Databases=", "Databases=../krmsg.nsf,"); },
         {}},
        {"/no.so: cannot be loaded: ", [] {}, {"--module", "no.so"}},
        {"server/notes.ini: cannot be loaded: ", [] {}, {"--module", "server/notes.ini"}},
        {NOTES_FILE ": exports no function MainEntryPoint",
         [] {},
         {"--module", (fs::path(KRXPATCH_PROGRAM).parent_path() / NOTES_FILE).string()}},
    };
    MakeSandbox();
    fs::copy(Server(), Folder() / "sound", fs::copy_options::recursive);
    for (const auto& [message, spoil, further] : cases) {
        fs::remove_all(Server());
        fs::copy(Folder() / "sound", Server(), fs::copy_options::recursive);
        spoil();
        const auto before = Snapshot(Folder());
        std::vector<std::string> arguments = {"run", "--server", "server"};
        arguments.insert(arguments.end(), further.begin(), further.end());
        const Outcome outcome = Krxpatch(arguments);
        EXPECT_TRUE(Fails(outcome, 2, message));
        EXPECT_TRUE(Snapshot(Folder()) == before) << message;
    }
}

TEST_F(KrxpatchTest, WhatIsNotThereIsNotDone) {
    MakeSandbox();
    fs::remove(Databases() / "krtime.nsf");
    EXPECT_TRUE(Fails(StatusAsJson(), 1, "/data/krx/krtime.nsf: missing\n"));
    const auto before = Snapshot(Server());
    EXPECT_TRUE(Fails(Run(), 2, "/data/krx/krtime.nsf: missing: "));
    EXPECT_TRUE(Snapshot(Server()) == before);
    const Outcome run = OnServer("run", {"--force"});
    EXPECT_TRUE(Fails(run, 1, "The log says: Failed to open krx\\krtime.nsf - File does not exist. "));
    EXPECT_TRUE(Fails(run, 1, "1 of 11 product databases do not carry build 5.8.0.3050: krtime.nsf (missing). "));
    EXPECT_EQ(Json::parse(StatusAsJson().out)["upToDate"], false);
    // The database that decides carries the build by now: only the copy helps.
    fs::copy(Databases() / "krtime.ntf", Databases() / "krtime.nsf");
    EXPECT_TRUE(Fails(Run(), 1, "krtime.nsf: there is no replication note. ")) << "the template has the build";
    fs::remove(Databases() / "krtime.nsf");
    WriteFile(Databases() / "krxquor.nsf", ReadFile(fs::directory_iterator(Copies())->path() / "krx/krxquor.nsf"));
    EXPECT_TRUE(Contains(OnServer("check").out, "carries the patch's build already, so the upgrade would do nothing"));
}

class StatusTest : public KrxpatchTest {
protected:
    void SetUp() override { MakeSandbox(); }

    void MakeDatabase(const std::string& name, const std::string& dxl) const {
        const std::string file = WriteFile(Folder() / "fixture.dxl", dxl);
        ASSERT_TRUE(Exits(Krxpatch({"import", (Databases() / name).string(), file}), 0));
    }
};

TEST_F(StatusTest, RefusesACopyWhoseSettingsNameTheOriginal) {
    fs::copy(Server(), Folder() / "copy", fs::copy_options::recursive);
    EXPECT_TRUE(Fails(Krxpatch({"run", "--server", "copy"}), 2, "lies outside this server folder"));
    EXPECT_TRUE(Fails(Krxpatch({"status", "--server", "copy"}), 2, "copy/notes.ini: Directory="));
    EXPECT_FALSE(fs::exists(Server() / "console.log"));
}

TEST_F(StatusTest, TellsWhatADatabaseCarries) {
    ASSERT_NO_FATAL_FAILURE(MakeDatabase("facts.nsf", R"(
        <database xmlns='http://www.lotus.com/dxl' xmlns:krx='urn:updkrx:embedded-notes' title='Größe'
            krx:replicationflags='0020'>
          <note class='document'><item name='BuildNumber'><text>5.8.0.1</text></item></note>
          <note class='helpusingdocument'><item name='BuildNumber'><text>5.8.0.2999</text></item></note>
          <note class='form'>
            <item name='$Signature'><rawitemdata type='8'>AAAA</rawitemdata></item>
          </note>
          <note class='view'><item name='$TITLE'><text>By name</text></item></note>
          <note class='replicationformula'><item name='$TITLE'><text>CN=A/O=B</text></item></note>
          <note class='replicationformula'><item name='$TITLE'><text>CN=Ö/O=B</text></item></note>
        </database>)"));
    ASSERT_NO_FATAL_FAILURE(MakeDatabase("empty.ntf", "<database xmlns='http://www.lotus.com/dxl'/>"));
    const Json status = Status();
    EXPECT_EQ(status["server"], fs::canonical(Server()).string());
    EXPECT_EQ(DatabaseIn(status, "facts.nsf"), Json::parse(R"({
        "name": "facts.nsf", "build": "5.8.0.2999", "title": "Größe", "offline": false, "designHidden": true,
        "designNotes": 3, "signedNotes": 1, "changedNotes": 1, "signers": [],
        "replication": ["CN=A/O=B", "CN=Ö/O=B"], "error": null})"));
    EXPECT_EQ(DatabaseIn(status, "empty.ntf"), Json::parse(R"({
        "name": "empty.ntf", "build": null, "title": "", "offline": false, "designHidden": false,
        "designNotes": 0, "signedNotes": 0, "changedNotes": 0, "signers": [], "replication": [], "error": null})"));

    const Outcome text = Krxpatch({"status", "--server", "server"});
    EXPECT_TRUE(Exits(text, 3));
    EXPECT_TRUE(Contains(text.out, "State          0 of 11 product databases at the patch's build\n"));
    EXPECT_TRUE(Contains(text.out, "\nfacts.nsf        5.8.0.2999  no       hidden  1 of 3, 1 changed since  -"));
    EXPECT_TRUE(Contains(text.out, "          Größe "));
    EXPECT_TRUE(Contains(text.out, "CN=A/O=B, CN=Ö/O=B\n"));
}

TEST_F(StatusTest, ShowsEveryDatabaseAndFailsWhenOneCannotBeRead) {
    TakeOffline("krx/krconf.nsf");
    WriteFile(Databases() / "krtime.nsf", "no database");
    const auto before = Snapshot(Server());

    const Outcome json = StatusAsJson();
    EXPECT_TRUE(Fails(json, 1, "data/krx/krconf.nsf: The database is offline"));
    const Json status = Json::parse(json.out);
    EXPECT_EQ(DatabaseIn(status, "krconf.nsf"), Json::parse(R"({
        "name": "krconf.nsf", "build": null, "title": null, "offline": true, "designHidden": null,
        "designNotes": null, "signedNotes": null, "changedNotes": null, "signers": null, "replication": null,
        "error": "The database is offline"})"));
    EXPECT_EQ(DatabaseIn(status, "krtime.nsf")["error"], "File is not a database");
    EXPECT_EQ(DatabaseIn(status, "krxquor.nsf")["build"], "5.8.0.3001");
    EXPECT_TRUE(Fails(Krxpatch({"status", "--server", "server"}), 1, "krconf.nsf"));
    EXPECT_TRUE(Snapshot(Server()) == before);
}

TEST_F(StatusTest, FailsWithoutAPatchAndShowsTheRest) {
    fs::remove(Server() / patchFile_);
    const Outcome outcome = StatusAsJson();
    EXPECT_TRUE(Fails(outcome, 1, "V5.8.0.3050/krxpatch.ini: cannot be read"));
    const Json status = Json::parse(outcome.out);
    EXPECT_EQ(status["installedBuild"], 3050);
    EXPECT_TRUE(status["patchBuild"].is_null());
    EXPECT_TRUE(status["upToDate"].is_null());
    EXPECT_TRUE(Contains(status["errors"][0]["message"], "krxpatch.ini: cannot be read"));
    EXPECT_EQ(BuildsIn(status).size(), 11U);
    EXPECT_TRUE(Fails(Krxpatch({"status", "--server", "none"}), 2, "none: no such folder"));
}

TEST_F(StatusTest, StatusAndExportLeaveTheServerFolderAsItWas) {
    const auto before = Snapshot(Server());
    EXPECT_TRUE(Exits(Krxpatch({"status", "--server", "server"}), 3));
    for (const char* command : {"check", "history", "log"}) {
        EXPECT_TRUE(Exits(OnServer(command), 0));
        EXPECT_TRUE(Exits(OnServer(command, {"--json"}), 0));
    }
    EXPECT_TRUE(Fails(OnServer("log"), 0, "krxtemp: the module has written no log yet\n"));
    EXPECT_TRUE(Exits(OnServer("restore", {"--list"}), 0));
    EXPECT_TRUE(Fails(OnServer("restore"), 2, "there is no safety copy\n"));
    for (const auto& entry : fs::directory_iterator(Databases())) {
        EXPECT_TRUE(Exits(Krxpatch({"export", entry.path().string()}), 0));
        EXPECT_TRUE(Exits(Krxpatch({"export", entry.path().string(), "out.dxl", "--stable", "--force"}), 0));
    }
    EXPECT_TRUE(Snapshot(Server()) == before);
}

class DxlTest : public KrxpatchTest {
protected:
    void SetUp() override {
        WriteFile(Folder() / "a.dxl", R"(
            <database xmlns='http://www.lotus.com/dxl' title='A'>
              <note class='document'><item name='Text'><text>größer<break/>als</text></item></note>
              <note class='view'><item name='$TITLE'><text>View</text></item></note>
            </database>)");
        WriteFile(Folder() / "bad.dxl", "<database xmlns='http://www.lotus.com/dxl'>\n<note></database>");
    }
};

TEST_F(DxlTest, ExportAndImportRoundTrip) {
    ASSERT_TRUE(Exits(Krxpatch({"import", "a.nsf", "a.dxl"}), 0));
    const Outcome exported = Krxpatch({"export", "a.nsf"});
    ASSERT_TRUE(Exits(exported, 0));
    EXPECT_TRUE(Contains(exported.out, "größer<break/>als"));
    ASSERT_TRUE(Exits(Krxpatch({"export", "a.nsf", "whole.dxl"}), 0));
    EXPECT_EQ(ReadFile(Folder() / "whole.dxl"), exported.out);
    EXPECT_EQ(Krxpatch({"export", "a.nsf", "-"}).out, exported.out);
    EXPECT_TRUE(Contains(exported.out, "noteid="));
    EXPECT_FALSE(Contains(Krxpatch({"export", "--stable", "a.nsf"}).out, "noteid="));

    ASSERT_TRUE(Exits(Krxpatch({"import", "b.nsf", "whole.dxl"}), 0));
    EXPECT_EQ(Krxpatch({"export", "b.nsf"}).out, exported.out);
}

TEST_F(DxlTest, ANoteGoesIntoADatabaseAndWhatIsUnusualIsTold) {
    const std::string unid = "5E0D3A1164B4D0C1C12589A1003471AA";
    WriteFile(Folder() / "note.dxl", "<form xmlns='http://www.lotus.com/dxl' name='F'><noteinfo unid='" + unid +
                                         "'/><surprise/><surprise/></form>");
    ASSERT_TRUE(Exits(Krxpatch({"import", "a.nsf", "a.dxl"}), 0));
    const std::string unknown = "<surprise> in <form>: not known, kept as it is\n";
    EXPECT_EQ(Krxpatch({"import", "a.nsf", "note.dxl", "--into"}).out, unknown);
    EXPECT_EQ(Krxpatch({"import", "a.nsf", "note.dxl", "--into"}).out,
              "the note of the UNID " + unid + " is replaced\n" + unknown);
    const std::string dxl = Krxpatch({"export", "a.nsf", "-"}).out;
    EXPECT_TRUE(Contains(dxl, "größer"));
    EXPECT_TRUE(Contains(dxl, "<surprise/>\n    <surprise/>\n  </form>"));
    EXPECT_TRUE(Fails(Krxpatch({"import", "a.nsf", "a.dxl", "--into"}), 1, "a.dxl:2: <database>: only a note"));
    EXPECT_TRUE(Fails(Krxpatch({"import", "a.nsf", "note.dxl", "--into", "--force"}), 2, "--into"));
}

TEST_F(DxlTest, RefusalsLeaveEverythingAsItWas) {
    ASSERT_TRUE(Exits(Krxpatch({"import", "a.nsf", "a.dxl"}), 0));
    const struct {
        std::vector<std::string> arguments;
        const char* message;
        int exitCode = 2;
    } cases[] = {
        {{"import", "a.nsf", "a.dxl"}, "a.nsf: exists already"},
        {{"import", "a.nsf", "bad.dxl", "--force"}, "bad.dxl:2: ", 1},
        {{"import", "new.nsf", "bad.dxl"}, "bad.dxl:2: ", 1},
        {{"import", "new.nsf", "none.dxl"}, "none.dxl: "},
        {{"import", "none/new.nsf", "a.dxl"}, "none: no such folder"},
        {{"import", "folder", "a.dxl", "--force"}, "folder: is a folder"},
        {{"import", "new.nsf", "folder"}, "folder: is a folder"},
        {{"export", "folder"}, "folder: is a folder"},
        {{"import", "a.dxl", "a.dxl", "--force"}, "a.dxl: ", 1},
        {{"export", "none.nsf"}, "none.nsf: no such file"},
        {{"export", "a.dxl"}, "a.dxl: file is not a database", 1},
        {{"export", "a.nsf", "a.nsf", "--force"}, "a.nsf: is a database"},
        {{"export", "a.nsf", "other", "--force"}, "other: is a database"},
        {{"export", "a.nsf", "damaged.NSF", "--force"}, "damaged.NSF: is a database"},
        {{"export", "a.nsf", "a.dxl"}, "a.dxl: exists already"},
        {{"import", "none.nsf", "a.dxl", "--into"}, "none.nsf: no such file"},
        {{"export", "a.nsf", "none/a.dxl"}, "none: no such folder"},
        {{"status", "--server", "--quiet"}, "--quiet is an option"},
    };
    fs::create_directory(Folder() / "folder");
    fs::copy(Folder() / "a.nsf", Folder() / "other");
    WriteFile(Folder() / "damaged.NSF", "x");
    const auto before = Snapshot(Folder());
    for (const auto& [arguments, message, exitCode] : cases) {
        const Outcome outcome = Krxpatch(arguments);
        EXPECT_TRUE(Fails(outcome, exitCode, message));
        EXPECT_EQ(outcome.out, "") << message;
    }
    EXPECT_TRUE(Snapshot(Folder()) == before);

    ASSERT_TRUE(Exits(Krxpatch({"import", "a.nsf", "a.dxl", "--force"}), 0));
}

} // namespace
} // namespace krxpatch::test
