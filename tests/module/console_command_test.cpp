#include "foundation/console_command.h"

#include "support/server_fixture.h"

namespace updkrx {
namespace {

class ConsoleCommandTest : public test::ServerFixture {};

TEST_F(ConsoleCommandTest, SendsToTheServerWhoseIdIsInUse) {
    SetEnvironment("EmbeddedIDName", "CN=Mail01/O=Varnholt");
    EXPECT_EQ(RunConsoleCommand("tell krxreal restart"), NOERROR);
    EXPECT_EQ(RunConsoleCommand("no such command"), NOERROR) << "its reply is not read";
    EXPECT_EQ(ConsoleCommands(), (std::vector<std::string>{"tell krxreal restart", "no such command"}));
}

TEST_F(ConsoleCommandTest, AnswersWithTheStatusOfWhatFailed) {
    ASSERT_EQ(EmbFaultArm("NSFRemoteConsole", 1, ERR_NOACCESS, 0), NOERROR);
    EXPECT_EQ(RunConsoleCommand("tell krxreal restart"), ERR_NOACCESS);
    ASSERT_EQ(EmbFaultArm("SECKFMGetUserName", 1, ERR_MEMORY, 0), NOERROR);
    EXPECT_EQ(RunConsoleCommand("tell krxreal restart"), ERR_MEMORY);
    EXPECT_EQ(EmbCallCount("NSFRemoteConsole"), 1U) << "without a name nothing is sent";
    EXPECT_TRUE(ConsoleCommands().empty());
}

} // namespace
} // namespace updkrx
