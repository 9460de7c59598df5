// The control surface's DXL in and out.
#include "engine/dxl/dxl.h"

#include <cstdio>

#include "api/call.h"
#include "engine/system/caller_system.h"

using namespace embedded;

namespace {

template<typename Body>
STATUS WithMessage(char* message, DWORD messageSize, Body&& body) {
    std::string text;
    STATUS status = NOERROR;
    try {
        body();
    } catch (const StatusError& error) {
        status = error.Status();
        text = error.what();
    } catch (const std::bad_alloc&) {
        status = ERR_MEMORY;
        text = "insufficient memory";
    } catch (const std::exception& error) {
        status = EMB_ERR_DISK;
        text = error.what();
    }
    if (message && messageSize != 0) {
        std::snprintf(message, messageSize, "%s", text.c_str());
    }
    return status;
}

std::filesystem::path PathOf(const char* path) {
    RequirePointer(path);
    return PathFromCaller(path);
}

void RequireKnown(DWORD options, DWORD known) {
    if ((options & ~known) != 0) {
        throw StatusError(EMB_ERR_ARGUMENT, "unknown options");
    }
}

} // namespace

STATUS LNPUBLIC EmbDxlImport(const char* databaseFile, const char* dxlFile, DWORD options, char* message,
                             DWORD messageSize) {
    return WithMessage(message, messageSize, [&] {
        RequireKnown(options, EMB_DXL_REPLACE);
        ImportDxl(PathOf(databaseFile), PathOf(dxlFile), (options & EMB_DXL_REPLACE) != 0);
    });
}

STATUS LNPUBLIC EmbDxlExport(const char* databaseFile, const char* dxlFile, DWORD options, char* message,
                             DWORD messageSize) {
    return WithMessage(message, messageSize, [&] {
        RequireKnown(options, EMB_DXL_STABLE);
        ExportDxl(PathOf(databaseFile), PathOf(dxlFile), {.stable = (options & EMB_DXL_STABLE) != 0});
    });
}
