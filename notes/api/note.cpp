#include "api/call.h"
#include "engine/database/signature.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

NOTEHANDLE OpenNoteById(Session& session, const std::shared_ptr<Database>& database, NOTEID id, WORD flags) {
    OpenNote note;
    database->ReadNote(id, note);
    note.database = database;
    if (flags & OPEN_EXPAND) {
        ExpandItems(note.items);
    }
    return session.AddNote(std::move(note));
}

template<typename T>
void CopyMember(const T& member, void* value) {
    std::memcpy(value, &member, sizeof(T));
}

/** A NULL pointer sets the member to zero. */
template<typename T>
T MemberFrom(const void* value) {
    T member{};
    if (value) {
        std::memcpy(&member, value, sizeof(T));
    }
    return member;
}

} // namespace

STATUS LNPUBLIC NSFNoteOpen(DBHANDLE database, NOTEID noteId, WORD flags, NOTEHANDLE* note) {
    return CallOpening(Operation::NSFNoteOpen, note, [&](Session& session) {
        return OpenNoteById(session, session.DatabaseOf(database), noteId, flags);
    });
}

STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE database, UNID* unid, WORD flags, NOTEHANDLE* note) {
    return CallOpening(Operation::NSFNoteOpenByUNID, note, [&](Session& session) {
        RequirePointer(unid);
        const auto open = session.DatabaseOf(database);
        return OpenNoteById(session, open, open->IdOfUnid(*unid), flags);
    });
}

STATUS LNPUBLIC NSFNoteCreate(DBHANDLE database, NOTEHANDLE* note) {
    return CallOpening(Operation::NSFNoteCreate, note, [&](Session& session) {
        const auto open = session.DatabaseOf(database);
        OpenNote created = open->NewNote();
        created.database = open;
        return session.AddNote(std::move(created));
    });
}

STATUS LNPUBLIC NSFNoteCopy(NOTEHANDLE source, NOTEHANDLE* destination) {
    return CallOpening(Operation::NSFNoteCopy, destination,
                       [&](Session& session) { return session.AddNote(session.NoteOf(source)); });
}

STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE note, WORD flags) {
    return Call(Operation::NSFNoteUpdate, [&](Session& session) {
        OpenNote& entry = session.NoteOf(note);
        entry.database->UpdateNote(entry, flags & UPDATE_FORCE);
    });
}

STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE note) {
    return CallClosing(Operation::NSFNoteClose, [&](Session& session) { session.CloseNote(note); });
}

STATUS LNPUBLIC NSFNoteDelete(DBHANDLE database, NOTEID noteId, WORD flags) {
    return Call(Operation::NSFNoteDelete,
                [&](Session& session) { session.DatabaseOf(database)->DeleteNote(noteId, !(flags & UPDATE_NOSTUB)); });
}

void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE note, WORD member, void* value) {
    CallVoid(Operation::NSFNoteGetInfo, [&](Session& session) {
        RequirePointer(value);
        OpenNote& entry = session.NoteOf(note);
        switch (member) {
        case _NOTE_DB:
            return CopyMember(session.HandleOf(entry.database), value);
        case _NOTE_ID:
            return CopyMember(entry.head.id, value);
        case _NOTE_OID:
            return CopyMember(entry.head.oid, value);
        case _NOTE_CLASS:
            return CopyMember(entry.head.noteClass, value);
        case _NOTE_MODIFIED:
            return CopyMember(entry.head.modified, value);
        default:
            throw StatusError(EMB_ERR_UNSUPPORTED, "NSFNoteGetInfo: unknown member " + std::to_string(member));
        }
    });
}

void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE note, WORD member, void* value) {
    CallVoid(Operation::NSFNoteSetInfo, [&](Session& session) {
        OpenNote& entry = session.NoteOf(note);
        switch (member) {
        case _NOTE_DB:
            entry.database = session.DatabaseOf(MemberFrom<DBHANDLE>(value));
            return;
        case _NOTE_ID:
            entry.head.id = MemberFrom<NOTEID>(value);
            return;
        case _NOTE_OID:
            entry.head.oid = MemberFrom<OID>(value);
            return;
        case _NOTE_CLASS:
            entry.head.noteClass = MemberFrom<WORD>(value);
            return;
        case _NOTE_MODIFIED:
            entry.head.modified = MemberFrom<TIMEDATE>(value);
            return;
        default:
            throw StatusError(EMB_ERR_UNSUPPORTED, "NSFNoteSetInfo: unknown member " + std::to_string(member));
        }
    });
}

STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE note) {
    return Call(Operation::NSFNoteSign, [&](Session& session) {
        OpenNote& entry = session.NoteOf(note);
        SignItems(entry.items, entry.head.noteClass, LmbcsFromUtf8(session.GetServer().IdName()),
                  session.GetServer().Has(Deviation::signAgainAppends));
    });
}

STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE note) {
    return Call(Operation::NSFNoteContract, [&](Session& session) { ContractItems(session.NoteOf(note).items); });
}

STATUS LNPUBLIC NSFDbCopyNote(DBHANDLE source, DBID* sourceDatabaseId, DBID* sourceReplicaId, NOTEID noteId,
                              DBHANDLE destination, DBID* destinationDatabaseId, DBID* destinationReplicaId,
                              NOTEID* newNoteId, WORD* newNoteClass) {
    return Call(Operation::NSFDbCopyNote, [&](Session& session) {
        // The IDs only spare a server looking them up.
        (void)sourceDatabaseId, (void)sourceReplicaId, (void)destinationDatabaseId, (void)destinationReplicaId;
        const auto from = session.DatabaseOf(source);
        const auto to = session.DatabaseOf(destination);
        OpenNote note;
        from->ReadNote(noteId, note);
        const bool replicas = from->ReplicaInfo().ID == to->ReplicaInfo().ID;
        const NOTEID id = to->AdoptNote(note, replicas);
        if (newNoteId) {
            *newNoteId = id;
        }
        if (newNoteClass) {
            *newNoteClass = note.head.noteClass;
        }
    });
}
