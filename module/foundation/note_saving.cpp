#include "foundation/note_saving.h"

#include "foundation/debug_log.h"
#include "foundation/second_try.h"
#include "foundation/unid_text.h"

namespace updkrx {

STATUS SaveOrLog(const char* step, NOTEHANDLE note) noexcept {
    const STATUS status = WithSecondTry([&] { return NSFNoteUpdate(note, UPDATE_FORCE); });
    if (status != NOERROR) {
        char unid[unidTextSize];
        GetUnidText(note, unid);
        DebugLog(level::progress, "Error: %s: A note cannot be saved and keeps what it had. UNID is %s, sError is %d",
                 step, unid, status);
    }
    return status;
}

} // namespace updkrx
