// The module's one export.
#include "foundation/exception_barrier.h"
#include "notes_api.h"
#include "os/export.h"
#include "patch/patch_run.h"

/** Runs the upgrade, once, in a process whose Notes session is begun. Always 0: the outcome is in the debug log and in
 *  the databases. */
extern "C" UPDKRX_EXPORT STATUS MainEntryPoint() {
    return updkrx::WithoutExceptions("MainEntryPoint", NOERROR, [] {
        updkrx::RunPatch();
        return NOERROR;
    });
}
