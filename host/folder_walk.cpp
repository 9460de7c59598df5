#include "folder_walk.h"

#include <algorithm>
#include <vector>

#include "failure.h"
#include "platform.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** The folders from the top down to one that is being gone through, by their own names. */
using Chain = std::vector<fs::path>;

void Walk(const fs::path& folder, const fs::path& place, const Visit& visit, Chain& above) {
    const fs::path own = fs::canonical(folder);
    if (std::ranges::find(above, own) != above.end()) {
        throw Failure(failed, folder.string() + ": is a link to a folder that it lies in");
    }
    above.push_back(own);
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (platform::IsInterrupted()) {
            throw Failure(interrupted, "interrupted; nothing is left of what was made");
        }
        if (!entry.is_directory() && !entry.is_regular_file()) {
            throw Failure(failed, entry.path().string() + ": is neither a file nor a folder, or a link to nothing");
        }
        const fs::path next = place / entry.path().filename();
        if (visit(entry, next) && entry.is_directory()) {
            Walk(entry.path(), next, visit, above);
        }
    }
    above.pop_back();
}

} // namespace

void WalkFolder(const fs::path& folder, const Visit& visit) {
    Chain above;
    Walk(folder, {}, visit, above);
}

} // namespace krxpatch
