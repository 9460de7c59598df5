// The record of one run, which its steps fill and read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace updkrx {

struct PatchRunContext {
    std::vector<std::string> fileList;     // kept for the record, no step consults it
    int32_t patchBuild = 0;                // that the patch delivers
    std::vector<std::string> databaseList; // file names below the product's folder to replace, in this order
    int32_t runningBuild = 0;              // of the installed program
    int32_t databaseBuild = 0;             // that the databases carry; 0 when it cannot be read
    int32_t updateExtension = 0;           // 0 or 1; no step consults it
    int32_t skipDbSign = 0;                // 0 or 1; a replaced database is not signed
    std::string programFolder;             // native path of the newest program build; empty until it is looked up
};

} // namespace updkrx
