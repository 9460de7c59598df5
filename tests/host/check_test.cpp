// What `krxpatch check` finds, and that it leaves everything as it was.
#include "host/krxpatch_fixture.h"

#include <functional>

namespace krxpatch::test {
namespace {

class CheckTest : public KrxpatchTest {
protected:
    void SetUp() override { MakeSandbox(); }

    /** The findings of a level, one line each. */
    [[nodiscard]] static std::string Found(const Json& report, const std::string& level) {
        std::string text;
        for (const Json& finding : report["findings"]) {
            if (finding["level"] == level) {
                text += finding["subject"].get<std::string>() + ":" + finding["line"].dump() + ": " +
                        finding["text"].get<std::string>() + "\n";
            }
        }
        return text;
    }

    const fs::path program_ = "install/program/V5.8.0.3050";
};

struct Fault {
    const char* level;
    std::function<void()> spoil;
    const char* found; // the check, the line and how the message begins
};

TEST_F(CheckTest, NamesEveryFaultAndItsPlaceAndTouchesNothing) {
    const auto edit = [&](const fs::path& file, const char* from, const char* to) {
        return [this, file, from, to] { Edit(file, from, to); };
    };
    const auto patch = [&](const char* from, const char* to) { return edit(patchFile_, from, to); };
    const std::string other = (Folder() / "elsewhere").string();
    const Fault faults[] = {
        {"FAIL", patch("[Config]", "\xEF\xBB\xBF[Config]"), "krxpatch.ini:1: begins with a byte-order mark"},
        {"FAIL", [&] { WriteFile(Server() / patchFile_, std::string("\xFF\xFE[\0C\0", 6)); },
         "krxpatch.ini:1: is UTF-16"},
        {"FAIL", [&] { fs::remove(Server() / patchFile_); }, "krxpatch.ini:null: "},
        {"FAIL", patch("BuildNumber=", "BuildNumber ="), "keys:3: a blank at the name BuildNumber"},
        {"FAIL", patch("=3050", "= 3050"), "keys:3: a blank at the value of BuildNumber"},
        {"warn", patch("[END]", "[END]\nFiles=a\n"), "keys:8: Files= does not stand in section [Config], but behind"},
        {"warn", patch("SkipDbSign=", "SkipDbSgin="), "keys:6: SkipDbSgin= is nothing that the product reads"},
        {"FAIL", patch("Files=", "File="), "keys:null: no Files in section Config"},
        {"FAIL", patch("Databases=", "Databases=\nX="), "keys:4: no Databases in section Config"},
        {"FAIL", patch("=3050", "=5.8.0.3050"),
         "build number:3: BuildNumber=5.8.0.3050 is no build number: it is read"},
        {"FAIL", patch("=3050", "=3051"), "build number:3: BuildNumber=3051 is above that of its own folder"},
        {"FAIL", patch("=3050", "=3000"), "build number:3: BuildNumber=3000 is below that of its own folder"},
        {"warn", [&] { EditDatabase(Databases() / "krtime.nsf", "5.8.0.3001", "5.8.0.3051"); },
         "build number:3: BuildNumber=3050 is below what databases carry, 3051"},
        {"FAIL",
         [&] {
             EditDatabase(Server() / program_ / "krtime.ntf", "class='form' default='true'", "class='field'");
             EditDatabase(Server() / program_ / "krtime.ntf", "class='view' default='true'", "class='field'");
         },
         "kinds of templates:null: has 0 forms and views, and krtime.nsf has 2"},
        {"FAIL", [&] { RemoveDocuments(Server() / program_ / "krency.ntf"); },
         "needed templates:null: has no documents"},
        {"FAIL", patch("krtime.ntf", "krtime.ntf,krtime.nsf"), "entries:4: Databases=: krtime.nsf is the server's own"},
        {"warn", patch("BuildNumber=", "BuildNumber=3050\nBuildNumber="), "keys:4: a second line BuildNumber="},
        {"warn", patch("krtime.ntf", "krtime.ntf,krtime.ntf"), "entries:4: Databases=: krtime.ntf is there twice"},
        {"warn",
         [&] {
             WriteFile(Server() / program_ / "extra.dat", "x");
             Edit(patchFile_, "krtime.ntf", "krtime.ntf,extra.dat");
         },
         "entries:4: Databases=: extra.dat is no file of the product's"},
        {"FAIL", patch("krtime.ntf", "krtime.ntf,,x"), "entries:4: Databases= has an entry without a name"},
        {"FAIL", patch("krtime.ntf,", ""), "entries:4: Databases= lacks krtime.ntf: krtime.nsf would be stamped"},
        {"FAIL", patch("krency.ntf,", ""), "needed templates:null: missing, and the patch does not bring it"},
        {"FAIL", [&] { fs::remove(Server() / program_ / "krency.ntf"); }, "delivered files:4: "},
        {"FAIL", [&] { WriteFile(Server() / program_ / "krtime.ntf", "x"); },
         "delivered files:null: File is not a database"},
        {"FAIL", [&] { WriteFile(Server() / program_ / "krconf.ntf", ReadFile(Server() / program_ / "krquar.ntf")); },
         "kinds of templates:null: is the template KRXQuarantine, and krconf.nsf is made from KRXConfiguration"},
        {"FAIL", [&] { WriteFile(Server() / program_ / "krtime.ntf", ReadFile(Databases() / "krtime.nsf")); },
         "delivered files:null: is of build 5.8.0.3001, and the patch of 5.8.0.3050"},
        {"FAIL", edit(iniFile_, "Directory=", "Directory=data\nX="), "server folder:null: "},
        {"FAIL", edit(iniFile_, "MailServer=", "Mail="), "server's name:null: no MailServer="},
        {"warn", edit(iniFile_, "[Notes]", "[Notes]\nEmbeddedBehaviour=search=all\nEmbeddedBehaviour="),
         "repeated settings:3: a second line EmbeddedBehaviour=, which does not count: line 2 does"},
        {"warn", edit(iniFile_, "[Notes]", "[Notes]\nEmbeddedBehaviour=search=all"),
         "behaviours:2: behaviours that are not the default are on: search=all"},
        {"FAIL",
         [&] {
             fs::rename(Server() / "install", other);
             Edit(iniFile_, "VarnholtInstallPath=", ("VarnholtInstallPath=" + other + "\nX=").c_str());
         },
         "program folder:3: VarnholtInstallPath="},
        {"warn", [&] { fs::remove_all(Server() / "data/krxtemp"); }, "module's log:null: no such folder"},
        {"warn", edit(iniFile_, "LOG=1", "LOG=0"), "module's log:6: the module's log is off"},
        {"FAIL", [&] { WriteFile(Databases() / "krtime.nsf", "x"); }, "databases open:null: File is not a database"},
        {"FAIL", [&] { Import(Databases() / "krtime.nsf", "<database xmlns='http://www.lotus.com/dxl'/>"); },
         "kinds of templates:null: is empty: it has no design"},
        {"FAIL", [&] { TakeOffline("krx/krtime.nsf"); }, "databases open:null: offline"},
        {"FAIL", [&] { fs::create_hard_link(Databases() / "krtime.nsf", Folder() / "again.nsf"); },
         "links:null: the file has 2 names"},
        {"FAIL",
         [&] {
             WriteFile(Folder() / "again.nsf", "of production");
             fs::create_hard_link(Folder() / "again.nsf", Server() / "console.log");
         },
         "links:null: the file has 2 names"},
        {"FAIL", [&] { fs::create_directory(Databases() / "PredefinedDLPPolicy.dat"); },
         "delivered files:null: is a folder, where"},
        {"warn", [&] { WriteFile(Databases() / "own.nsf", "x"); }, "databases open:null: File is not a database"},
    };
    fs::copy(Server(), Folder() / "sound", fs::copy_options::recursive);
    const Outcome sound = OnServer("check", {"--json"});
    ASSERT_TRUE(Exits(sound, 0));
    EXPECT_EQ(Found(Json::parse(sound.out), "FAIL") + Found(Json::parse(sound.out), "warn"), "");
    for (const Fault& fault : faults) {
        fs::remove_all(Server());
        fs::remove_all(other);
        fs::remove(Folder() / "again.nsf");
        fs::copy(Folder() / "sound", Server(), fs::copy_options::recursive);
        fault.spoil();
        const auto before = Snapshot(Folder());
        const Outcome outcome = OnServer("check", {"--json"});
        const Json report = Json::parse(outcome.out);
        const bool fails = fault.level == std::string("FAIL");
        EXPECT_TRUE(Exits(outcome, fails ? 1 : 0)) << fault.found;
        EXPECT_EQ(report["success"], !fails) << fault.found;
        EXPECT_EQ(report["errors"].empty(), !fails) << fault.found;
        EXPECT_TRUE(Contains("\n" + Found(report, fault.level), "\n" + std::string(fault.found))) << outcome.out;
        EXPECT_TRUE(Snapshot(Folder()) == before) << fault.found;
    }
}

TEST_F(CheckTest, TellsEverythingAtOnceWithWhatToDo) {
    ASSERT_NO_FATAL_FAILURE(Edit(patchFile_, "=3050", "=x"));
    WriteFile(Databases() / "krtime.nsf", "x");
    const Outcome check = OnServer("check");
    EXPECT_TRUE(Contains(check.out, "FAIL  build number        "));
    EXPECT_TRUE(Contains(check.out, "FAIL  databases open      "));
    EXPECT_TRUE(Contains(check.out, "\n                          -> put the database back from the backup"));
    EXPECT_FALSE(Contains(check.out, "\x1b")) << "colours are for terminals";
    EXPECT_TRUE(Contains(OnServer("run").error, " (and 1 more); `krxpatch check --server "));
    EXPECT_EQ(Json::parse(OnServer("run", {"--json"}).out)["errors"].size(), 2U);
    EXPECT_EQ(OnServer("check", {"--quiet"}).out, "");
}

} // namespace
} // namespace krxpatch::test
