// The upgrade of the sample server as a whole: what the module logs, and what every database holds afterwards, against
// the files in expected/. tests/golden/update writes them anew.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "host/child_process.h"
#include "support/system.h"
#include "support/temporary_folder.h"

namespace krxpatch::test {
namespace {

namespace fs = std::filesystem;
using updkrx::test::ReadText;
using updkrx::test::WriteFile;

/** The texts of files by their names. */
using Files = std::map<std::string, std::string>;

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/** The log as it is in the native character set: its tables are ordered by the native bytes of their texts. */
std::string InNativeCharacterSet(const std::string& log) {
    std::vector<std::string> lines = LinesOf(updkrx::test::Native(log));
    const auto inTable = [](const std::string& line) { return line.find("\tgMap[") != std::string::npos; };
    for (auto at = lines.begin(); at != lines.end();) {
        const auto begin = std::find_if(at, lines.end(), inTable);
        at = std::find_if_not(begin, lines.end(), inTable);
        std::sort(begin, at);
    }
    std::string native;
    for (const std::string& line : lines) {
        native += line + '\n';
    }
    return native;
}

Files ReadFolder(const fs::path& folder) {
    Files files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        files[entry.path().filename().string()] = ReadText(entry.path());
    }
    return files;
}

class GoldenRunTest : public testing::Test {
protected:
    [[nodiscard]] std::string Krxpatch(const std::vector<std::string>& arguments) const {
        const Outcome outcome = RunProgram(KRXPATCH_PROGRAM, arguments, folder_.Path());
        EXPECT_EQ(outcome.exitCode, 0) << arguments.front() << ": " << outcome.out << outcome.error;
        return outcome.out;
    }

    /** Upgrades the sample server: the module's log as updkrx.log, each database as DXL, and the other product
     *  files. */
    [[nodiscard]] Files Upgrade() const {
        (void)Krxpatch({"sandbox", "server"});
        (void)Krxpatch({"run", "--server", "server"});
        Files files = {{"updkrx.log", Log()}};
        for (const auto& entry : fs::directory_iterator(Data() / "krx")) {
            const fs::path& file = entry.path();
            if (file.extension() == ".nsf" || file.extension() == ".ntf") {
                files[file.filename().string() + ".dxl"] = Krxpatch({"export", "--stable", file.string()});
            } else {
                files[file.filename().string()] = ReadText(file);
            }
        }
        return files;
    }

private:
    [[nodiscard]] fs::path Data() const { return folder_.Path() / "server/data"; }

    /** The module's log without what differs from run to run: times, process, thread and the server's folder. */
    [[nodiscard]] std::string Log() const {
        std::string log;
        for (const auto& [name, text] : ReadFolder(Data() / "krxtemp")) { // two when the day ends during the run
            log += text;
        }
        static const std::regex header(R"(\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\]\[pid=\d+\]\[tid=\d+\])");
        log = std::regex_replace(log, header, "[@TIME@][pid=@PID@][tid=@TID@]");
        const std::string server = fs::canonical(folder_.Path() / "server").string();
        for (size_t at = 0; (at = log.find(server, at)) != std::string::npos;) {
            log.replace(at, server.size(), "@SERVER@");
        }
        return log;
    }

    updkrx::test::TemporaryFolder folder_;
};

void ExpectSameText(const std::string& name, const std::string& actual, const std::string& expected) {
    const std::vector<std::string> is = LinesOf(actual);
    const std::vector<std::string> shouldBe = LinesOf(expected);
    const auto [at, expectedAt] = std::mismatch(is.begin(), is.end(), shouldBe.begin(), shouldBe.end());
    if (at != is.end() || expectedAt != shouldBe.end()) {
        ADD_FAILURE() << name << ":" << at - is.begin() + 1
                      << ": is not as expected\n  is:       " << (at == is.end() ? "(the end)" : *at)
                      << "\n  expected: " << (expectedAt == shouldBe.end() ? "(the end)" : *expectedAt);
    } else {
        EXPECT_TRUE(actual == expected) << name << ": differs in its line ends only";
    }
}

TEST_F(GoldenRunTest, UpgradesTheSampleServerAsExpected) {
    const Files files = Upgrade();
    ASSERT_FALSE(HasFailure()) << "no upgrade to look at";
    if (std::getenv("GOLDEN_RUN_UPDATE") != nullptr) {
        for (const auto& [name, text] : files) {
            WriteFile(fs::path(GOLDEN_EXPECTED) / name, text);
        }
    }
    Files expected = ReadFolder(GOLDEN_EXPECTED);
    expected["updkrx.log"] = InNativeCharacterSet(expected["updkrx.log"]);
    for (const auto& [name, text] : files) {
        if (const auto found = expected.find(name); found != expected.end()) {
            ExpectSameText(name, text, found->second);
        } else {
            ADD_FAILURE() << name << ": is not expected";
        }
    }
    for (const auto& [name, text] : expected) {
        EXPECT_TRUE(files.contains(name)) << name << ": is expected and not there";
    }
}

} // namespace
} // namespace krxpatch::test
