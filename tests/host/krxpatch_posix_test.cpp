// What only this system can do to krxpatch: its shell, its signals, its links, and a kill at a chosen moment.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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
                          "kill -TERM $!; wait $!; echo $? >code"},
               Folder());
    EXPECT_EQ(ReadFile(Folder() / "code"), "130\n");
    EXPECT_EQ(ReadFile(Folder() / "error"), "krxpatch: a.dxl: interrupted\n");
    fs::remove(Folder() / "a.dxl");
    fs::remove(Folder() / "code");
    fs::remove(Folder() / "error");
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(KrxpatchTest, AnInterruptedPlanPrintsItsReportAndLeavesNothing) {
    MakeSandbox();
    fs::create_directory(Folder() / "temporary");
    const Outcome plan = RunProgram("/bin/sh",
                                    {"-c", std::string("TMPDIR=temporary ") + KRXPATCH_PROGRAM +
                                               " plan --json --server server --module " PROBE_MODULE
                                               " & until [ -e temporary/*/data/krxtemp/*.dbg ]; do sleep 0.1; done; "
                                               "kill -TERM $!; wait $!"},
                                    Folder());
    EXPECT_TRUE(Exits(plan, 130));
    EXPECT_EQ(Json::parse(plan.out)["errors"][0]["code"], "interrupted");
    EXPECT_TRUE(fs::is_empty(Folder() / "temporary"));
}

TEST_F(KrxpatchTest, InterruptedSaysWhatStateThingsAreIn) {
    MakeSandbox();
    const auto before = Snapshot(Databases());
    // The module waits for output, of which there is none without its log.
    const Outcome run =
        RunProgram("/bin/sh",
                   {"-c", std::string(KRXPATCH_PROGRAM) + " run --server server --module " PROBE_MODULE +
                              " & until [ -e server/data/krxtemp/*.dbg ]; do sleep 0.1; done; kill -TERM $!; wait $!"},
                   Folder());
    EXPECT_TRUE(Exits(run, 130));
    EXPECT_TRUE(Contains(run.error, "the databases are half upgraded. The safety copy "));
    EXPECT_TRUE(Fails(OnServer("status"), 1, "a run died"));
    EXPECT_TRUE(Exits(OnServer("restore"), 0));
    EXPECT_TRUE(Snapshot(Databases()) == before);
    EXPECT_EQ(Json::parse(OnServer("history", {"--json"}).out)["history"][0]["result"], "interrupted");
}

/** Runs commands, which set $result, with a small disk mounted; exits with 77 when this user may not do that. */
Outcome OnDisk(const std::string& size, const std::string& commands, const fs::path& folder) {
    return RunProgram("/bin/sh",
                      {"-c", "mkdir -p disk; mount -t tmpfs -o size=" + size + " tmpfs disk || exit 77; " + commands +
                                 "umount disk; exit $result"},
                      folder);
}

TEST_F(KrxpatchTest, AnUpgradeIsDoneWithoutItsPageToo) {
    MakeSandbox();
    const auto before = Snapshot(Server());
    for (const std::string place : {"/proc/page.html", "/dev/full"}) {
        EXPECT_TRUE(Fails(OnServer("run", {"--html", place}), 2, place));
    }
    EXPECT_TRUE(Snapshot(Server()) == before);
    const std::string program = KRXPATCH_PROGRAM;
    const Outcome rehearsal = OnDisk("64k", program + " rehearse --server server disk/copy; result=$?; ", Folder());
    if (rehearsal.exitCode == 77) {
        GTEST_SKIP() << "this user may not mount a disk";
    }
    EXPECT_TRUE(Fails(rehearsal, 2, "disk/copy: too little room on the disk: "));
    const std::string database = "server/data/krx/krmsg.nsf ";
    const Outcome run =
        OnDisk("64k",
               program + " diff " + database + database + " --html disk/page.html; cp disk/page.html .; " + program +
                   " run --server server --html disk/page.html; result=$?; cmp disk/* page.html || result=1; ",
               Folder());
    EXPECT_TRUE(Fails(run, 0, "disk/page.html: the disk is full; the product databases carry build 5.8.0.3050\n"));
    EXPECT_TRUE(Contains(run.out, "\nDone: "));
}

