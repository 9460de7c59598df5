#include "host/child_process.h"

#include <system_error>

#include <windows.h>

#include "support/temporary_folder.h"

namespace krxpatch::test {
namespace {

void Check(BOOL worked, const char* operation) {
    if (worked == FALSE) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), operation);
    }
}

/** One argument of a command line, by the rules that the C library takes it apart with: within quotes, backslashes
 *  count for themselves unless a quote follows. */
std::wstring Quoted(const std::wstring& argument) {
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (const wchar_t character : argument) {
        if (character == L'"') {
            quoted.append(backslashes + 1, L'\\');
        }
        backslashes = character == L'\\' ? backslashes + 1 : 0;
        quoted += character;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

HANDLE StreamTo(const std::filesystem::path& file) {
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    const HANDLE stream =
        CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable, CREATE_ALWAYS, 0, nullptr);
    Check(stream != INVALID_HANDLE_VALUE, "stream");
    return stream;
}

} // namespace

Outcome RunProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& folder) {
    const updkrx::test::TemporaryFolder streams;
    std::wstring commandLine = Quoted(std::filesystem::path(program).make_preferred().wstring());
    for (const std::string& argument : arguments) {
        commandLine += L' ' + Quoted(std::filesystem::path(argument).wstring()); // which takes it as UTF-8
    }
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    start.hStdOutput = StreamTo(streams.Path() / "out");
    start.hStdError = StreamTo(streams.Path() / "error");
    PROCESS_INFORMATION process = {};
    const auto create = [&] {
        return CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, folder.c_str(), &start,
                              &process);
    };
    // On a busy machine Wine fails with it now and then, before the program has done anything.
    Check(create() || (GetLastError() == ERROR_INTERNAL_ERROR && create()), "start");
    Check(WaitForSingleObject(process.hProcess, INFINITE) == WAIT_OBJECT_0, "wait");
    DWORD exitCode = 0;
    Check(GetExitCodeProcess(process.hProcess, &exitCode), "exit code");
    for (const HANDLE handle : {process.hProcess, process.hThread, start.hStdOutput, start.hStdError}) {
        CloseHandle(handle);
    }
    return {static_cast<int>(exitCode), updkrx::test::ReadText(streams.Path() / "out"),
            updkrx::test::ReadText(streams.Path() / "error")};
}

} // namespace krxpatch::test
