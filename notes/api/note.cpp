#include "api/call.h"
#include "engine/database/signature.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

NOTEHANDLE openNote(Session& session, const std::shared_ptr<Database>& database, NOTEID id, WORD flags) {
    auto note = std::make_shared<NoteEntry>();
    database->readNote(id, *note);
    note->database = database;
    if (flags & OPEN_EXPAND)
        expandItems(note->items);
    return session.notes.add(std::move(note));
}

template<typename T>
void copyMember(const T& member, void* value) {
    std::memcpy(value, &member, sizeof(T));
}

/** A NULL pointer sets the member to zero. */
template<typename T>
T memberFrom(const void* value) {
    T member{};
    if (value)
        std::memcpy(&member, value, sizeof(T));
    return member;
}

/** The handle that stands for the note's database; a note outlives its handle, so there may be none. */
DBHANDLE handleOf(const Session& session, const NoteEntry& note) {
    return session.databases.findHandle([&](const OpenDatabase& open) { return open.database == note.database; });
}

} // namespace

STATUS LNPUBLIC NSFNoteOpen(DBHANDLE database, NOTEID noteId, WORD flags, NOTEHANDLE* note) {
    return callOpening(Operation::NSFNoteOpen, note, [&](Session& session) {
        return openNote(session, requireDatabase(session, database), noteId, flags);
    });
}

STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE database, UNID* unid, WORD flags, NOTEHANDLE* note) {
    return callOpening(Operation::NSFNoteOpenByUNID, note, [&](Session& session) {
        requirePointer(unid);
        const auto open = requireDatabase(session, database);
        return openNote(session, open, open->idOfUnid(*unid), flags);
    });
}

STATUS LNPUBLIC NSFNoteCreate(DBHANDLE database, NOTEHANDLE* note) {
    return callOpening(Operation::NSFNoteCreate, note, [&](Session& session) {
        const auto open = requireDatabase(session, database);
        auto entry = std::make_shared<NoteEntry>();
        static_cast<OpenNote&>(*entry) = open->newNote();
        entry->database = open;
        return session.notes.add(std::move(entry));
    });
}

STATUS LNPUBLIC NSFNoteCopy(NOTEHANDLE source, NOTEHANDLE* destination) {
    return callOpening(Operation::NSFNoteCopy, destination, [&](Session& session) {
        auto copy = std::make_shared<NoteEntry>();
        static_cast<OpenNote&>(*copy) = requireNote(session, source);
        return session.notes.add(std::move(copy));
    });
}

STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE note, WORD flags) {
    return call(Operation::NSFNoteUpdate, [&](Session& session) {
        NoteEntry& entry = requireNote(session, note);
        entry.database->updateNote(entry, flags & UPDATE_FORCE);
    });
}

STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE note) {
    return callClosing(Operation::NSFNoteClose, [&](Session& session) {
        require(session, session.notes, note);
        const auto closed = session.notes.take(note);
        for (const DHANDLE block : closed->blocks)
            session.memory.take(block);
    });
}

STATUS LNPUBLIC NSFNoteDelete(DBHANDLE database, NOTEID noteId, WORD flags) {
    return call(Operation::NSFNoteDelete, [&](Session& session) {
        requireDatabase(session, database)->deleteNote(noteId, !(flags & UPDATE_NOSTUB));
    });
}

void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE note, WORD member, void* value) {
    callVoid(Operation::NSFNoteGetInfo, [&](Session& session) {
        requirePointer(value);
        NoteEntry& entry = requireNote(session, note);
        switch (member) {
        case _NOTE_DB:
            return copyMember(handleOf(session, entry), value);
        case _NOTE_ID:
            return copyMember(entry.head.id, value);
        case _NOTE_OID:
            return copyMember(entry.head.oid, value);
        case _NOTE_CLASS:
            return copyMember(entry.head.noteClass, value);
        case _NOTE_MODIFIED:
            return copyMember(entry.head.modified, value);
        default:
            throw StatusError(EMB_ERR_UNSUPPORTED, "NSFNoteGetInfo: unknown member " + std::to_string(member));
        }
    });
}

void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE note, WORD member, void* value) {
    callVoid(Operation::NSFNoteSetInfo, [&](Session& session) {
        NoteEntry& entry = requireNote(session, note);
        switch (member) {
        case _NOTE_DB:
            entry.database = requireDatabase(session, memberFrom<DBHANDLE>(value));
            return;
        case _NOTE_ID:
            entry.head.id = memberFrom<NOTEID>(value);
            return;
        case _NOTE_OID:
            entry.head.oid = memberFrom<OID>(value);
            return;
        case _NOTE_CLASS:
            entry.head.noteClass = memberFrom<WORD>(value);
            return;
        case _NOTE_MODIFIED:
            entry.head.modified = memberFrom<TIMEDATE>(value);
            return;
        default:
            throw StatusError(EMB_ERR_UNSUPPORTED, "NSFNoteSetInfo: unknown member " + std::to_string(member));
        }
    });
}

STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE note) {
    return call(Operation::NSFNoteSign, [&](Session& session) {
        NoteEntry& entry = requireNote(session, note);
        signItems(entry.items, entry.head.noteClass, lmbcsFromUtf8(session.idName()),
                  session.behaviours.has(Deviation::signAgainAppends));
    });
}

STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE note) {
    return call(Operation::NSFNoteContract, [&](Session& session) { contractItems(requireNote(session, note).items); });
}

STATUS LNPUBLIC NSFDbCopyNote(DBHANDLE source, DBID* sourceDatabaseId, DBID* sourceReplicaId, NOTEID noteId,
                              DBHANDLE destination, DBID* destinationDatabaseId, DBID* destinationReplicaId,
                              NOTEID* newNoteId, WORD* newNoteClass) {
    return call(Operation::NSFDbCopyNote, [&](Session& session) {
        // The IDs only spare a server looking them up.
        (void)sourceDatabaseId, (void)sourceReplicaId, (void)destinationDatabaseId, (void)destinationReplicaId;
        const auto from = requireDatabase(session, source);
        const auto to = requireDatabase(session, destination);
        OpenNote note;
        from->readNote(noteId, note);
        const bool replicas = from->replicaInfo().ID == to->replicaInfo().ID;
        const NOTEID id = to->adoptNote(note.head, note.items.encoded(), replicas);
        if (newNoteId)
            *newNoteId = id;
        if (newNoteClass)
            *newNoteClass = note.head.noteClass;
    });
}
