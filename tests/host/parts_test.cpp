// The parts of krxpatch that decide something by themselves.
#include <fstream>

#include <gtest/gtest.h>

#include "database_report.h"
#include "log_follower.h"
#include "support/temporary_folder.h"
#include "text_table.h"

namespace krxpatch::test {
namespace {

using Texts = std::vector<std::string>;

DatabaseReport Report(const std::string& name, const Texts& builds, const std::string& error = "") {
    DatabaseReport report;
    report.name = name;
    report.builds = builds;
    report.error = error;
    return report;
}

TEST(UpgradeStateTest, NamesTheProductDatabasesThatAreBehind) {
    const struct {
        const char* what;
        std::vector<DatabaseReport> reports;
        bool reached;
        Texts behind;
    } cases[] = {
        {"the build", {Report("krmsg.nsf", {"5.8.0.3050"})}, true, {}},
        {"a later build", {Report("krmsg.nsf", {"5.8.0.3051"})}, true, {}},
        {"an earlier build", {Report("krmsg.nsf", {"5.8.0.3049"})}, false, {"krmsg.nsf (5.8.0.3049)"}},
        {"a text without a dot", {Report("krmsg.nsf", {"3050"})}, false, {"krmsg.nsf (3050)"}},
        {"no text in the help note", {Report("krmsg.nsf", {""})}, false, {"krmsg.nsf (none)"}},
        {"no help note", {Report("krmsg.nsf", {})}, true, {}},
        {"one of two help notes",
         {Report("krmsg.nsf", {"5.8.0.3050", "5.8.0.3001"})},
         false,
         {"krmsg.nsf (5.8.0.3050, 5.8.0.3001)"}},
        {"unreadable", {Report("krmsg.nsf", {"5.8.0.3050"}, "offline")}, false, {"krmsg.nsf (offline)"}},
        {"one of two",
         {Report("krmsg.nsf", {"5.8.0.3050"}), Report("krconf.nsf", {"5.8.0.3001"})},
         false,
         {"krconf.nsf (5.8.0.3001)"}},
        {"not the product's", {Report("krmsg.nsf", {"5.8.0.3050"}), Report("copy.nsf", {"5.8.0.3001"})}, true, {}},
        {"a template", {Report("krmsg.nsf", {"5.8.0.3050"}), Report("krconf.ntf", {"5.8.0.3001"})}, true, {}},
        {"no product database", {Report("copy.nsf", {"5.8.0.3050"})}, false, {}},
    };
    for (const auto& [what, reports, reached, behind] : cases) {
        const UpgradeState state = CompareWithBuild(reports, 3050);
        EXPECT_EQ(state.Reached(), reached) << what;
        EXPECT_EQ(state.behind, behind) << what;
    }
}

class LogFollowerTest : public testing::Test {
protected:
    void Append(const char* file, const std::string& text) {
        std::ofstream(folder_.Path() / file, std::ios::app) << text;
    }

    updkrx::test::TemporaryFolder folder_;
};

TEST_F(LogFollowerTest, TakesEachNewMessageOnce) {
    const std::string header = "[2026/11/18 10:15:00][pid=1][tid=2][module=1f]:";
    Append("updkrx_20261118.dbg", header + "old\n");
    LogFollower follower(folder_.Path());
    EXPECT_EQ(follower.TakeNewMessages(), Texts{});

    Append("updkrx_20261118.dbg",
           header + "[a]: message\n" + header + "with a line end\n\nand no header\n" + header + "who");
    EXPECT_EQ(follower.TakeNewMessages(), (Texts{"[a]: message", "with a line end", "and no header"}));
    Append("updkrx_20261118.dbg", "le now\n");
    Append("updkrx_20261119.dbg", header + "after midnight\n");
    Append("other_20261119.dbg", header + "not the module's\n");
    EXPECT_EQ(follower.TakeNewMessages(), (Texts{"whole now", "after midnight"}));
    EXPECT_EQ(follower.TakeNewMessages(), Texts{});
}

TEST_F(LogFollowerTest, HasNothingWithoutAFolder) {
    LogFollower follower(folder_.Path() / "none");
    EXPECT_EQ(follower.TakeNewMessages(), Texts{});
}

TEST(TextTableTest, AlignsCharactersAndShowsNoControls) {
    const char* expected = "NAME   B  C\n"
                           "größe  b\n"
                           "?[2J      c\n"
                           "\n";
    EXPECT_EQ(FormatTable({{"NAME", "B", "C"}, {"größe", "b", ""}, {"\x1b[2J\t", "", "c"}, {}}), expected);
}

} // namespace
} // namespace krxpatch::test
