#include "foundation/ini_file.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/ascii_text.h"
#include "os/os.h"

namespace updkrx {
namespace {

constexpr size_t maxLineLength = 1023;
constexpr size_t maxNameLength = 63; // of a section or a key
constexpr size_t maxValueLength = 1024;

/** Reads up to and including the next line end, a CR LF pair being one, but at most maxLineLength characters. Empty at
 *  the end of the file. */
std::string ReadLine(std::FILE* file) {
    std::string line;
    while (line.size() < maxLineLength && !line.ends_with('\n')) {
        int character = std::getc(file);
        if (character == EOF) {
            break;
        }
        if (character == '\r') {
            const int next = std::getc(file);
            if (next == '\n') {
                character = next;
            } else {
                (void)std::ungetc(next, file); // one character of push-back is guaranteed; EOF is none
            }
        }
        line += static_cast<char>(character);
    }
    return line;
}

/** What of a read line counts: up to a zero byte, which ends every text here, and without its line end. A stray CR or
 *  a second LF before that goes too. */
std::string_view WithoutLineEnd(std::string_view line) {
    line = line.substr(0, line.find('\0'));
    for (int removed = 0; removed < 2 && (line.ends_with('\r') || line.ends_with('\n')); ++removed) {
        line.remove_suffix(1);
    }
    return line;
}

} // namespace

const char* IddErrorName(int code) noexcept {
    switch (code) {
    case IDD_ERR_ZERO:
        return "IDD_ERR_ZERO";
    case IDD_ERR_INVALID_VALUE:
        return "IDD_ERR_INVALID_VALUE";
    case IDD_ERR_VALUE_NAME_OVERSIZE:
        return "IDD_ERR_VALUE_NAME_OVERSIZE";
    case IDD_ERR_VALUE_OVERSIZE:
        return "IDD_ERR_VALUE_OVERSIZE";
    case IDD_ERR_VALUE_NOTFOUND:
        return "IDD_ERR_VALUE_NOTFOUND";
    case IDD_ERR_SECTION_NOTFOUND:
        return "IDD_ERR_SECTION_NOTFOUND";
    case IDD_ERR_INIFILE_OPENFAILED:
        return "IDD_ERR_INIFILE_OPENFAILED";
    default:
        return "IDD_ERR_Unknown";
    }
}

int IniFile::ParseEntry(std::string_view line, IniEntry& entry) {
    const size_t separator = line.find('=');
    if (separator == std::string_view::npos) {
        return IDD_ERR_INVALID_VALUE;
    }
    entry.key = line.substr(0, separator);
    entry.value = line.substr(separator + 1);
    if (entry.key.size() > maxNameLength) {
        return IDD_ERR_VALUE_NAME_OVERSIZE;
    }
    return entry.value.size() > maxValueLength ? IDD_ERR_VALUE_OVERSIZE : IDD_ERR_ZERO;
}

void IniFile::ParseLine(std::string_view line, std::vector<IniSection>& sections) {
    if (line.starts_with('[')) {
        const std::string_view name = line.substr(1, line.rfind(']') - 1); // to the end when there is no "]"
        sections.push_back({std::string(name.substr(0, maxNameLength)), {}});
        return;
    }
    IniEntry entry;
    if (!sections.empty() && ParseEntry(line, entry) == IDD_ERR_ZERO) {
        sections.back().entries.push_back(std::move(entry));
    }
}

int IniFile::Load(const char* path) {
    if (path == nullptr) {
        return IDD_ERR_NULL_ARGUMENT;
    }
    const os::OwnedFile file = os::OpenForReading(path);
    if (!file) {
        return IDD_ERR_INIFILE_OPENFAILED;
    }
    std::vector<IniSection> sections;
    for (std::string line = ReadLine(file.get()); !line.empty(); line = ReadLine(file.get())) {
        const std::string_view text = WithoutLineEnd(line);
        if (EqualIgnoringAsciiCase(text, "[END]")) {
            break;
        }
        ParseLine(text, sections);
    }
    if (std::ferror(file.get()) != 0) {
        return IDD_ERR_INIFILE_OPENFAILED; // half a configuration is none
    }
    sections_ = std::move(sections);
    return IDD_ERR_ZERO;
}

const IniFile::IniSection* IniFile::FindSection(const char* name) const {
    const auto found = std::find_if(sections_.begin(), sections_.end(), [name](const IniSection& section) {
        return EqualIgnoringAsciiCase(section.name, name);
    });
    return found == sections_.end() ? nullptr : &*found;
}

int IniFile::GetValue(const char* section, const char* key, char* buffer, int* size) const {
    return GetValueAt(section, key, 0, buffer, size);
}

int IniFile::GetValueAt(const char* section, const char* key, int index, char* buffer, int* size) const {
    if (section == nullptr || key == nullptr || buffer == nullptr || size == nullptr || *size < 1) {
        return IDD_ERR_NULL_ARGUMENT;
    }
    const IniSection* found = FindSection(section);
    if (found == nullptr) {
        return IDD_ERR_SECTION_NOTFOUND;
    }
    int matches = 0;
    for (const IniEntry& entry : found->entries) {
        if (EqualIgnoringAsciiCase(entry.key, key) && matches++ == index) {
            *size = static_cast<int>(entry.value.copy(buffer, static_cast<size_t>(*size) - 1));
            buffer[*size] = '\0';
            return IDD_ERR_ZERO;
        }
    }
    return IDD_ERR_VALUE_NOTFOUND;
}

int IniFile::CountValues(const char* section, const char* key) const {
    if (section == nullptr || key == nullptr) {
        return IDD_ERR_NULL_ARGUMENT;
    }
    const IniSection* found = FindSection(section);
    if (found == nullptr) {
        return IDD_ERR_SECTION_NOTFOUND;
    }
    return static_cast<int>(std::count_if(found->entries.begin(), found->entries.end(), [key](const IniEntry& entry) {
        return EqualIgnoringAsciiCase(entry.key, key);
    }));
}

int IniFile::Clear() noexcept {
    sections_.clear();
    return IDD_ERR_ZERO;
}

void IniFile::Print() const {
    for (const IniSection& section : sections_) {
        std::printf("[%s]\n", section.name.c_str());
        for (const IniEntry& entry : section.entries) {
            std::printf("%s=%s\n", entry.key.c_str(), entry.value.c_str());
        }
        std::printf("\n");
    }
    std::printf("[END]\n");
}

} // namespace updkrx
