#include <fstream>
#include <iostream>

#include "commands.h"
#include "embedded_notes.h"
#include "path_checks.h"
#include "temporary_folder.h"

namespace krxpatch {
namespace {

void ExportToFile(const ExportOptions& options, const std::filesystem::path& dxl) {
    char message[1024];
    const DWORD flags = options.stable ? EMB_DXL_STABLE : 0;
    if (EmbDxlExport(options.database.string().c_str(), dxl.string().c_str(), flags, message, sizeof message) !=
        NOERROR) {
        throw Failure(failed, message);
    }
}

} // namespace

ExitCode Export(const ExportOptions& options) {
    RequirePlaceForFile(options.database);
    if (!options.dxl.empty() && options.dxl != "-") {
        RequirePlaceForFile(options.dxl);
        if (!options.force && std::filesystem::exists(std::filesystem::symlink_status(options.dxl))) {
            throw Failure(failed, options.dxl.string() + ": exists already (--force replaces it)");
        }
        ExportToFile(options, options.dxl);
        return succeeded;
    }
    // By way of a file, so that a database that turns out to be damaged prints nothing instead of a part.
    const TemporaryFolder folder(std::filesystem::temp_directory_path() / "krxpatch");
    const std::filesystem::path dxl = folder.Path() / "export.dxl";
    ExportToFile(options, dxl);
    std::cout << std::ifstream(dxl, std::ios::binary).rdbuf();
    return succeeded;
}

} // namespace krxpatch
