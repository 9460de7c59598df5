#include "foundation/product_folder.h"

#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/notes_text.h"

namespace updkrx {
namespace {

constexpr WORD folderSize = 256;

} // namespace

std::optional<std::string> GetProductFolder(Report report) {
    const bool logged = report == Report::logged;
    char setting[folderSize];
    char dataDirectory[folderSize];
    if (!GetEnvironmentText("Directory", setting, sizeof setting) ||
        ToNative(setting, dataDirectory, sizeof dataDirectory) == 0) {
        if (logged) {
            DebugLog(level::progress, "Error: The server's data directory is not known, so no database is replaced.");
        }
        return std::nullopt;
    }
    char folder[folderSize];
    if (bq_snprintf(folder, sizeof folder, "%s/krx", dataDirectory) < 0) {
        if (logged) {
            DebugLog(level::progress,
                     "Error: The path of the database folder is too long, so no database is replaced. (%s)",
                     dataDirectory);
        }
        return std::nullopt;
    }
    return folder;
}

bool GetProductPath(const char* fileName, char (&path)[MAXPATH]) noexcept {
    return bq_snprintf(path, sizeof path, "krx/%s", fileName) >= 0;
}

} // namespace updkrx
