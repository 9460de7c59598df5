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

} // namespace
} // namespace krxpatch::test
