// The control surface's reader of database files.
#include "engine/database/note_reader.h"

#include <cstdio>
#include <optional>
#include <vector>

#include "api/call.h"
#include "engine/system/caller_system.h"
#include "engine/values/unid.h"

using namespace embedded;

struct EMBREADER {
    explicit EMBREADER(const std::filesystem::path& file) : notes(file) {}

    NoteReader notes;
    std::string className;
    std::optional<std::vector<ShownItem>> items; // of the note that was given last, once they are asked for
    std::string values;
};

namespace {

template<typename Body>
STATUS Guarded(Body&& body) {
    const std::scoped_lock lock(PlatformLock());
    return StatusOf(nullptr, [&]() -> STATUS {
        body();
        return NOERROR;
    });
}

} // namespace

STATUS LNPUBLIC EmbReaderOpen(const char* databaseFile, EMBREADER** reader, char* message, DWORD messageSize) {
    const std::scoped_lock lock(PlatformLock());
    return StatusWithMessage(message, messageSize, [&] {
        RequirePointer(databaseFile);
        RequirePointer(reader);
        *reader = nullptr;
        *reader = new EMBREADER(PathFromCaller(databaseFile));
        return std::string();
    });
}

void LNPUBLIC EmbReaderClose(EMBREADER* reader) {
    (void)Guarded([&] { delete reader; });
}

BOOL LNPUBLIC EmbReaderFact(EMBREADER* reader, DWORD index, EMBFACT* fact) {
    BOOL found = 0;
    (void)Guarded([&] {
        RequirePointer(reader);
        RequirePointer(fact);
        if (index < reader->notes.Facts().size()) {
            const DatabaseFact& known = reader->notes.Facts()[index];
            *fact = {known.name.c_str(), known.value.c_str(), known.accessControl};
            found = 1;
        }
    });
    return found;
}

STATUS LNPUBLIC EmbReaderNext(EMBREADER* reader, EMBNOTE* note, BOOL* found) {
    return Guarded([&] {
        RequirePointer(reader);
        RequirePointer(note);
        RequirePointer(found);
        *note = {};
        reader->items.reset();
        *found = reader->notes.Next();
        if (*found) {
            const NoteHead& head = reader->notes.Head();
            reader->className = ShowClass(head.noteClass);
            note->unid = UnidOf(head.oid);
            std::snprintf(note->unidText, sizeof note->unidText, "%s", UnidText(note->unid).c_str());
            note->noteClass = head.noteClass;
            note->className = reader->className.c_str();
            note->items = reader->notes.Encoded().data();
            note->itemsSize = static_cast<DWORD>(reader->notes.Encoded().size());
        }
    });
}

STATUS LNPUBLIC EmbReaderItem(EMBREADER* reader, DWORD index, EMBITEM* item, BOOL* found) {
    return Guarded([&] {
        RequirePointer(reader);
        RequirePointer(item);
        RequirePointer(found);
        if (!reader->items) {
            reader->items = reader->notes.Items();
        }
        *found = index < reader->items->size();
        if (*found) {
            const ShownItem& shown = (*reader->items)[index];
            reader->values.clear();
            for (const std::string& value : shown.values) {
                reader->values += value + '\0';
            }
            *item = {shown.name.c_str(), shown.type.c_str(), shown.flags.c_str(), reader->values.c_str(),
                     static_cast<DWORD>(shown.values.size())};
        }
    });
}
