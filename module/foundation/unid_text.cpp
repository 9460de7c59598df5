#include "foundation/unid_text.h"

#include <algorithm>
#include <cstdio>

#include "common/bounded_text.h"

namespace updkrx {

void FormatUnidText(const UNID& unid, char (&text)[unidTextSize]) noexcept {
    bq_snprintf(text, sizeof text, "%08X%08X%08X%08X", unid.File.Innards[1], unid.File.Innards[0], unid.Note.Innards[1],
                unid.Note.Innards[0]);
}

void GetUnidText(NOTEHANDLE note, char (&text)[unidTextSize]) noexcept {
    OID oid = {};
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    FormatUnidText({oid.File, oid.Note}, text);
}

void ParseUnidText(std::string_view text, UNID& unid) noexcept {
    DWORD* const words[] = {&unid.File.Innards[1], &unid.File.Innards[0], &unid.Note.Innards[1], &unid.Note.Innards[0]};
    constexpr size_t groupLength = 8;
    for (DWORD* word : words) {
        char group[groupLength + 1] = {};
        text.copy(group, groupLength);
        text.remove_prefix(std::min(text.size(), groupLength));
        (void)std::sscanf(group, "%8x", word); // a group without a number keeps its word
    }
}

} // namespace updkrx
