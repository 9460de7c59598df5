// The product's names of forms, items, message queues, notes.ini variables and directories, in the slots that the
// product's modules share.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace updkrx {

/** Every slot holds a writable, terminated text. The names that this module knows stand first, each once; the slots of
 *  names that only other modules use hold empty texts. */
extern std::array<char*, 1412> StringPool;

/** The slot of the notes.ini variable that holds the install directory. */
inline constexpr size_t installPathVariable = 0;

struct CharPair {
    char from;
    char to;
};

/** The terminator, the control characters from bell to carriage return, and printable ASCII, each paired with itself:
 *  names stay as they are stored. */
extern const std::array<CharPair, 103> CharPairTable;

/** Replaces each character of a terminated text by the partner that the first pair for it names; a character without a
 *  pair stays. */
void ReplaceCharacters(char* text, std::span<const CharPair> pairs) noexcept;

} // namespace updkrx
