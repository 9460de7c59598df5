// Signatures: who signed a note, and a digest that tells whether the note has changed since. A digest, no
// cryptography: it finds changes, it does not resist forgery.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "engine/database/database.h"

namespace embedded {

constexpr const char* signatureItem = "$Signature";

/** Puts the signature of `signer` (LMBCS) in the place of an earlier one, or beside it. */
void SignItems(Items& items, WORD noteClass, std::string_view signer, bool beside = false);

struct SignatureState {
    bool present = false;
    bool valid = false; // the note is as it was when it was signed
    std::string signer; // LMBCS
};

SignatureState CheckSignature(const Items& items, WORD noteClass);

/** The signatures of several notes. */
struct SignatureSummary {
    DWORD notes = 0;
    DWORD present = 0;
    DWORD invalid = 0;             // of those that are present
    std::set<std::string> signers; // UTF-8
};

/** The signatures of the database's notes of a class mask. */
SignatureSummary SummarizeSignatures(Database& database, WORD classMask);

} // namespace embedded
