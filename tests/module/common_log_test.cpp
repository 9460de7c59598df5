#include "common/common_log.h"

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/system.h"
#include "support/temporary_folder.h"

namespace updkrx {
namespace {

constexpr const char* source = "..\\common\\BqCommon";

class CommonLogTest : public testing::Test {
protected:
    CommonLogTest() {
        CommonLogSettings.level = 3;
        bq_snprintf(CommonLogSettings.directory, sizeof CommonLogSettings.directory, "%s",
                    folder_.Path().string().c_str());
        bq_snprintf(CommonLogSettings.baseName, sizeof CommonLogSettings.baseName, "%s", "base");
    }
    ~CommonLogTest() override {
        const bool is64Bit = CommonLogSettings.is64Bit;
        CommonLogSettings = {};
        CommonLogSettings.is64Bit = is64Bit;
    }

    /** What stands in the log's only file, whose name it checks; empty when there is none. */
    [[nodiscard]] std::string Content() const {
        if (std::filesystem::is_empty(folder_.Path())) {
            return "";
        }
        const std::filesystem::path file = *std::filesystem::directory_iterator(folder_.Path());
        std::string content = test::ReadText(file);
        std::string date = content.substr(1, 10); // of the line, so that midnight may come meanwhile
        std::erase(date, '/');
        EXPECT_EQ(file.filename(), "base_" + date + ".dbg");
        return content;
    }

    /** The messages of the lines, each after the level that its line shows. */
    [[nodiscard]] std::vector<std::string> Messages() const {
        std::vector<std::string> messages;
        std::istringstream lines(Content());
        for (std::string line; std::getline(lines, line);) {
            messages.push_back(line.substr(line.find("module=") + 7, 8) + line.substr(line.find(")]:") + 2));
        }
        return messages;
    }

private:
    test::TemporaryFolder folder_;
};

TEST_F(CommonLogTest, WritesOneLineWithItsHeader) {
    CommonLogWrite(source, 7, 3, "%s %d", "message", 7);
    const std::string content = Content();
    EXPECT_EQ(content.substr(std::string("[2026/11/18 10:15:00]").size()),
              "[pid=" + std::to_string(test::ProcessId()) + "][tid=" + std::to_string(test::ThreadId()) +
                  "][module=00000003] [                 ..\\common\\BqCommon(   7)]:message 7\n");
}

TEST_F(CommonLogTest, WritesWhatItsLevelAllows) {
    const struct {
        int32_t setting;
        std::vector<std::string> written;
    } cases[] = {
        {-1, {}},
        {0, {"00000000:0", "fffffffd:-3", "00000004:4"}},
        {1, {"00000000:0", "fffffffd:-3", "00000004:4", "00000001:1", "00000005:5"}},
        {3, {"00000000:0", "fffffffd:-3", "00000004:4", "00000001:1", "00000005:5", "00000003:3", "0000000b:11"}},
    };
    size_t before = 0;
    for (const auto& [setting, written] : cases) {
        CommonLogSettings.level = setting;
        for (const int32_t level : {0, -3, 4, 1, 5, 3, 11}) {
            CommonLogWrite(source, 1, level, "%d", level);
        }
        std::vector<std::string> messages = Messages();
        messages.erase(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_EQ(messages, written) << setting;
        before += messages.size();
    }
}

TEST_F(CommonLogTest, AppendsUnderItsLockWhereThereIsOne) {
    ASSERT_EQ(AcquireShared(CommonLogLock), RwLockResult::success);
    std::thread writer([] { CommonLogWrite(source, 1, 1, "waited"); });
    const auto waiting = [] {
        os::Lock(*CommonLogLock.record->mutex);
        const int32_t count = CommonLogLock.record->waitingWriters;
        os::Unlock(*CommonLogLock.record->mutex);
        return count;
    };
    while (waiting() == 0) {
        std::this_thread::yield();
    }
    CommonLogLock.valid = false; // as if it could not be created
    CommonLogWrite(source, 1, 1, "not serialised");
    CommonLogLock.valid = true;
    EXPECT_EQ(Messages(), std::vector<std::string>{"00000001:not serialised"});
    EXPECT_EQ(ReleaseShared(CommonLogLock), RwLockResult::success);
    writer.join();
    EXPECT_EQ(Messages(), (std::vector<std::string>{"00000001:not serialised", "00000001:waited"}));
    EXPECT_EQ(TryAcquireExclusive(CommonLogLock), RwLockResult::success) << "the writer has given it back";
    EXPECT_EQ(ReleaseExclusive(CommonLogLock), RwLockResult::success);
}

} // namespace
} // namespace updkrx