TEST_F(KrxpatchTest, AFullDiskIsToldAndCanBeMended) {
    const std::string program = KRXPATCH_PROGRAM;
    const auto onDisk = [&](const std::string& size, const std::string& commands) {
        return OnDisk(size, program + " sandbox disk/server; " + commands, Folder());
    };
    const std::string run = program + " run --server disk/server --force; result=$?; ";
    const Outcome outcome = onDisk("1150k", run + "cp disk/server/krxpatch.history .; ");
    if (outcome.exitCode == 77) {
        GTEST_SKIP() << "this user may not mount a disk";
    }
    EXPECT_TRUE(Fails(outcome, 1, "krxpatch: The disk is full: "));
    EXPECT_EQ(Json::parse(ReadFile(Folder() / "krxpatch.history"))["result"], "failed");
    const std::string restore = program + " restore --server disk/server";
    EXPECT_TRUE(Exits(onDisk("1900k", run + "dd if=/dev/zero of=disk/fill bs=1k; " + restore + " && " + restore +
                                          " --discard; result=$?; "),
                      0));
}

TEST_F(KrxpatchTest, WhatCannotBeWrittenIsLookedAtOnly) {
    struct Way {
        const char* begin;
        const char* how;
        const char* end;
        const char* cause;
    };
    struct Row {
        const char* command;
        int exitCode;
        std::string says; // the cause, if it is empty
    };
    // Without the rights of root the user is another one already, and the second way is closed.
    const Way ways[] = {
        {"if [ $(id -u) = 0 ]; then as='setpriv --reuid=65534 --clear-groups'; else chmod -R a-w server; fi; ", "$as ",
         "chmod -R u+w server; ", "Permission denied"},
        {"mount --bind server server && mount -o remount,bind,ro server || exit 77; ", "", "umount server; ",
         "Read-only file system"},
    };
    const Row rows[] = {
        {"check", 1, ""},
        {"run", 2, ""},
        {"run --force", 2, ""},
        {"import --into server/data/krx/krmsg.nsf note.dxl", 2, ""},
        {"status", 3, "-"},
        {"plan", 3, "-"},
        {"verify", 1, "it has not been upgraded"},
    };
    MakeSandbox();
    WriteFile(Folder() / "note.dxl", "<note xmlns='http://www.lotus.com/dxl' class='document'/>");
    fs::permissions(Folder(), fs::perms(0755));
    fs::create_directory(Folder() / "temporary"); // for the plan
    fs::permissions(Folder() / "temporary", fs::perms::all);
    const auto before = Snapshot(Server());
    for (const auto& [begin, how, end, cause] : ways) {
        for (const auto& [command, exitCode, says] : rows) {
            const std::string server = Contains(command, "server/") ? "" : " --server server";
            const Outcome outcome =
                RunProgram("/bin/sh",
                           {"-c", "export TMPDIR=temporary; " + std::string(begin) + how + KRXPATCH_PROGRAM + " " +
                                      command + server + "; result=$?; " + end + "exit $result"},
                           Folder());
            if (outcome.exitCode == 77) {
                GTEST_SKIP() << "this user may not mount a folder";
            }
            EXPECT_TRUE(says == "-" ? Exits(outcome, exitCode) : Fails(outcome, exitCode, says.empty() ? cause : says))
                << command;
            EXPECT_TRUE(Snapshot(Server()) == before) << command;
        }
    }
}

