#include "foundation/file_copy.h"

#include <cstdio>
#include <functional>
#include <set>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/file_size_limit.h"
#include "support/temporary_folder.h"

namespace updkrx {
namespace {

using test::ReadFile;
using test::WriteFile;

class FileCopyTest : public testing::Test {
protected:
    [[nodiscard]] std::string Path(const std::string& name) const { return folder_.Path() / name; }

    /** Every file and folder below the test's own, the files with their content. */
    [[nodiscard]] std::set<std::string> Content() const {
        std::set<std::string> content;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
            const std::string name = std::filesystem::relative(entry, folder_.Path());
            content.insert(entry.is_regular_file() ? name + "=" + ReadFile(entry) : name);
        }
        return content;
    }

private:
    test::TemporaryFolder folder_;
};

std::string Bytes(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 256);
    }
    return bytes;
}

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

TEST_F(FileCopyTest, CopiesFilesOfEverySize) {
    for (const size_t size : {0U, 1U, 4097U, 262143U, 262144U, 262145U, 3 * 262144U, 3 * 262144U + 5}) {
        SCOPED_TRACE(size);
        WriteFile(Path("source"), Bytes(size));
        WriteFile(Path("target"), std::string(300000, 'o'));
        EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
        EXPECT_TRUE(ReadFile(Path("target")) == Bytes(size));
        EXPECT_EQ(Content().size(), 2U);
    }
}

TEST_F(FileCopyTest, AnswersWithACode) {
    const struct {
        const char* what;
        std::string source;
        std::string target;
        bool overwrite;
        int32_t result;
        std::set<std::string> made;
    } cases[] = {
        {"a new file", Path("source"), Path("new"), false, 0, {"new=new"}},
        {"folders that are missing", Path("source"), Path("x/y/new"), true, 0, {"x", "x/y", "x/y/new=new"}},
        {"the other separator", Path("folder\\file"), Path("x\\new"), true, 0, {"x", "x/new=inner"}},
        {"no source", "", Path("new"), true, -1, {}},
        {"no target", Path("source"), "", true, -1, {}},
        {"a pattern", Path("sourc*"), Path("new"), true, -1, {}},
        {"another pattern", Path("sourc?"), Path("new"), true, -1, {}},
        {"a separator at the end", Path("source/"), Path("new"), true, -1, {}},
        {"the other one at the end", Path("source\\"), Path("new"), true, -1, {}},
        {"a folder", Path("folder"), Path("new"), true, -1, {}},
        {"a missing source", Path("missing"), Path("target"), true, -2, {}},
        {"a source that fails", "/proc/self/mem", Path("target"), true, -3, {}},
        {"a file for a folder", Path("source"), Path("target/new"), true, -5, {}},
        {"that and a missing source", Path("missing"), Path("target/new"), true, -5, {}},
        {"a folder in the way", Path("source"), Path("folder"), true, -5, {}},
        {"no file name", Path("source"), Path("folder/"), true, -5, {}},
        {"a name beyond the system's limit", Path("source"), Path(std::string(300, 'n')), true, -5, {}},
        {"a path beyond the system's limit", Path("source"), Path(std::string(5000, 'n')), true, -5, {}},
        {"an existing target to keep", Path("source"), Path("target"), false, -6, {}},
    };
    WriteFile(Path("source"), "new");
    WriteFile(Path("target"), "old");
    WriteFile(Path("folder/file"), "inner");
    const std::set<std::string> before = Content();
    for (const auto& [what, source, target, overwrite, result, made] : cases) {
        SCOPED_TRACE(what);
        EXPECT_EQ(CopyPath(source, target, overwrite), result);
        std::set<std::string> after = before;
        after.insert(made.begin(), made.end());
        EXPECT_EQ(Content(), after);
        std::filesystem::remove(Path("new"));
        std::filesystem::remove_all(Path("x"));
    }
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
            const test::FileSizeLimit full(limit);
            EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), -4);
            EXPECT_EQ(CopyPath(Path("source"), Path("new"), true), -4);
        }
        EXPECT_TRUE(Content() == before);
    }
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
}

TEST_F(FileCopyTest, LosesNothingWhenItIsKilled) {
    WriteFile(Path("target"), "old");
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    alarm(60); // a copy that never opens the pipe would leave this waiting
    const pid_t child = fork();
    if (child == 0) {
        _exit(-CopyPath(Path("pipe"), Path("target"), true));
    }
    std::FILE* pipe = std::fopen(Path("pipe").c_str(), "w");
    ASSERT_NE(pipe, nullptr);
    const std::string bytes = Bytes(2 << 20); // more than the pipe and the copy's buffer hold: some are written
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), pipe), bytes.size());
    EXPECT_EQ(ReadFile(Path("target")), "old") << "in mid-copy";
    alarm(0);
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    std::fclose(pipe);
    std::filesystem::remove(Path("pipe"));
    EXPECT_EQ(ReadFile(Path("target")), "old");
    EXPECT_EQ(Content().size(), 2U) << "the copy that was not finished";

    WriteFile(Path("source"), "new");
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
    EXPECT_EQ(Content(), (std::set<std::string>{"source=new", "target=new"}));
}

} // namespace
} // namespace updkrx
