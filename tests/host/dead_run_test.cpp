// One command at a time on a server folder, and what becomes of a run that dies half-way.
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
    Outcome Import() const { return Krxpatch({"import", "server/data/krx/krmsg.nsf", "new.dxl", "--force"}); }
    /** The module then finds nothing to do. */
    void EmptyThePatch() const { ASSERT_NO_FATAL_FAILURE(Edit(patchFile_, "Files=", "File=")); }
};

TEST_F(DeadRunTest, OneCommandAtATime) {
    const auto before = Snapshot(Server());
    {
        const platform::HeldFile hold = HoldServer(Server(), "a test, since noon");
        EXPECT_FALSE(platform::HeldFile::Take(Server() / "krxpatch.hold", "another"));
        EXPECT_TRUE(Fails(Run(), 1, "/server: is in use: a test, since noon\n"));
        EXPECT_TRUE(Fails(Import(), 1, "/server: is in use: a test, since noon\n"));
        EXPECT_EQ(Json::parse(StatusAsJson().out)["goingOn"], "a test, since noon");
        EXPECT_TRUE(Contains(Krxpatch({"status", "--server", "server"}).out, "Going on         a test, since noon\n"));
    }
    EXPECT_TRUE(Snapshot(Server()) == before);

    WriteFile(Server() / "krxpatch.hold", "a process that was killed");
    EXPECT_TRUE(Json::parse(StatusAsJson().out)["goingOn"].is_null());
    EXPECT_TRUE(Exits(Import(), 0));
    EXPECT_FALSE(fs::exists(Server() / "krxpatch.hold"));
}

TEST_F(DeadRunTest, TheNextRunPutsBackWhatItChanged) {
    const auto before = Snapshot(Databases());
    const std::string offline = ReadFile(Server() / "offline.lst");
    WriteFile(Server() / "data/krx.recovery.tmp/krx/junk.nsf", "of a run that died as it began");
    ASSERT_TRUE(Exits(RunModule(DYING_MODULE), 9));
    for (const char* trace : {"krconf.nsf-journal", "krquar.nsf.$$$", "new/folder/krnew.ntf"}) {
        ASSERT_TRUE(fs::exists(Databases() / trace)) << trace;
    }
    ASSERT_NE(ReadFile(Server() / "offline.lst"), offline);

    EXPECT_TRUE(Fails(Import(), 1, "krmsg.nsf: would be lost, because an earlier run died (krxpatch run by "));
    const auto died = Snapshot(Server());
    const Outcome status = StatusAsJson();
    EXPECT_TRUE(Fails(status, 1, "/server: a run died: krxpatch run by "));
    EXPECT_TRUE(Contains(Json::parse(status.out)["deadRun"], "krxpatch run by "));
    EXPECT_TRUE(Contains(Krxpatch({"status", "--server", "server"}).out, "; the next run undoes it and starts anew\n"));
    EXPECT_TRUE(Fails(RunModule("no.so"), 2, "no.so"));
    EXPECT_TRUE(Snapshot(Server()) == died);
    {
        const platform::HeldFile hold = HoldServer(Server(), "the run that is not dead");
        EXPECT_TRUE(Json::parse(StatusAsJson().out)["deadRun"].is_null());
    }

    const auto half = Snapshot(Databases());
    const fs::path kept = Server() / "data/krx.recovery/krx/krmsg.nsf";
    fs::rename(kept, Folder() / "krmsg.nsf");
    EXPECT_TRUE(Fails(Run(), 1, "/krx.recovery/krx/krmsg.nsf is missing or damaged; remove "));
    fs::rename(Folder() / "krmsg.nsf", kept);
    EXPECT_TRUE(Snapshot(Databases()) == half);

    ASSERT_NO_FATAL_FAILURE(EmptyThePatch());
    if (updkrx::test::FileSizeLimit::available) {
        const updkrx::test::FileSizeLimit full(40'000); // room for some of the databases
        EXPECT_TRUE(Fails(Run(), 1, "what an earlier run changed cannot be put back wholly: "));
        EXPECT_TRUE(Fails(Run(), 1, "krconf.nsf.recovery.tmp: File too large\n"));
    }
    EXPECT_TRUE(Contains(Run().out, "An earlier run died: krxpatch run by "));
    EXPECT_TRUE(Snapshot(Databases()) == before);
    EXPECT_EQ(ReadFile(Server() / "offline.lst"), offline);
    EXPECT_EQ(NamesIn(Server()), (std::vector<std::string>{"data", "install", "notes.ini", "offline.lst"}));
    EXPECT_EQ(NamesIn(Server() / "data"), (std::vector<std::string>{"krx", "krxtemp"}));
    EXPECT_FALSE(Contains(Run().out, "An earlier run died"));
}

TEST_F(DeadRunTest, WithoutRoomForTheCopyNothingIsTouched) {
    if (!updkrx::test::FileSizeLimit::available) {
        GTEST_SKIP() << "files cannot be kept from growing here";
    }
    const auto before = Snapshot(Databases());
    const updkrx::test::FileSizeLimit full(40'000);
    EXPECT_TRUE(Fails(Run(), 2, "krconf.nsf.recovery.tmp: File too large\n"));
    EXPECT_TRUE(Snapshot(Databases()) == before);
    EXPECT_EQ(NamesIn(Server() / "data"), (std::vector<std::string>{"krx", "krxtemp"}));
}

} // namespace
} // namespace krxpatch::test
