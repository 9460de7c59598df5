// The control surface's DXL in and out.
#include "engine/dxl/dxl.h"

#include "api/call.h"
#include "engine/system/caller_system.h"

using namespace embedded;

namespace {

std::filesystem::path PathOf(const char* path) {
    RequirePointer(path);
    return PathFromCaller(path);
}

struct Listener {
    EMB_DXL_PROGRESS progress = nullptr;
    void* parameter = nullptr;
} listener;

void RequireKnown(DWORD options, DWORD known) {
    if ((options & ~known) != 0) {
        throw StatusError(EMB_ERR_ARGUMENT, "unknown options");
    }
}

} // namespace

void LNPUBLIC EmbDxlProgressSet(EMB_DXL_PROGRESS progress, void* parameter) {
    listener = {progress, parameter};
}

STATUS LNPUBLIC EmbDxlImport(const char* databaseFile, const char* dxlFile, DWORD options, char* message,
                             DWORD messageSize) {
    return StatusWithMessage(message, messageSize, [&] {
        RequireKnown(options, EMB_DXL_REPLACE | EMB_DXL_INTO);
        const DxlImportInto into = options & EMB_DXL_INTO      ? DxlImportInto::existingDatabase
                                   : options & EMB_DXL_REPLACE ? DxlImportInto::replacedDatabase
                                                               : DxlImportInto::newDatabase;
        DxlProgress report;
        if (listener.progress) {
            report = [](uint64_t done, uint64_t total) {
                return listener.progress(listener.parameter, done, total) == NOERROR;
            };
        }
        std::string remarks;
        for (const std::string& remark : ImportDxl(PathOf(databaseFile), PathOf(dxlFile), into, report)) {
            remarks += remark + "\n";
        }
        return remarks;
    });
}

STATUS LNPUBLIC EmbDxlExport(const char* databaseFile, const char* dxlFile, DWORD options, char* message,
                             DWORD messageSize) {
    return StatusWithMessage(message, messageSize, [&] {
        RequireKnown(options, EMB_DXL_STABLE);
        ExportDxl(PathOf(databaseFile), PathOf(dxlFile), {.stable = (options & EMB_DXL_STABLE) != 0});
        return std::string();
    });
}
