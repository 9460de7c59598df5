// Reader for sectioned text files with lines of the form key=value.
//
//   [Config]            a section; whatever follows the last "]" is dropped, and without a "]" the rest of the line
//                       is the name; a name longer than 63 characters is cut
//   BuildNumber=3050    an entry, split at its first "="; blanks belong to the key and the value
//   [END]               in any case of letters and alone on its line: nothing after it is read
//
// There are no comments. Lines without "=", with a key longer than 63 characters, or before the first section are
// skipped in silence. A line longer than 1023 characters is read as several lines of 1023 characters.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updkrx {

enum {
    IDD_ERR_ZERO = 0,
    IDD_ERR_INVALID_VALUE = -100,       // a line without "="; only while loading
    IDD_ERR_VALUE_NAME_OVERSIZE = -101, // a key that is too long; only while loading
    IDD_ERR_VALUE_OVERSIZE = -102,      // a value that is too long; only while loading
    IDD_ERR_VALUE_NOTFOUND = -103,
    IDD_ERR_SECTION_NOTFOUND = -104,
    IDD_ERR_INIFILE_OPENFAILED = -105,
    IDD_ERR_NULL_ARGUMENT = -106,
};

/** The name of a code; "IDD_ERR_Unknown" for any other number, and for IDD_ERR_NULL_ARGUMENT. */
[[nodiscard]] const char* IddErrorName(int code) noexcept;

/**
 * The content of one file. Of sections with the same name only the first is ever searched; names and keys match
 * without regard to the case of ASCII letters. A missing (null) argument gives IDD_ERR_NULL_ARGUMENT.
 */
class IniFile {
public:
    /** Replaces the content with that of the file. When the file cannot be opened or read the result is
     *  IDD_ERR_INIFILE_OPENFAILED and the content stays as it was. */
    [[nodiscard]] int Load(const char* path);

    /**
     * Puts the value of the first entry with this key, terminated and cut to fit, into `buffer`. `size` holds the
     * buffer's bytes, at least 1, and receives the length of the text put there. When nothing is found
     * (IDD_ERR_SECTION_NOTFOUND, IDD_ERR_VALUE_NOTFOUND) neither is touched.
     */
    [[nodiscard]] int GetValue(const char* section, const char* key, char* buffer, int* size) const;

    /** GetValue for the entry with this index, counted from 0, among those with the key. */
    [[nodiscard]] int GetValueAt(const char* section, const char* key, int index, char* buffer, int* size) const;

    /** The number of entries with this key, or a negative code. */
    [[nodiscard]] int CountValues(const char* section, const char* key) const;

    /** Discards the content; always 0. */
    int Clear() noexcept;

    /** Writes the content to standard output, in the form of a file. */
    void Print() const;

private:
    struct IniEntry {
        std::string key;
        std::string value;
    };

    struct IniSection {
        std::string name;
        std::vector<IniEntry> entries;
    };

    static int ParseEntry(std::string_view line, IniEntry& entry);
    static void ParseLine(std::string_view line, std::vector<IniSection>& sections);
    [[nodiscard]] const IniSection* FindSection(const char* name) const;

    std::vector<IniSection> sections_;
};

} // namespace updkrx
