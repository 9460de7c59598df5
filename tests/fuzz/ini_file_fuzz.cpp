// The file is read here once more, as a whole and without a thought for speed; the store must hold the same.
#include "foundation/ini_file.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include "fuzz_target.h"
#include "support/temporary_folder.h"

namespace fuzz {
namespace {

using updkrx::IniFile;

struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> entries;
};

bool sameName(const std::string& left, const std::string& right) {
    return strcasecmp(left.c_str(), right.c_str()) == 0;
}

std::vector<std::string> linesOf(std::string text) {
    for (size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;)
        text.erase(at, 1);
    std::vector<std::string> lines;
    for (size_t at = 0, size = 0; at < text.size(); at += size) {
        size = std::min<size_t>(text.find('\n', at) - at, 1022) + 1;
        std::string line = text.substr(at, size).c_str(); // a zero byte ends it
        for (int ends = 0; ends < 2 && (line.ends_with('\n') || line.ends_with('\r')); ++ends)
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

std::vector<Section> sectionsOf(std::string_view file) {
    std::vector<Section> sections;
    for (const std::string& line : linesOf(std::string(file))) {
        if (sameName(line, "[END]"))
            break;
        if (line.starts_with('['))
            sections.push_back({line.substr(1, std::min<size_t>(line.rfind(']') - 1, 63)), {}});
        else if (const size_t equals = line.find('='); equals <= 63 && !sections.empty())
            sections.back().entries.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return sections;
}

std::string textOf(const std::vector<Section>& sections) {
    std::string text;
    for (const Section& section : sections) {
        text += "[" + section.name + "]\n";
        for (const auto& [key, value] : section.entries)
            text.append(key).append("=").append(value).append("\n");
        text += "\n";
    }
    return text + "[END]\n";
}

std::string printed(const IniFile& ini, const std::filesystem::path& file) {
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

void expectFound(const IniFile& ini, const std::vector<Section>& sections, const char* name, const char* key) {
    const auto section = std::find_if(sections.begin(), sections.end(),
                                      [name](const Section& candidate) { return sameName(candidate.name, name); });
    if (section == sections.end())
        return expect(ini.CountValues(name, key) == updkrx::IDD_ERR_SECTION_NOTFOUND, "there is no such section");
    int matches = 0;
    for (const auto& [entryKey, value] : section->entries) {
        if (!sameName(entryKey, key))
            continue;
        int size = matches % 2 == 0 ? 4 : 1024; // now and then too small
        std::vector<char> buffer(static_cast<size_t>(size), '#');
        const std::string fitting = value.substr(0, buffer.size() - 1);
        expect(ini.GetValueAt(name, key, matches++, buffer.data(), &size) == updkrx::IDD_ERR_ZERO &&
                   buffer.data() == fitting && static_cast<size_t>(size) == fitting.size(),
               "the value in the file is found");
    }
    char untouched = '#';
    int size = 1;
    expect(ini.CountValues(name, key) == matches, "all values are counted");
    expect(ini.GetValueAt(name, key, matches, &untouched, &size) == updkrx::IDD_ERR_VALUE_NOTFOUND && untouched == '#',
           "behind the last one is none");
}

} // namespace

void ini_file(std::string_view input) {
    static const updkrx::test::TemporaryFolder folder;
    const std::filesystem::path file = folder.Path() / "a.ini", out = folder.Path() / "printed.ini";
    IniFile ini;
    expect(ini.Load(updkrx::test::WriteFile(file, input).c_str()) == updkrx::IDD_ERR_ZERO, "any bytes load");
    const int failed = ini.Load((folder.Path() / "none.ini").c_str());
    expect(failed == updkrx::IDD_ERR_INIFILE_OPENFAILED, "there is no such file, and the content stays");
    const std::vector<Section> sections = sectionsOf(input);
    const std::string text = textOf(sections);
    expect(printed(ini, out) == text, "the content is that of the file");

    expectFound(ini, sections, "Config", "Files");
    for (size_t i = 0; i < std::min<size_t>(sections.size(), 8); ++i) // more would take too long
        for (size_t j = 0; j < std::min<size_t>(sections[i].entries.size(), 8); ++j)
            expectFound(ini, sections, sections[i].name.c_str(), sections[i].entries[j].first.c_str());

    expect(ini.Load(out.c_str()) == updkrx::IDD_ERR_ZERO, "what was printed loads");
    expect(printed(ini, out) == textOf(sectionsOf(text)), "and is what it says");
}

} // namespace fuzz
