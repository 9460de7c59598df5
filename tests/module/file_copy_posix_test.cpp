// What only this system can do to a copy: failing reads, a full disk, other users.
#include <functional>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/file_copy.h"
#include "module/file_copy_fixture.h"
#include "support/system.h"

namespace updkrx::test {
namespace {

/** Runs `body` in a process of its own, one that is not the superuser's; gives its result. */
int32_t AsUser(const std::function<int32_t()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        const bool isUser = geteuid() != 0 || setuid(65534) == 0;
        _exit(isUser ? -body() : 100);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    return -WEXITSTATUS(status);
}

TEST_F(FileCopyTest, TellsASourceThatFails) {
    WriteFile(Path("target"), "old");
    EXPECT_EQ(CopyPath("/proc/self/mem", Path("target"), true), -3);
    EXPECT_EQ(Content(), std::set<std::string>{"target=old"});
}

TEST_F(FileCopyTest, LeavesAloneWhatItMayNotWrite) {
    WriteFile(Path("source"), "new");
    WriteFile(Path("open/target"), "old");
    WriteFile(Path("shut/target"), "old");
    const struct {
        const char* file;
        mode_t mode;
    } modes[] = {{"", 0755},    {"source", 0444}, {"open", 0777}, {"open/target", 0444}, {"shut/target", 0666},
                 {"shut", 0555}};
    for (const auto& [file, mode] : modes) {
        ASSERT_EQ(chmod(Path(file).c_str(), mode), 0);
    }
    const std::set<std::string> before = Content();
    EXPECT_EQ(AsUser([&] { return CopyPath(Path("source"), Path("open/target"), true); }), -5) << "a protected file";
    EXPECT_EQ(AsUser([&] { return CopyPath(Path("source"), Path("shut/target"), true); }), -5) << "a protected folder";
    EXPECT_EQ(AsUser([&] { return CopyPath(Path("source"), Path("shut/x/target"), true); }), -5) << "no new folder";
    EXPECT_EQ(Content(), before);
    EXPECT_EQ(AsUser([&] { return CopyPath(Path("source"), Path("open/new"), true); }), 0);
    ASSERT_EQ(chmod(Path("shut").c_str(), 0777), 0);
}

TEST_F(FileCopyTest, KeepsTheAccessRightsOfTheTarget) {
    WriteFile(Path("source"), "new");
    WriteFile(Path("target"), "old");
    ASSERT_EQ(chmod(Path("target").c_str(), 0640), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(Path("target").c_str(), 65534, 65533), 0);
    }
    struct stat before = {};
    ASSERT_EQ(stat(Path("target").c_str(), &before), 0);
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
    struct stat after = {};
    ASSERT_EQ(stat(Path("target").c_str(), &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST_F(FileCopyTest, KeepsTheOldFileWhenTheDiskIsFull) {
    WriteFile(Path("target"), "old");
    for (const size_t limit : {size_t{0}, size_t{100000}, size_t{262144}, size_t{600000 - 1}}) {
        SCOPED_TRACE(limit); // the last bytes are written by the flush at the end
        WriteFile(Path("source"), Bytes(600000));
        const std::set<std::string> before = Content();
        {
            const FileSizeLimit full(limit);
            EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), -4);
            EXPECT_EQ(CopyPath(Path("source"), Path("new"), true), -4);
        }
        EXPECT_TRUE(Content() == before);
    }
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
}

} // namespace
} // namespace updkrx::test
