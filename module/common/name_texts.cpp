#include "common/name_texts.h"

#include <algorithm>

namespace updkrx {
namespace {

constexpr size_t longestName = 23;

// Writable, as the pass over them at load needs it.
constinit char knownNames[][longestName + 1] = {
    // notes.ini variables; the first one is installPathVariable
    "VarnholtInstallPath",
    "Directory",
    "MailServer",
    "KRX_ENABLE_KRENCY_LOG",
    // forms
    "Register",
    "Policy",
    "MailConfiguration",
    "LocalSettings",
    "OrvixAgentSettings",
    "QUORsetting",
    "Expression", // an item as well
    "Patternfile",
    "dictionary",
    "entity",
    "template",
    "dictionary_type",
    "entity_type",
    "industry",
    "region",
    "validator",
    // items
    "Form",
    "name",
    "pre-defined",
    "ReferDocs",
    "UseDocs",
    "matchRule",
    "DocID",
    "RefContent",
    "InternalPVer",
    "DefaultRule",
    "$ConflictAction",
    "BuildNumber",
    "$TITLE",
    "$ReplVersion",
    "$ReplSrcServers",
    "$ReplClassMasks",
    "$ReplFormula",
    // directories
    "krx",
    "krxtemp",
    "program",
    "engine\\vrola",
    "engine\\pelor",
    "engine\\durin",
    "engine\\kinet",
    "pattern\\vrola",
    "pattern\\pelor",
};

constinit char noName[] = "";

consteval auto SlotsOfNames() {
    std::array<char*, StringPool.size()> slots;
    slots.fill(noName);
    std::copy(std::begin(knownNames), std::end(knownNames), slots.begin());
    return slots;
}

consteval auto PairsWithThemselves() {
    std::remove_const_t<decltype(CharPairTable)> pairs;
    size_t count = 0;
    for (int code = 0; code < 127; ++code) {
        const bool isPrintable = code >= ' ';
        if (code == 0 || (code >= '\a' && code <= '\r') || isPrintable) {
            pairs[count++] = {static_cast<char>(code), static_cast<char>(code)};
        }
    }
    return pairs; // a wrong count is no constant expression: past the end, or an element without a value
}

} // namespace

constinit std::array<char*, 1412> StringPool = SlotsOfNames();

constinit const std::array<CharPair, 103> CharPairTable = PairsWithThemselves();

void ReplaceCharacters(char* text, std::span<const CharPair> pairs) noexcept {
    for (; *text != '\0'; ++text) {
        const auto pair = std::find_if(pairs.begin(), pairs.end(), [text](CharPair p) { return p.from == *text; });
        if (pair != pairs.end()) {
            *text = pair->to;
        }
    }
}

} // namespace updkrx
