#include "api/call.h"
#include "engine/values/acl.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

std::filesystem::path DatabasePathOf(const Session& session, const char* path) {
    RequirePointer(path);
    return session.GetServer().DatabasePath(Utf8FromLmbcs(path));
}

std::filesystem::path FullPathOf(const Session& session, const char* path) {
    RequirePointer(path);
    return session.GetServer().FullPathOnly(Utf8FromLmbcs(path));
}

} // namespace

STATUS LNPUBLIC NSFDbOpen(const char* path, DBHANDLE* database) {
    return CallOpening(Operation::NSFDbOpen, database, [&](Session& session) {
        return session.OpenDatabase(session.GetServer().DatabasePath(path ? Utf8FromLmbcs(path) : std::string()));
    });
}

STATUS LNPUBLIC NSFDbClose(DBHANDLE database) {
    return CallClosing(Operation::NSFDbClose, [&](Session& session) { session.CloseDatabase(database); });
}

STATUS LNPUBLIC NSFDbCreateAndCopy(const char* source, const char* destination, WORD classMask, WORD limit, DWORD flags,
                                   DBHANDLE* database) {
    return CallOpening(Operation::NSFDbCreateAndCopy, database, [&](Session& session) {
        (void)limit; // a database file here grows without a limit
        if ((flags & ~DWORD{DBCOPY_REPLICA}) != 0) {
            throw StatusError(EMB_ERR_ARGUMENT);
        }
        if (session.GetServer().ReadOnly()) {
            throw StatusError(EMB_ERR_READ_ONLY);
        }
        if ((classMask & NOTE_CLASS_PRIVATE) && session.GetServer().Has(Deviation::privateDesignRefused)) {
            throw StatusError(ERR_NOACCESS);
        }
        const auto target = DatabasePathOf(session, destination);
        if (session.GetServer().IsOffline(target)) {
            throw StatusError(ERR_DBOFFLINE);
        }
        const auto from = session.GetServer().Open(DatabasePathOf(session, source));
        std::optional<TIMEDATE> newReplicaId;
        if (!(flags & DBCOPY_REPLICA)) {
            newReplicaId = session.GetServer().GetClock().UniqueMoment();
        }
        CopyDatabase(*from, target, classMask, newReplicaId);
        return session.OpenDatabase(target);
    });
}

STATUS LNPUBLIC NSFDbReadACL(DBHANDLE database, DHANDLE* acl) {
    return CallOpening(Operation::NSFDbReadACL, acl, [&](Session& session) {
        const std::string stored = session.DatabaseOf(database)->GetStore().GetProperty(property::acl);
        return session.Allocate(stored.empty() ? EncodeAcl(DefaultAcl()) : stored);
    });
}

STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE database, DHANDLE acl, DWORD objectId, WORD method) {
    return Call(Operation::NSFDbStoreACL, [&](Session& session) {
        const auto target = session.DatabaseOf(database);
        const std::string_view list = session.BytesOf(acl);
        if (objectId != 0 || method != 0) {
            throw StatusError(EMB_ERR_ARGUMENT);
        }
        (void)DecodeAcl(list); // a block that is no access control list must not get into the database
        target->GetStore().SetProperty(property::acl, list);
    });
}

STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE database, DBREPLICAINFO* info) {
    return Call(Operation::NSFDbReplicaInfoGet, [&](Session& session) {
        RequirePointer(info);
        *info = session.DatabaseOf(database)->ReplicaInfo();
    });
}

STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE database, DBREPLICAINFO* info) {
    return Call(Operation::NSFDbReplicaInfoSet, [&](Session& session) {
        RequirePointer(info);
        session.DatabaseOf(database)->SetReplicaInfo(*info);
    });
}

STATUS LNPUBLIC NSFTakeDatabaseOffline(const char* path, DWORD wait, DWORD options) {
    return Call(Operation::NSFTakeDatabaseOffline, [&](Session& session) {
        if (options != 0 && options != OFFLINE_NODELETE) {
            throw StatusError(EMB_ERR_ARGUMENT);
        }
        session.GetServer().TakeOffline(FullPathOf(session, path), wait, options == 0);
    });
}

STATUS LNPUBLIC NSFBringDatabaseOnline(const char* path, DWORD options) {
    return Call(Operation::NSFBringDatabaseOnline, [&](Session& session) {
        if (options != 0) {
            throw StatusError(EMB_ERR_ARGUMENT);
        }
        session.GetServer().BringOnline(FullPathOf(session, path));
    });
}
