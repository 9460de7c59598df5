// Any bytes are a file of settings; what was read of them can be printed, read again and looked up.
#include "foundation/ini_file.h"

#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "fuzz_target.h"
#include "support/temporary_folder.h"

namespace fuzz {
namespace {

using updkrx::IniFile;

std::string Printed(const IniFile& ini, const std::filesystem::path& file) {
    std::fflush(stdout); // of what others have written
    const int output = dup(STDOUT_FILENO);
    const int captured = open(file.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    dup2(captured, STDOUT_FILENO);
    ini.Print();
    std::fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(captured);
    close(output);
    return updkrx::test::ReadFile(file);
}

void ExpectFound(const IniFile& ini, const char* section, const char* key) {
    const int count = ini.CountValues(section, key);
    for (int index = 0; index <= count; ++index) {
        int size = index % 2 == 0 ? 4 : 1024; // now and then too small
        std::vector<char> buffer(static_cast<size_t>(size));
        const int code = ini.GetValueAt(section, key, index, buffer.data(), &size);
        Expect((code == updkrx::IDD_ERR_ZERO) == (index < count), "as many values are found as are counted");
        Expect(code != updkrx::IDD_ERR_ZERO || std::string(buffer.data()).size() == static_cast<size_t>(size),
               "a value is terminated behind its size");
    }
}

} // namespace

void ini_file(std::string_view input) {
    static const updkrx::test::TemporaryFolder folder;
    const std::filesystem::path file = folder.Path() / "a.ini", out = folder.Path() / "printed.ini";
    IniFile ini;
    Expect(ini.Load(updkrx::test::WriteFile(file, input).c_str()) == updkrx::IDD_ERR_ZERO, "any bytes load");
    const std::string first = Printed(ini, out);
    const int failed = ini.Load((folder.Path() / "none.ini").c_str());
    Expect(failed == updkrx::IDD_ERR_INIFILE_OPENFAILED && Printed(ini, out) == first, "the content stays");
    ExpectFound(ini, "Config", "Files");
    Expect(ini.Load(out.c_str()) == updkrx::IDD_ERR_ZERO, "what was printed loads");
    Expect(Printed(ini, out).size() <= first.size(), "and nothing is read that was not printed");
}

} // namespace fuzz
