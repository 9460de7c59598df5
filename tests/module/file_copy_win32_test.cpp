// What only this system has: read-only files, paths beyond 260 characters, names in the ANSI code page, line ends.
#include <chrono>
#include <cstdio>
#include <thread>

#include <windows.h>

#include "foundation/file_copy.h"
#include "module/file_copy_fixture.h"
#include "os/os.h"

namespace updkrx::test {
namespace {

TEST_F(FileCopyTest, LeavesAloneWhatIsReadOnly) {
    WriteFile(Path("source"), "new");
    WriteFile(Path("target"), "old");
    ASSERT_TRUE(SetFileAttributesA(Path("target").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), -5);
    EXPECT_EQ(Content(), (std::set<std::string>{"source=new", "target=old"}));
    ASSERT_TRUE(SetFileAttributesA(Path("target").c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST_F(FileCopyTest, ReadsWhatOthersHaveOpen) {
    WriteFile(Path("source"), "new");
    std::FILE* reader = std::fopen(Path("source").c_str(), "rb");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
    std::fclose(reader);
    EXPECT_EQ(ReadFile(Path("target")), "new");
}

TEST_F(FileCopyTest, WaitsForWhoHasTheTargetOpen) {
    WriteFile(Path("source"), "new");
    WriteFile(Path("target"), "old");
    std::FILE* reader = std::fopen(Path("target").c_str(), "rb"); // which nobody may rename meanwhile
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), -5);
    EXPECT_EQ(Content(), (std::set<std::string>{"source=new", "target=old"}));
    std::thread leaving([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::fclose(reader);
    });
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
    leaving.join();
    EXPECT_EQ(Content(), (std::set<std::string>{"source=new", "target=new"}));
}

TEST_F(FileCopyTest, WritesInPlaceWhatAReaderKeepsFromBeingReplaced) {
    WriteFile(Path("source"), "new");
    WriteFile(Path("target"), "longer and old");
    std::FILE* reader = std::fopen(Path("target").c_str(), "rb");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(CopyUnderReaders(Path("source"), Path("target")), 0);
    std::fclose(reader);
    EXPECT_EQ(Content(), (std::set<std::string>{"source=new", "target=new"}));
}

TEST_F(FileCopyTest, TakesLongPathsBlanksAndNamesOfTheCodePage) {
    std::string folder = Path("a") + " folder \xE9\xFC"; // in the code page 1252
    for (int depth = 0; depth < 6; ++depth) {
        folder += "\\" + std::string(100, static_cast<char>('a' + depth));
    }
    WriteFile(Path("source"), "new");
    const std::string target = folder + "/name \xE4.nsf";
    ASSERT_GT(target.size(), size_t{MAX_PATH});
    EXPECT_EQ(os::KindOf(target.c_str()), os::PathKind::missing);
    EXPECT_EQ(CopyPath(Path("source"), target, true), 0);
    EXPECT_EQ(CopyPath(target, Path("back"), true), 0);
    EXPECT_EQ(ReadFile(Path("back")), "new");
    EXPECT_EQ(os::KindOf(folder.c_str()), os::PathKind::directory);
    EXPECT_TRUE(os::IsWritable(target.c_str()));
    const std::vector<os::DirectoryEntry> entries = os::ListDirectory(folder);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "name \xE4.nsf");
    EXPECT_FALSE(entries[0].isDirectory);
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(Path(".")) / L"a folder \u00E9\u00FC"));
    os::RemoveFile(target.c_str());
    EXPECT_EQ(os::KindOf(target.c_str()), os::PathKind::missing);
}

TEST_F(FileCopyTest, EndsLinesOfTextsWithTwoCharacters) {
    os::OwnedFile file = os::OpenForAppend(Path("log").c_str());
    ASSERT_NE(file, nullptr);
    std::fputs("one\n", file.get());
    EXPECT_TRUE(os::Close(std::move(file)));
    EXPECT_EQ(ReadFile(Path("log")), "one\r\n");
}

} // namespace
} // namespace updkrx::test
