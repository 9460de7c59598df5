// Signatures: who signed a note, and a digest that tells whether the note has changed since. A digest, no
// cryptography: it finds changes, it does not resist forgery.
#pragma once

#include <string>
#include <string_view>

#include "engine/values/items.h"

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

} // namespace embedded
