#include "commands.h"
#include "embedded_notes.h"
#include "hold.h"
#include "path_checks.h"
#include "recovery_copy.h"

namespace krxpatch {
namespace {

/** The next run is going to put back the product's folder, with the database that is about to be made in it. */
void RequireNoDeadRun(std::filesystem::path folder, const std::string& database) {
    for (; folder.has_relative_path(); folder = folder.parent_path()) {
        if (const auto run = RunWithCopyOf(folder)) {
            throw Failure(failed, database + ": would be lost, because an earlier run died (" + *run +
                                      ") and the next one puts back " + folder.string() + ": run that first");
        }
    }
}

void MakeDatabase(const ImportOptions& options) {
    char message[1024];
    const DWORD flags = options.force ? EMB_DXL_REPLACE : 0;
    const STATUS status =
        EmbDxlImport(options.database.string().c_str(), options.dxl.string().c_str(), flags, message, sizeof message);
    if (status == ERR_EXISTS) {
        throw Failure(failed, options.database.string() + ": exists already (--force replaces it)");
    }
    if (status != NOERROR) {
        throw Failure(failed, message);
    }
}

} // namespace

ExitCode Import(const ImportOptions& options) {
    RequirePlaceForFile(options.database);
    RequirePlaceForFile(options.dxl);
    const std::filesystem::path folder =
        std::filesystem::canonical(std::filesystem::absolute(options.database).parent_path());
    std::optional<platform::HeldFile> hold;
    if (const auto server = ServerOf(folder)) {
        hold.emplace(HoldServer(*server, DescribeThis("import")));
        RequireNoDeadRun(folder, options.database.string());
    }
    MakeDatabase(options);
    return succeeded;
}

} // namespace krxpatch
