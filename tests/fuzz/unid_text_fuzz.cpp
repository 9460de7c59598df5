#include "foundation/unid_text.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "engine/values/unid.h"
#include "fuzz_target.h"

namespace fuzz {
namespace {

using embedded::UnidText;

/** The word that a group of the text states, or the word as it was. */
DWORD WordOf(std::string_view text, size_t group, DWORD before) {
    const std::string digits(text.substr(std::min(text.size(), 8 * group), 8));
    char* end = nullptr;
    const unsigned long number = std::strtoul(digits.c_str(), &end, 16);
    return end == digits.c_str() ? before : static_cast<DWORD>(number);
}

void ExpectReadBack(const UNID& unid) {
    char text[updkrx::unidTextSize];
    updkrx::FormatUnidText(unid, text);
    Expect(text == UnidText(unid), "the text is the platform's");
    UNID read = {};
    updkrx::ParseUnidText(text, read);
    Expect(UnidText(read) == text, "a text reads back");
}

} // namespace

void unid_text(std::string_view input) {
    constexpr UNID before = {{{1, 2}}, {{3, 4}}};
    UNID unid = before;
    updkrx::ParseUnidText(input, unid);
    const UNID expected = {{{WordOf(input, 1, before.File.Innards[0]), WordOf(input, 0, before.File.Innards[1])}},
                           {{WordOf(input, 3, before.Note.Innards[0]), WordOf(input, 2, before.Note.Innards[1])}}};
    Expect(UnidText(unid) == UnidText(expected), "each group is read by itself");
    if (const auto whole = embedded::ParseUnid(input)) {
        Expect(UnidText(unid) == UnidText(*whole), "the platform reads the text in the same way");
    }

    ExpectReadBack(unid);
    input.copy(reinterpret_cast<char*>(&unid), sizeof unid);
    ExpectReadBack(unid);
}

} // namespace fuzz
