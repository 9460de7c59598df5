#include "foundation/notes_path.h"

#include <algorithm>

#include "common/bounded_text.h"

namespace updkrx {

bool GetFullPath(const char* path, char (&fullPath)[MAXPATH]) noexcept {
    char directory[MAXPATH] = {};
    const WORD length = std::min<WORD>(OSGetDataDirectory(directory), MAXPATH - 1);
    directory[length] = '\0';
    return length > 0 && bq_snprintf(fullPath, sizeof fullPath, "%s/%s", directory, path) >= 0;
}

} // namespace updkrx
