#include "commands.h"
#include "embedded_notes.h"

namespace krxpatch {

ExitCode Import(const ImportOptions& options) {
    char message[1024];
    const DWORD flags = options.force ? EMB_DXL_REPLACE : 0;
    const STATUS status = EmbDxlImport(options.database.c_str(), options.dxl.c_str(), flags, message, sizeof message);
    if (status == EMB_ERR_EXISTS) {
        throw Failure(failed, options.database.string() + ": exists already (--force replaces it)");
    }
    if (status != NOERROR) {
        throw Failure(failed, message);
    }
    return succeeded;
}

} // namespace krxpatch