TEST_F(KrxpatchTest, RefusesWhatLeadsOutOfTheServerFolder) {
    MakeSandbox();
    fs::rename(Databases() / "krtime.nsf", Folder() / "production.nsf");
    fs::create_symlink(Folder() / "production.nsf", Databases() / "krtime.nsf");
    auto before = Snapshot(Folder());
    EXPECT_TRUE(Fails(Run(), 2, "/data/krx/krtime.nsf: leads out of the server folder, to "));
    EXPECT_TRUE(Snapshot(Folder()) == before);
    fs::rename(Databases(), Folder() / "krx");
    fs::create_directory_symlink(Folder() / "krx", Databases());
    before = Snapshot(Folder());
    EXPECT_TRUE(Fails(Run(), 2, "/data/krx: leads out of the server folder, to "));
    EXPECT_TRUE(Fails(OnServer("restore"), 2, "there is no safety copy"));
    EXPECT_TRUE(Snapshot(Folder()) == before);
}

/** Kills the program before the n-th call with which it changes a name or has something put on the disk; false when it
 *  comes to its end before. */
bool KillAtChange(const std::vector<std::string>& arguments, const fs::path& folder, size_t n) {
    constexpr std::array<uint64_t, 6> changes = {SYS_rename, SYS_unlink, SYS_unlinkat, SYS_rmdir, SYS_mkdir, SYS_fsync};
    std::vector<const char*> texts = {KRXPATCH_PROGRAM};
    for (const std::string& argument : arguments) {
        texts.push_back(argument.c_str());
    }
    texts.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        (void)dup2(nowhere, STDOUT_FILENO);
        (void)setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // which cannot be done to a traced process
        if (chdir(folder.c_str()) == 0 && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
            (void)execv(KRXPATCH_PROGRAM, const_cast<char* const*>(texts.data()));
        }
        _exit(1);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    (void)ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (size_t seen = 0; !WIFEXITED(status) && !WIFSIGNALED(status); (void)waitpid(child, &status, 0)) {
        __ptrace_syscall_info call = {};
        (void)ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call);
        const bool isChange = call.op == PTRACE_SYSCALL_INFO_ENTRY &&
                              std::find(changes.begin(), changes.end(), call.entry.nr) != changes.end();
        if (isChange && ++seen == n) {
            (void)kill(child, SIGKILL);
        }
        (void)ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
    return WIFSIGNALED(status);
}

std::map<std::string, std::string> ContentsOf(const fs::path& folder) {
    std::map<std::string, std::string> contents;
    for (const auto& [path, entry] : Snapshot(folder)) {
        contents[path] = entry.content;
    }
    return contents;
}

TEST_F(KrxpatchTest, RestoreStandsAKillAtAnyMoment) {
    MakeSandbox();
    const auto before = ContentsOf(Databases());
    ASSERT_TRUE(Exits(Run(), 0));
    fs::copy(Server(), Folder() / "upgraded", fs::copy_options::recursive);
    constexpr size_t step = 7; // no divisor of the calls for a file, so that each of them is met in turn
    size_t kills = 0;
    for (size_t n = 1; KillAtChange({"restore", "--server", "server"}, Folder(), n); n += step, ++kills) {
        if (ContentsOf(Databases()) != before) { // begun, and not through
            const bool untouched = NamesIn(Databases()) == NamesIn(Folder() / "upgraded/data/krx");
            EXPECT_TRUE(untouched || Contains(OnServer("status").error, "a restore died: "))
                << "killed at change " << n;
        }
        EXPECT_TRUE(Exits(OnServer("restore"), 0)) << "killed at change " << n;
        EXPECT_TRUE(ContentsOf(Databases()) == before) << "killed at change " << n;
        fs::remove_all(Server());
        fs::copy(Folder() / "upgraded", Server(), fs::copy_options::recursive);
    }
    EXPECT_GE(kills, 8U);
    EXPECT_TRUE(ContentsOf(Databases()) == before) << "the last one was not killed";
}

} // namespace
} // namespace krxpatch::test
