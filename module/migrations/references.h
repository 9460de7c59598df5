// The lists of a document that tell of others.
#pragma once

#include "foundation/text_lists.h"
#include "notes_api.h"

namespace updkrx {

/** The documents that refer to a document, and those that it uses. */
struct References {
    TextSet referDocs;
    TextSet useDocs;

    /** False when not all could be read, which is logged. */
    [[nodiscard]] bool Read(NOTEHANDLE note);
    [[nodiscard]] bool Includes(const References& others) const noexcept;
    /** Appends to the lists of another open note what `present` of it lacks. What is appended and what fails is logged;
     *  false at the first failure. */
    [[nodiscard]] bool AddTo(NOTEHANDLE note, const References& present) const noexcept;
};

} // namespace updkrx
