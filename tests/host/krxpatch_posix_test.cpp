// What only this system's shell can do to krxpatch.
#include <gtest/gtest.h>

#include "host/krxpatch_fixture.h"

namespace krxpatch::test {
namespace {

TEST_F(KrxpatchTest, GoesOnWithoutAReader) {
    MakeSandbox();
    fs::create_directory(Folder() / "temporary");
    // The reader is gone by the time that something is printed.
    const std::string program = std::string("TMPDIR=temporary ") + KRXPATCH_PROGRAM;
    const Outcome run = RunProgram("/bin/sh",
                                   {"-c", "{ sleep 0.2; " + program + " run --server server; echo $? >code; " +
                                              program + " export server/data/krx/krconf.nsf; echo $? >>code; } | :"},
                                   Folder());
    EXPECT_EQ(ReadFile(Folder() / "code"), "0\n1\n");
    EXPECT_EQ(run.error, "krxpatch: standard output: cannot be written; the product databases carry build 5.8.0.3050\n"
                         "krxpatch: standard output: cannot be written\n");
    EXPECT_EQ(Status()["upToDate"], true);
    EXPECT_TRUE(fs::is_empty(Folder() / "temporary"));
}

TEST_F(KrxpatchTest, AnInterruptedImportLeavesNothing) {
    std::string dxl = "<database xmlns='http://www.lotus.com/dxl'>";
    for (int note = 0; note < 200'000; ++note) {
        dxl += "<document form='F'><item name='a'><text>b</text></item></document>\n";
    }
    WriteFile(Folder() / "a.dxl", dxl + "</database>");
    const std::string program = KRXPATCH_PROGRAM;
    RunProgram("/bin/sh",
               {"-c", program +
                          " import a.nsf a.dxl 2>error & until ls a.nsf.new-* >/dev/null 2>&1; do sleep 0.01; done; "
                          "kill -INT $!; wait $!; echo $? >code"},
               Folder());
    EXPECT_EQ(ReadFile(Folder() / "code"), "130\n");
    EXPECT_EQ(ReadFile(Folder() / "error"), "krxpatch: a.dxl: interrupted\n");
    fs::remove(Folder() / "a.dxl");
    fs::remove(Folder() / "code");
    fs::remove(Folder() / "error");
    EXPECT_TRUE(fs::is_empty(Folder()));
}

} // namespace
} // namespace krxpatch::test
