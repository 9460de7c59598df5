#include "host/child_process.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/temporary_folder.h"

namespace krxpatch::test {
namespace {

void Check(int error, const char* operation) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), operation);
    }
}

} // namespace

Outcome RunProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& folder) {
    const updkrx::test::TemporaryFolder streams;
    const std::filesystem::path out = streams.Path() / "out";
    const std::filesystem::path error = streams.Path() / "error";
    posix_spawn_file_actions_t actions;
    Check(posix_spawn_file_actions_init(&actions), "actions");
    constexpr int flags = O_WRONLY | O_CREAT;
    Check(posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), flags, 0600), "standard output");
    Check(posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, error.c_str(), flags, 0600), "standard error");
    Check(posix_spawn_file_actions_addchdir_np(&actions, folder.c_str()), "folder");

    std::vector<std::string> texts = arguments;
    texts.insert(texts.begin(), program.string());
    std::vector<char*> argv;
    for (std::string& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    pid_t child = 0;
    Check(posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ), program.c_str());
    (void)posix_spawn_file_actions_destroy(&actions);

    int status = 0;
    Check(waitpid(child, &status, 0) == child ? 0 : errno, "wait");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), updkrx::test::ReadFile(out),
            updkrx::test::ReadFile(error)};
}

} // namespace krxpatch::test
