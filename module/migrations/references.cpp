#include "migrations/references.h"

#include <algorithm>
#include <string>

#include "foundation/debug_log.h"
#include "migrations/log_messages.h"

namespace updkrx {
namespace {

bool AddMissing(NOTEHANDLE note, const char* item, const TextSet& wanted, const TextSet& present) noexcept {
    for (const std::string& entry : wanted) {
        if (present.contains(entry)) {
            continue;
        }
        DebugLog(level::progress, "buf: %s cannot be found in ori ntf doc %s.", entry.c_str(), item);
        if (!Succeeded("NSFItemAppendTextList", AppendEntry(note, item, entry))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool References::Read(NOTEHANDLE note) {
    return ReadTextListfield(note, "ReferDocs", referDocs) && ReadTextListfield(note, "UseDocs", useDocs);
}

bool References::Includes(const References& others) const noexcept {
    return std::ranges::includes(referDocs, others.referDocs) && std::ranges::includes(useDocs, others.useDocs);
}

bool References::AddTo(NOTEHANDLE note, const References& present) const noexcept {
    return AddMissing(note, "ReferDocs", referDocs, present.referDocs) &&
           AddMissing(note, "UseDocs", useDocs, present.useDocs);
}

} // namespace updkrx
