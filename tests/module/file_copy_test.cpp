#include "foundation/file_copy.h"

#include "module/file_copy_fixture.h"

namespace updkrx::test {
namespace {

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

TEST_F(FileCopyTest, ReplacesWhatACopyThatDiedHasLeft) {
    WriteFile(Path("source"), "new");
    WriteFile(Path("target"), "old");
    WriteFile(Path("target.$$$"), "longer than the source");
    EXPECT_EQ(CopyPath(Path("source"), Path("target"), true), 0);
    EXPECT_EQ(Content(), (std::set<std::string>{"source=new", "target=new"}));
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

/** A run died while it wrote a file in place, or before it removed what it had kept of it. */
TEST_F(FileCopyTest, PutsBackWhatADeadRunHasKept) {
    for (const bool hasSource : {false, true}) {
        SCOPED_TRACE(hasSource);
        if (hasSource) {
            WriteFile(Path("source"), "new");
        }
        WriteFile(Path("target"), "ha");
        WriteFile(Path("target.updkrx-kept"), "old");
        WriteFile(Path("target.updkrx-writing"), "");
        EXPECT_EQ(CopyUnderReaders(Path("source"), Path("target")), hasSource ? 0 : -2);
        EXPECT_EQ(Content(), (hasSource ? std::set<std::string>{"source=new", "target=new"}
                                        : std::set<std::string>{"target=old"}));
    }
}

} // namespace
} // namespace updkrx::test
