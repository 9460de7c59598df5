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

} // namespace
} // namespace updkrx
