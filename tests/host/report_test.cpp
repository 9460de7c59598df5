// plan, verify and diff: what they find, what they exit with, and that they leave everything as it was.
#include "host/krxpatch_fixture.h"

#include <fstream>
#include <functional>
#include <set>

namespace krxpatch::test {
namespace {

class ReportTest : public KrxpatchTest {
protected:
    /** The report that a command prints as JSON, which has its shape whatever became of the command. */
    Json Report(std::vector<std::string> arguments, int exitCode) const {
        arguments.emplace_back("--json");
        const Outcome outcome = Krxpatch(arguments);
        EXPECT_TRUE(Exits(outcome, exitCode));
        EXPECT_EQ(outcome.error, "");
        Json report = Json::parse(outcome.out, nullptr, false);
        std::set<std::string> members;
        for (const auto& [name, value] : report.items()) {
            members.insert(name);
        }
        EXPECT_EQ(members, (std::set<std::string>{"schema", "command", "success", "exitCode", "summary", "errors",
                                                  "before", "after", "patchBuild", "builds", "safetyCopy", "seconds",
                                                  "findings", "console", "files", "equalDatabases", "databases"}));
        EXPECT_EQ(report["schema"], 1);
        EXPECT_EQ(report["command"], arguments.front());
        EXPECT_EQ(report["exitCode"], exitCode);
        EXPECT_EQ(report["success"].get<bool>(), report["errors"].empty());
        return report;
    }
    Json Plan(int exitCode) const { return Report({"plan", "--server", "server"}, exitCode); }
    Json Verify(int exitCode) const { return Report({"verify", "--server", "server"}, exitCode); }
};

// ---- diff

constexpr const char* unidA = "AAAAAAAAAAAAAAAABBBBBBBBBBBBBBB1";
constexpr const char* unidB = "AAAAAAAAAAAAAAAABBBBBBBBBBBBBBB2";

std::string Note(const std::string& unid, const std::string& content,
                 const std::string& attributes = "class='document'", const std::string& sequence = "1") {
    return "<note " + attributes + "><noteinfo unid='" + unid + "' sequence='" + sequence + "'/>" + content + "</note>";
}

std::string Text(const std::string& name, const std::string& text, const std::string& flags = "") {
    return "<item name='" + name + "' " + flags + "><text>" + text + "</text></item>";
}

std::string Database(const std::string& content, const std::string& attributes = "") {
    return "<database xmlns='http://www.lotus.com/dxl' xmlns:krx='urn:updkrx:embedded-notes' "
           "replicaid='C1258D870034A1F0' " +
           attributes + ">" + content + "</database>";
}

/** Each difference of a database in one text. */
std::vector<std::string> DifferencesIn(const Json& report) {
    const auto valueOf = [](const Json& value) {
        return value.is_null()     ? std::string("-")
               : value.is_string() ? value.get<std::string>()
                                   : value["values"].dump() + value["flags"].get<std::string>();
    };
    std::vector<std::string> texts;
    const auto add = [&](const std::string& where, const Json& row) {
        texts.push_back(where + row["name"].get<std::string>() + ": " + valueOf(row["before"]) + " > " +
                        valueOf(row["after"]));
    };
    for (const Json& database : report["databases"]) {
        for (const Json& row : database["settings"]) {
            add("setting ", row);
        }
        for (const Json& row : database["accessControl"]) {
            add("acl ", row);
        }
        for (const Json& note : database["notes"]) {
            const std::string name = note["change"].get<std::string>() + " " + note["kind"].get<std::string>() + " " +
                                     note["name"].get<std::string>() + " ";
            if (note["items"].empty()) {
                texts.push_back(name);
            }
            for (const Json& item : note["items"]) {
                add(name, item);
            }
        }
    }
    return texts;
}

TEST_F(ReportTest, DiffTellsTheItemsThatDifferAndNothingElse) {
    const std::string form = Text("Form", "Policy");
    const std::string subject = Text("Subject", "One");
    const std::string view = Text("$TITLE", "All|alias");
    const struct {
        std::string before;
        std::string after;
        std::vector<std::string> differences;
    } cases[] = {
        // What two equal upgrades do not have in common is no difference.
        {Database(Note(unidA, form + subject + Text("$Revisions", "x"))),
         Database(Note(unidA, form + subject, "class='document'", "7")),
         {}},
        {Database(Note(unidA, form + subject)), Database(Note(unidA, subject + form)), {}},
        {Database("<krx:stub class='document'><noteinfo unid='" + std::string(unidA) + "'/></krx:stub>"),
         Database(""),
         {}},
        // Items.
        {Database(Note(unidA, form + subject)),
         Database(Note(unidA, form + Text("subject", "Two"))),
         {R"(changed Policy Two subject: ["One"]summary > ["Two"]summary)"}},
        {Database(Note(unidA, form + subject)),
         Database(Note(unidA, form + Text("Subject", "One", "protected='true'"))),
         {R"(changed Policy One Subject: ["One"]summary > ["One"]summary protected)"}},
        {Database(Note(unidA, form + Text("Body", "1") + Text("Body", "2"))),
         Database(Note(unidA, form + Text("Body", "1") + Text("Body", "3"))),
         {R"(changed Policy  Body: ["2"]summary > ["3"]summary)"}},
        {Database(Note(unidA, form)),
         Database(
             Note(unidA, form + "<item name='List'><textlist><text>a<break/>b</text><text>c</text></textlist></item>")),
         {R"(changed Policy  List: - > ["a\nb","c"]summary)"}},
        // Documents, in whatever order their UNIDs are, and the last of one side only.
        {Database(Note(unidA, form)),
         Database(Note(unidB, form)),
         {R"(removed Policy  Form: ["Policy"]summary > -)", R"(added Policy  Form: - > ["Policy"]summary)"}},
        // Design by its name, whatever its UNID; what became the default view is another one.
        {Database(Note(unidA, view, "class='view'")),
         Database(Note(unidB, view, "class='view'")),
         {"changed view All|alias "}},
        {Database(Note(unidA, view, "class='view'")),
         Database(Note(unidA, view, "class='view' default='true'")),
         {R"(changed view All|alias (class): ["view"] > ["default view"])"}},
        {Database(Note(unidA, view, "class='view'")),
         Database(Note(unidB, view, "class='form'")),
         {R"(added form All|alias $TITLE: - > ["All|alias"]summary)", R"(added form All|alias (class): - > ["form"])",
          R"(removed view All|alias $TITLE: ["All|alias"]summary > -)",
          R"(removed view All|alias (class): ["view"] > -)"}},
        // The database itself.
        {Database("<acl><aclentry name='A' level='reader'/><aclentry name='B' level='editor'/></acl>", "title='x'"),
         Database("<acl><aclentry name='A' level='editor' deletedocs='true'/></acl>",
                  "title='y' krx:replicationflags='0020'"),
         {"setting hidden design: open > hidden", "setting title: x > y", "acl A: reader > editor, deletedocs",
          "acl B: editor > -"}},
    };
    for (const auto& [before, after, differences] : cases) {
        Import(Folder() / "a.nsf", before);
        Import(Folder() / "b.nsf", after);
        auto found = DifferencesIn(Report({"diff", "a.nsf", "b.nsf"}, differences.empty() ? 0 : 1));
        std::vector<std::string> expected = differences;
        std::sort(found.begin(), found.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(found, expected) << before << '\n' << after;
        EXPECT_TRUE(Exits(Krxpatch({"diff", "a.nsf", "b.nsf"}), differences.empty() ? 0 : 1));
    }
}

TEST_F(ReportTest, NothingInADatabaseBecomesPartOfThePage) {
    const std::string evil = "&lt;img src=x onerror=alert(1)&gt;&lt;/script&gt;&quot;&apos;&amp;";
    Import(Folder() / "a.nsf", Database("", "title='x'"));
    Import(Folder() / "b.nsf",
           Database("<acl><aclentry name='" + evil + "' level='editor'/></acl>" +
                        Note(unidA, Text("Form", evil) + Text("Subject", evil) + Text("Evil", evil)) +
                        Note(unidB, Text("$TITLE", evil), "class='view'"),
                    "title='" + evil + "'"));
    ASSERT_TRUE(Exits(Krxpatch({"diff", "a.nsf", "b.nsf", "--html", "page.html"}), 1));
    const std::string page = ReadFile(Folder() / "page.html");
    EXPECT_TRUE(Contains(page, "&lt;img src=x onerror=alert(1)&gt;&lt;/script&gt;&quot;&#39;&amp;"));
    EXPECT_FALSE(Contains(page, "<img"));
    EXPECT_EQ(page.find("</script>"), page.rfind("</script>")); // the page's own
    EXPECT_FALSE(Contains(page, "//")) << "of the network, or a comment";
}

// ---- plan

/** What does not depend on the moment: a replication note's UNID does. */
Json Comparable(Json databases) {
    for (Json& database : databases) {
        for (Json& note : database["notes"]) {
            note.erase("lost");
            if (note["group"] == "replication" && note["change"] == "added") {
                note.erase("unid");
            }
        }
    }
    return databases;
}

TEST_F(ReportTest, PlanTellsWhatARunThenDoes) {
    MakeSandbox();
    fs::copy(Databases(), Folder() / "before");
    const Json plan = Plan(3);
    EXPECT_EQ(plan["patchBuild"], "5.8.0.3050");
    EXPECT_EQ(plan["console"].size(), 9U);
    EXPECT_EQ(plan["findings"], Json::array());
    ASSERT_TRUE(Exits(Run(), 0));
    const Json diff = Report({"diff", "before", "server/data/krx"}, 1);
    EXPECT_EQ(plan["databases"].size(), 18U);
    EXPECT_EQ(plan["files"], diff["files"]);
    EXPECT_EQ(Comparable(plan["databases"]), Comparable(diff["databases"]));
    EXPECT_EQ(Plan(0)["summary"], "Nothing to do: the server is at build 5.8.0.3050.");
}

TEST_F(ReportTest, PlanMarksWhatWouldBeLost) {
    MakeSandbox();
    // A dictionary that the product ships and that the patch replaces; its words are one list.
    constexpr const char* dictionary = "0AF6A91BEABD4C0648258D77000BFE50";
    constexpr const char* view = "81A96A53A0518EFF48258D7700363ED7";
    const auto lost = [&](const std::string& unid) -> std::string {
        const Json plan = Plan(3);
        for (const Json& database : plan["databases"]) {
            for (const Json& note : database["notes"]) {
                if (note["unid"] == unid) {
                    return note["lost"].is_null() ? "" : note["lost"];
                }
            }
        }
        ADD_FAILURE() << unid << " does not change";
        return {};
    };
    EXPECT_EQ(lost("00AFAB30223EDB7741258D9A003380CE"), "saved or signed by CN=Katrin Weiß/O=Varnholt: DefaultRule");
    EXPECT_EQ(lost("1FF7814F73BCE83C41258D86004D8BF4"), "replication settings that the upgrade does not keep");
    EXPECT_EQ(lost(dictionary), "");
    // A word that the customer has added. Nobody has noted that; with the old template there it is seen all the same.
    fs::copy(Databases() / "krconf.nsf", Databases() / "krconf.ntf");
    EXPECT_EQ(lost(dictionary), "");
    EditDatabase(Databases() / "krconf.nsf", "<text>virement</text>", "<text>virement</text><text>bonifico</text>");
    EXPECT_EQ(lost(dictionary), "not as krconf.ntf had delivered it: words");
    fs::remove(Databases() / "krconf.ntf");
    EXPECT_EQ(lost(dictionary), "");
    // The same of a design: the template stands in an earlier program folder.
    EXPECT_EQ(lost(view), "");
    fs::copy(Databases() / "krquar.nsf", Server() / "install/program/V5.8.0.3001/krquar.ntf");
    EditDatabase(Databases() / "krquar.nsf", "Reason = \"attachment\"", "Reason = \"other\"");
    EXPECT_EQ(lost(view), "not as krquar.ntf had delivered it: $FORMULA");
}

TEST_F(ReportTest, EveryAnswerLeavesTheFolderAsItWas) {
    MakeSandbox();
    fs::copy(Server(), Folder() / "behind", fs::copy_options::recursive);
    ASSERT_TRUE(Exits(Run(), 0));
    fs::copy(Server(), Folder() / "upgraded", fs::copy_options::recursive);
    const auto nothing = [] {};
    const struct {
        const char* state;
        std::function<void()> spoil;
        std::vector<std::string> arguments;
        int exitCode;
        const char* error; // its code, or null
        const char* message;
    } cases[] = {
        {"behind", nothing, {"plan", "--server", "server"}, 3, nullptr, "18 databases would change"},
        {"behind", nothing, {"plan", "--server", "server", "--html", "plan.html"}, 3, nullptr, "would change"},
        {"upgraded", nothing, {"plan", "--server", "server"}, 0, nullptr, "Nothing to do"},
        {"upgraded",
         [&] { fs::remove(Databases() / "krtime.nsf"); },
         {"plan", "--server", "server"},
         1,
         "would-fail",
         "krtime.nsf: missing"},
        {"behind",
         [&] { RemoveDocuments(Server() / fs::path(patchFile_).replace_filename("krency.ntf")); },
         {"plan", "--server", "server"},
         1,
         "would-fail",
         "krency.ntf: has no documents"},
        {"behind",
         [&] { fs::remove(Server() / fs::path(patchFile_).replace_filename("krency.ntf")); },
         {"plan", "--server", "server"},
         1,
         "would-fail",
         "krency"},
        {"behind",
         [&] { fs::remove(Server() / patchFile_); },
         {"plan", "--server", "server"},
         2,
         "not-started",
         "krxpatch.ini: cannot be read"},
        {"behind",
         [&] { WriteFile(Server() / patchFile_, std::string("\xFF\xFE[\0C\0", 6)); },
         {"verify", "--server", "server"},
         2,
         "not-started",
         "krxpatch.ini:1: is UTF-16"},
        {"behind",
         [&] { Edit(patchFile_, "=3050", "=x"); },
         {"plan", "--server", "server"},
         2,
         "not-started",
         "krxpatch.ini:3: BuildNumber=x is no build number: it is read as 0. Write the last number"},
        {"behind", nothing, {"check", "--server", "none"}, 2, "not-started", "none: no such folder"},
        {"behind", nothing, {"plan", "--server", "server", "--module", "none.so"}, 2, "not-started", "none.so"},
        {"behind",
         nothing,
         {"plan", "--server", "server", "--html", "server/data/plan.html"},
         2,
         "not-started",
         "plan.html: lies in the server folder"},
        {"behind",
         nothing,
         {"diff", "behind", "server", "--html", "behind/notes.ini"},
         2,
         "not-started",
         "behind/notes.ini: lies in the server folder"},
        {"behind",
         [&] { WriteFile(Folder() / "page", "precious"); },
         {"diff", "behind", "server", "--html", "page"},
         2,
         "not-started",
         "page: exists already and is no report"},
        {"behind",
         [&] {
             fs::remove(Server() / patchFile_);
             fs::create_directory(Server() / patchFile_);
         },
         {"plan", "--server", "server"},
         2,
         "not-started",
         "krxpatch.ini: cannot be read: it is no text file"},
        {"behind", nothing, {"verify", "--server", "server"}, 1, "not-as-it-should-be", "it has not been upgraded"},
        {"upgraded", nothing, {"verify", "--server", "server"}, 0, nullptr, "really done"},
        {"upgraded", nothing, {"verify", "--server", "none"}, 2, "not-started", "none: no such folder"},
        {"upgraded", nothing, {"diff", "server", "upgraded/data/krx"}, 0, nullptr, "equal"},
        {"upgraded", nothing, {"diff", "behind/data/krx", "server"}, 1, nullptr, "18 databases differ"},
        {"upgraded", nothing, {"diff", "server/install", "server/data"}, 2, "not-started", "have no database"},
        {"upgraded", nothing, {"diff", "server", "none"}, 2, "not-started", "none: no such file"},
        {"upgraded", nothing, {"diff", "server", "server/notes.ini"}, 2, "not-started", "is a folder"},
        {"upgraded",
         [&] { WriteFile(Databases() / "krtime.nsf", "no database"); },
         {"diff", "server", "upgraded/data/krx"},
         1,
         "unreadable-database",
         "krtime.nsf"},
    };
    for (const auto& [state, spoil, arguments, exitCode, error, message] : cases) {
        fs::remove_all(Server());
        fs::copy(Folder() / state, Server(), fs::copy_options::recursive);
        spoil();
        const auto before = Snapshot(Server());
        const Json report = Report(arguments, exitCode);
        EXPECT_TRUE(Contains(report["summary"], message)) << arguments.front();
        EXPECT_EQ(report["errors"].empty() ? Json() : report["errors"][0]["code"],
                  error == nullptr ? Json() : Json(error))
            << message;
        const Outcome text = Krxpatch(arguments);
        EXPECT_TRUE(error == nullptr ? Exits(text, exitCode) : Fails(text, exitCode, message));
        EXPECT_TRUE(Snapshot(Server()) == before) << message;
    }
}

// ---- verify

TEST_F(ReportTest, VerifyFindsWhatTheStampHides) {
    MakeSandbox();
    ASSERT_TRUE(Exits(Run(), 0));
    EXPECT_EQ(Verify(0)["findings"].size(), 18U);
    fs::copy(Server(), Folder() / "sound", fs::copy_options::recursive);
    const auto edit = [&](const char* database, const char* from, const char* to) {
        return [=, this] { EditDatabase(Databases() / database, from, to); };
    };
    const struct {
        std::function<void()> spoil;
        const char* subject;
        const char* text;
    } cases[] = {
        {edit("krmsg.nsf", "5.8.0.3050", "5.8.0.3049"), "krmsg.nsf", "carries build 5.8.0.3049 and not 5.8.0.3050"},
        {edit("krmsg.nsf", "5.8.0.3050", "5.8.0.3051"), "krmsg.nsf", "1 design note changed since signed"},
        {edit("krmsg.nsf", "name='$Signature'", "name='$Signatur'"), "krmsg.nsf", "1 of 4 design notes not signed"},
        {edit("krtime.nsf", "SELECT Form = \"Schedule\"", "SELECT Form = \"Other\""), "krtime.nsf",
         "its design is not that of krtime.ntf: different view"},
        {edit("krtime.ntf", "SELECT Form = \"Schedule\"", "SELECT Form = \"Other\""), "krtime.ntf",
         "is not what the patch delivers: view"},
        {edit("krency.nsf", "<text>1.234.00</text>", "<text>123400</text>"), "krency.nsf", "is of the old format"},
        {edit("krlists.nsf", "<text>2047</text>", "<text>1</text>"), "krlists.nsf", "has another $ReplClassMasks"},
        {edit("krlists.nsf", "<note class='replicationformula'", "<note class='document'"), "krlists.nsf",
         "no replication note"},
        {edit("krhelp.nsf", "krx:replicationflags='0020'", ""), "krhelp.nsf", "its design is not hidden"},
        {edit("krconf.nsf", "<text>DCAEE823934C935148258E6800236EEF</text>",
              "<text>DCAEE823934C935148258E6800236EE0</text>"),
         "krconf.nsf", "1 reference to a document that is not there: ReferDocs of entity"},
        {[&] { RemoveDocuments(Databases() / "krency.nsf"); }, "krency.nsf", "has no documents, though krency.ntf has"},
        {[&] { RemoveDocuments(Databases() / "krconf.ntf"); }, "krconf.ntf", "is not what the patch delivers: lost "},
        {[&] { TakeOffline("krx/krquar.nsf"); }, "krquar.nsf", "is offline"},
        {[&] { fs::remove(Databases() / "krvlog.nsf"); }, "krvlog.nsf", "is missing"},
        {[&] { fs::remove(Databases() / "krvlog.ntf"); }, "krvlog.ntf", "is not installed"},
        {[&] { WriteFile(Databases() / "PredefinedDLPPolicy.dat", "other"); }, "PredefinedDLPPolicy.dat",
         "is not the file that the patch delivers"},
        {[&] { WriteFile(Databases() / "krency.nsf.updkrx-kept", ""); }, "krency.nsf.updkrx-kept", "is left of"},
        {[&] { Edit("console.log", "done: 6 design notes", "failed: full: 6 design notes"); }, "console",
         "`load convert krx/krconf.nsf * krx/krconf.ntf` ended with: failed: full"},
        {[&] { Edit(iniFile_, "EmbeddedIDName=CN=Mail01", "EmbeddedIDName=CN=Mail09"); }, "krtime.nsf",
         "signed by CN=Mail01/O=Varnholt and not by CN=Mail09/O=Varnholt"},
    };
    for (const auto& [spoil, subject, text] : cases) {
        fs::remove_all(Server());
        fs::copy(Folder() / "sound", Server(), fs::copy_options::recursive);
        spoil();
        const Json report = Verify(1);
        bool found = false;
        for (const Json& finding : report["findings"]) {
            found = found || (finding["level"] == "FAIL" && finding["subject"] == subject &&
                              !finding["remedy"].is_null() && Contains(finding["text"], text));
        }
        EXPECT_TRUE(found) << subject << " " << text << "\n" << report["errors"].dump(2);
    }
    fs::remove_all(Server());
    fs::copy(Folder() / "sound", Server(), fs::copy_options::recursive);
    fs::remove(Server() / "console.log"); // on a server nobody needs to keep it
    const fs::path log = *fs::directory_iterator(Server() / "data/krxtemp");
    std::ofstream(log, std::ios::app) << "[2026/11/23 03:10:07][pid=1][tid=1][module=1]:Error: a write failed\n";
    const Json findings = Verify(0)["findings"];
    for (const char* subject : {"console", "module's log"}) {
        EXPECT_EQ(std::ranges::count_if(
                      findings,
                      [&](const Json& finding) { return finding["subject"] == subject && finding["level"] == "warn"; }),
                  1);
    }
}

} // namespace
} // namespace krxpatch::test
