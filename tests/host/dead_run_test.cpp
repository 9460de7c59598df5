// One command at a time on a server folder, what becomes of a run that dies half-way, and the safety copy.
#include "host/krxpatch_fixture.h"

#include "hold.h"
#include "support/system.h"

namespace krxpatch::test {
namespace {

class DeadRunTest : public KrxpatchTest {
protected:
    void SetUp() override {
        MakeSandbox();
        TakeOffline("krx/krvlog.nsf");
        WriteFile(Folder() / "new.dxl", "<database xmlns='http://www.lotus.com/dxl'/>");
    }
    [[nodiscard]] fs::path Copy() const { return fs::directory_iterator(Copies())->path(); }
    Outcome Import() const { return Krxpatch({"import", "server/data/krx/krmsg.nsf", "new.dxl", "--force"}); }
};

TEST_F(DeadRunTest, OneCommandAtATime) {
    const auto before = Snapshot(Databases());
    {
        const platform::HeldFile hold = Hold(Server() / "data", "a test, since noon");
        EXPECT_FALSE(platform::HeldFile::Take(Server() / "data/krxpatch.hold", "another"));
        EXPECT_TRUE(Fails(Run(), 4, "/server/data: is in use: a test, since noon\n"));
        EXPECT_TRUE(Fails(Import(), 4, "/server/data: is in use: a test, since noon\n"));
        EXPECT_TRUE(Contains(OnServer("check").out, "FAIL  others at work      "));
        EXPECT_TRUE(Exits(OnServer("check"), 4));
        EXPECT_EQ(Json::parse(StatusAsJson().out)["goingOn"], "a test, since noon");
        EXPECT_TRUE(Exits(OnServer("verify"), 4));
        EXPECT_TRUE(Exits(OnServer("status"), 4));
        EXPECT_TRUE(Contains(OnServer("status").out, "Going on       a test, since noon\n"));
    }
    EXPECT_TRUE(Snapshot(Databases()) == before);

    WriteFile(Server() / "data/krxpatch.hold", "a process that was killed");
    EXPECT_TRUE(Json::parse(StatusAsJson().out)["goingOn"].is_null());
    EXPECT_TRUE(Exits(Import(), 0));
    EXPECT_FALSE(fs::exists(Server() / "data/krxpatch.hold"));
    EXPECT_TRUE(Contains(OnServer("history").out, "done: krmsg.nsf"));
}

TEST_F(DeadRunTest, IsPutBackByRestoreAlsoWithoutThePatch) {
    const auto before = Snapshot(Databases());
    const std::string offline = ReadFile(Server() / "offline.lst");
    WriteFile(Copies() / "20261122-000000.tmp/krx/junk.nsf", "of a run that died as it began");
    ASSERT_TRUE(Exits(OnServer("run", {"--force", "--module", DYING_MODULE}), 9));
    for (const char* trace : {"krconf.nsf-journal", "krquar.nsf.$$$", "new/folder/krnew.ntf"}) {
        ASSERT_TRUE(fs::exists(Databases() / trace)) << trace;
    }
    ASSERT_NE(ReadFile(Server() / "offline.lst"), offline);

    EXPECT_TRUE(Fails(Import(), 2, "krmsg.nsf: would be lost, because a run died: krxpatch run by "));
    fs::rename(Server() / patchFile_, Folder() / "krxpatch.ini");
    const auto died = Snapshot(Server());
    const Outcome status = StatusAsJson();
    EXPECT_TRUE(Fails(status, 1, "/server: a run died: krxpatch run by "));
    EXPECT_TRUE(Contains(Json::parse(status.out)["deadRun"], "krxpatch run by "));
    EXPECT_TRUE(Fails(OnServer("verify"), 2, "krxpatch: server: a run died: krxpatch run by "));
    EXPECT_TRUE(Fails(RunModule("no.so"), 2, "no.so"));
    EXPECT_TRUE(Fails(Run(), 2, "` puts back what the run that died changed\n"));
    EXPECT_TRUE(Fails(OnServer("restore", {"--discard"}), 2, "is needed (a run died: krxpatch run by "));
    EXPECT_TRUE(Snapshot(Server()) == died);
    {
        const platform::HeldFile hold = Hold(Server() / "data", "the run that is not dead");
        EXPECT_TRUE(Json::parse(StatusAsJson().out)["deadRun"].is_null());
    }

    const auto half = Snapshot(Databases());
    const fs::path kept = Copy() / "krx/krmsg.nsf";
    fs::rename(kept, Folder() / "krmsg.nsf");
    EXPECT_TRUE(Fails(OnServer("restore"), 1, "krx/krmsg.nsf is missing or damaged: the safety copy "));
    std::string bytes = ReadFile(Folder() / "krmsg.nsf");
    bytes[bytes.size() / 2] ^= 1;
    WriteFile(kept, bytes);
    EXPECT_TRUE(Fails(OnServer("restore"), 1, "krx/krmsg.nsf is missing or damaged: the safety copy "));
    EXPECT_TRUE(Contains(OnServer("restore").error, " back from your backup of it. The other files of the copy, "));
    EXPECT_TRUE(Contains(OnServer("restore", {"--list"}).out, "damaged: krx/krmsg.nsf\n"));
    fs::rename(Folder() / "krmsg.nsf", kept);
    EXPECT_TRUE(Contains(OnServer("restore", {"--list"}).out, "whole\n"));
    EXPECT_TRUE(Snapshot(Databases()) == half);

    if (updkrx::test::FileSizeLimit::available) {
        const updkrx::test::FileSizeLimit full(40'000); // room for some of the databases
        EXPECT_TRUE(Fails(OnServer("restore"), 1, " is not put back wholly: "));
        EXPECT_TRUE(Fails(OnServer("restore"), 1, "krconf.nsf.recovery.tmp: File too large; "));
    }
    EXPECT_TRUE(Contains(OnServer("restore").out, "krx is as it was before krxpatch run by "));
    EXPECT_TRUE(Contains(OnServer("history").out, "died: what it changed is put back"));
    EXPECT_TRUE(Snapshot(Databases()) == before);
    EXPECT_EQ(ReadFile(Server() / "offline.lst"), offline);
    EXPECT_TRUE(Json::parse(StatusAsJson().out)["deadRun"].is_null());
    EXPECT_TRUE(Exits(OnServer("restore", {"--discard"}), 0));
    EXPECT_EQ(NamesIn(Server() / "data"), (std::vector<std::string>{"krx", "krxtemp"}));
}

TEST_F(DeadRunTest, IsPutBackByTheNextRunWhichEndsAsAnyOther) {
    fs::remove(Server() / "offline.lst");
    const auto before = Snapshot(Databases());
    ASSERT_TRUE(Exits(RunModule(DYING_MODULE), 9));
    const std::string id = Copy().filename().string();
    const Outcome run = Run();
    EXPECT_TRUE(Exits(run, 0));
    EXPECT_TRUE(Contains(run.out, "Before this run a run died: krxpatch run by "));
    EXPECT_EQ(NamesIn(Copies()), std::vector<std::string>{id}) << "the copy serves the new run";

    const auto upgraded = Snapshot(Databases());
    EXPECT_FALSE(Contains(Run().out, "a run died"));
    EXPECT_TRUE(Snapshot(Databases()) == upgraded);
    EXPECT_TRUE(Contains(OnServer("restore", {"--list"}).out, id + "  krxpatch run by "));
    EXPECT_TRUE(Fails(OnServer("restore", {"20000101-000000"}), 2, "no safety copy 20000101-000000; "));
    WriteFile(Databases() / "new/mail.nsf", "which came after the run");
    EXPECT_TRUE(Contains(OnServer("restore").out, ", and 9 files that the copy does not have: new/mail.nsf, "));
    fs::remove_all(Databases());
    EXPECT_TRUE(Exits(OnServer("restore", {id}), 0)) << "after a run that ended, and of a folder that is gone";
    EXPECT_TRUE(Snapshot(Databases()) == before);
    const Json history = Json::parse(OnServer("history", {"--json"}).out)["history"];
    std::string results;
    for (const Json& row : history) {
        results += row["command"].get<std::string>() + " " + row["result"].get<std::string>() + ", ";
    }
    EXPECT_EQ(results, "run died, run done, run done, restore done, restore done, ");
}

TEST_F(DeadRunTest, ARefusalAfterPuttingBackIsNoRunThatTouchedNothing) {
    fs::remove(Databases() / "krtime.nsf");
    ASSERT_TRUE(Exits(OnServer("run", {"--force", "--module", DYING_MODULE}), 9));
    EXPECT_TRUE(Fails(Run(), 1, "krtime.nsf: missing: "));
    const Json history = Json::parse(OnServer("history", {"--json"}).out)["history"];
    ASSERT_EQ(history.size(), 2U);
    EXPECT_EQ(history[0]["result"], "died");
    EXPECT_EQ(history[1]["result"], "failed");
}

TEST_F(DeadRunTest, WithoutRoomForTheCopyNothingIsTouched) {
    if (!updkrx::test::FileSizeLimit::available) {
        GTEST_SKIP() << "files cannot be kept from growing here";
    }
    fs::remove(Server() / "offline.lst");
    const auto before = Snapshot(Databases());
    const updkrx::test::FileSizeLimit full(40'000);
    EXPECT_TRUE(Fails(Run(), 2, "krconf.nsf.recovery.tmp: File too large\n"));
    EXPECT_TRUE(Snapshot(Databases()) == before);
    EXPECT_EQ(NamesIn(Server() / "data"), (std::vector<std::string>{"krx", "krxtemp"}));
}

} // namespace
} // namespace krxpatch::test
