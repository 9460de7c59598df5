#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "dxl_file.h"
#include "embedded_notes.h"
#include "history.h"
#include "hold.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"
#include "text_table.h"

namespace krxpatch {
namespace {

/** The next run is going to put back the product's folder, with the database that is about to be made in it. */
void RequireNoDeadRun(std::filesystem::path folder, const std::string& database) {
    for (; folder.has_relative_path(); folder = folder.parent_path()) {
        if (const auto copy = UnendedCopyOf(folder)) {
            throw Failure(notStarted, database + ": would be lost, because " + DescribeDeath(copy->Dead()) +
                                          ", and the next run puts back " + folder.string() + ": do that first, with " +
                                          CommandOn(*ServerFolderAround(folder), "restore"));
        }
    }
}

} // namespace

ExitCode Import(const ImportOptions& options, Report& report) {
    (options.into ? RequireFile(options.database) : RequirePlaceForFile(options.database));
    RequireFile(options.dxl);
    const std::filesystem::path folder =
        std::filesystem::canonical(std::filesystem::absolute(options.database).parent_path());
    std::optional<platform::HeldFile> hold;
    std::optional<Chronicle> chronicle; // of what changes the product's folder
    if (const auto dataDirectory = DataDirectoryAround(folder)) {
        if (const auto server = ServerFolderAround(folder); server && IsBelow(folder, *dataDirectory / "krx")) {
            chronicle.emplace(*server, options.into ? "import --into" : "import");
        }
        hold.emplace(Hold(*dataDirectory, DescribeThis("import")));
        RequireNoDeadRun(folder, options.database.string());
    }
    const DWORD flags = options.into ? EMB_DXL_INTO : options.force ? EMB_DXL_REPLACE : 0;
    const std::string remarks = ImportDxlFile(options.database, options.dxl, flags);
    if (chronicle) { // one that fails has changed nothing
        chronicle->End(NameOf(succeeded), options.database.filename().string());
    }
    report["remarks"] = Report::array();
    std::istringstream lines(remarks);
    for (std::string line; std::getline(lines, line);) {
        report["remarks"].push_back(line);
    }
    std::cout << remarks;
    return succeeded;
}

} // namespace krxpatch
