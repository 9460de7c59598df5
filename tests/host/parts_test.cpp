// The parts of krxpatch that decide something by themselves.
#include <fstream>
#include <regex>

#include <gtest/gtest.h>

#include "database_report.h"
#include "foundation/product_databases.h"
#include "log_follower.h"
#include "log_lines.h"
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
        std::vector<DatabaseReport> reports; // besides ten databases that carry the build
        const char* behind;
    } cases[] = {
        {{Report("krmsg.nsf", {"5.8.0.3050"})}, ""},
        {{Report("krmsg.nsf", {"5.8.0.3051"})}, ""},
        {{Report("krmsg.nsf", {"5.8.0.3049"})}, "1 of 11 %: krmsg.nsf (5.8.0.3049)"},
        {{Report("krmsg.nsf", {"3050"})}, "1 of 11 %: krmsg.nsf (3050)"},
        {{Report("krmsg.nsf", {""})}, "1 of 11 %: krmsg.nsf (none)"},
        {{Report("krmsg.nsf", {})}, ""},
        {{Report("krmsg.nsf", {"5.8.0.3050", "5.8.0.3001"})}, "1 of 11 %: krmsg.nsf (5.8.0.3050, 5.8.0.3001)"},
        {{Report("krmsg.nsf", {"5.8.0.3050"}, "offline")}, "1 of 11 %: krmsg.nsf (offline)"},
        {{}, "1 of 11 %: krmsg.nsf (missing)"},
        {{Report("krmsg.nsf", {"5.8.0.3050"}), Report("copy.nsf", {"5.8.0.3001"})}, ""},
        {{Report("krmsg.nsf", {"5.8.0.3050"}), Report("krconf.ntf", {"5.8.0.3001"})}, ""},
    };
    for (auto [reports, behind] : cases) {
        for (const updkrx::ProductDatabase& product : updkrx::ProductDatabases) {
            if (product.databaseName != std::string("krmsg.nsf")) {
                reports.push_back(Report(product.databaseName, {"5.8.0.3050"}));
            }
        }
        const UpgradeState state = CompareWithBuild(reports, 3050);
        std::string expected = behind;
        EXPECT_EQ(state.Reached(), expected.empty()) << behind;
        if (!expected.empty()) {
            expected.replace(expected.find('%'), 1, "product databases do not carry build 5.8.0.3050");
            EXPECT_EQ(DescribeBehind(state, 3050), expected);
        }
    }
}

TEST(FailureCauseTest, IsTheMessageThatTellsMost) {
    const std::string ending = "Bring database offline. (/srv/data/krx/krquar.ntf):(13ea)";
    const std::string named = "Failed to open krx\\krmsg.nsf - File is not a database";
    const std::string other = "Read ACL error. (krx/krency.nsf):(103)";
    const std::string data = "\tgMap[\"Error in krmsg.nsf\"]=\"9679C1FA3EC9B30648256E16002368DE\";";
    const std::string success = "Succeeded to sign - krx\\krmsg.nsf";
    const std::pair<Texts, std::string> cases[] = {
        {{success, data, other, named, ending}, ending},
        {{data, other, named}, named},
        {{success, other}, other},
        {{success, data, "Bring database offline successfully. (x)"}, ""},
        {{}, ""},
    };
    for (const auto& [messages, cause] : cases) {
        EXPECT_EQ(FindCause(messages, {"krtime.nsf", "krmsg.nsf"}), cause);
    }
}

TEST(LogLinesTest, EachRowIsReachedAndExplains) {
    for (const LogLine& row : LogLines()) {
        const std::string message = std::regex_replace(row.pattern, std::regex("\\*"), "x");
        EXPECT_EQ(FindLogLine(message), &row) << message << " is taken by an earlier row";
        EXPECT_EQ(row.kind == LineKind::step, row.step != nullptr) << message;
    }
    EXPECT_EQ(Explain("Failed to recreate krency.nsf, Error: 246"),
              "The encyclopedia was not made anew; the old one is there, or the next lines say where. Status 246: You "
              "are not authorized to perform that operation.");
    EXPECT_EQ(Explain("Error: Sign database failed - krconf.ntf. The error number is 263"),
              "The database lacks signatures. Status 107: Insufficient memory.");
    EXPECT_EQ(KindOf("a line that nobody knows"), LineKind::detail);
    EXPECT_EQ(KindOf("ERR: a line that nobody knows"), LineKind::failure);
}

class LogFollowerTest : public testing::Test {
protected:
    void Append(const char* file, const std::string& text) {
        std::ofstream(folder_.Path() / file, std::ios::app) << text;
    }

    static Texts Messages(LogFollower& follower) {
        Texts messages;
        for (const LoggedLine& line : follower.TakeNewLines()) {
            messages.push_back(line.message);
        }
        return messages;
    }

    updkrx::test::TemporaryFolder folder_;
};

TEST_F(LogFollowerTest, TakesEachNewMessageOnce) {
    const std::string header = "[2026/11/18 10:15:00][pid=1][tid=2][module=1f]:";
    Append("updkrx_20261118.dbg", header + "old\n");
    LogFollower follower(folder_.Path(), LogFollower::From::now);
    EXPECT_EQ(Messages(follower), Texts{});

    Append("updkrx_20261118.dbg",
           header + "[a]: message\n" + header + "with a line end\n\nand no header\n" + header + "who");
    EXPECT_EQ(Messages(follower), (Texts{"[a]: message", "with a line end", "and no header"}));
    Append("updkrx_20261118.dbg", "le now\n");
    Append("updkrx_20261119.dbg", header + "after midnight\n");
    Append("other_20261119.dbg", header + "not the module's\n");
    EXPECT_EQ(Messages(follower), (Texts{"whole now", "after midnight"}));
    EXPECT_EQ(Messages(follower), Texts{});
    LogFollower none(folder_.Path() / "none", LogFollower::From::beginning);
    EXPECT_EQ(Messages(none), Texts{});
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
