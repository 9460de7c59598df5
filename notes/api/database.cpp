#include "api/call.h"
#include "engine/values/acl.h"
#include "engine/values/charset.h"

using namespace embedded;

namespace {

std::filesystem::path databasePathOf(const Session& session, const char* path) {
    requirePointer(path);
    return session.databasePath(utf8FromLmbcs(path));
}

std::filesystem::path fullPathOf(const Session& session, const char* path) {
    requirePointer(path);
    return session.fullPathOnly(utf8FromLmbcs(path));
}

} // namespace

STATUS LNPUBLIC NSFDbOpen(const char* path, DBHANDLE* database) {
    return callOpening(Operation::NSFDbOpen, database, [&](Session& session) {
        const auto host = session.databasePath(path ? utf8FromLmbcs(path) : std::string());
        auto entry = std::make_shared<OpenDatabase>();
        if (std::error_code ignored; !std::filesystem::is_directory(host, ignored))
            entry->database = session.openDatabase(host);
        return session.databases.add(std::move(entry));
    });
}

STATUS LNPUBLIC NSFDbClose(DBHANDLE database) {
    return callClosing(Operation::NSFDbClose, [&](Session& session) {
        require(session, session.databases, database);
        session.closeDatabase(session.databases.take(database));
    });
}

STATUS LNPUBLIC NSFDbCreateAndCopy(const char* source, const char* destination, WORD classMask, WORD limit, DWORD flags,
                                   DBHANDLE* database) {
    return callOpening(Operation::NSFDbCreateAndCopy, database, [&](Session& session) {
        (void)limit; // a database file here grows without a limit
        if ((flags & ~DWORD{DBCOPY_REPLICA}) != 0)
            throw StatusError(EMB_ERR_ARGUMENT);
        if (session.readOnly())
            throw StatusError(EMB_ERR_READ_ONLY);
        if ((classMask & NOTE_CLASS_PRIVATE) && session.behaviours.has(Deviation::privateDesignRefused))
            throw StatusError(ERR_NOACCESS);
        const auto target = databasePathOf(session, destination);
        if (session.isOffline(target))
            throw StatusError(ERR_DBOFFLINE);
        const auto from = session.openDatabase(databasePathOf(session, source));
        std::optional<TIMEDATE> newReplicaId;
        if (!(flags & DBCOPY_REPLICA))
            newReplicaId = session.clock.uniqueMoment();
        copyDatabase(*from, target, classMask, newReplicaId);
        auto entry = std::make_shared<OpenDatabase>();
        entry->database = session.openDatabase(target);
        return session.databases.add(std::move(entry));
    });
}

STATUS LNPUBLIC NSFDbReadACL(DBHANDLE database, DHANDLE* acl) {
    return callOpening(Operation::NSFDbReadACL, acl, [&](Session& session) {
        const std::string stored = requireDatabase(session, database)->store().getProperty(property::acl);
        return session.allocate(stored.empty() ? encodeAcl(defaultAcl()) : stored);
    });
}

STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE database, DHANDLE acl, DWORD objectId, WORD method) {
    return call(Operation::NSFDbStoreACL, [&](Session& session) {
        const auto target = requireDatabase(session, database);
        MemoryBlock& block = require(session, session.memory, acl);
        if (objectId != 0 || method != 0)
            throw StatusError(EMB_ERR_ARGUMENT);
        const std::string_view list(block.bytes.get(), block.size);
        (void)decodeAcl(list); // a block that is no access control list must not get into the database
        target->store().setProperty(property::acl, list);
    });
}

STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE database, DBREPLICAINFO* info) {
    return call(Operation::NSFDbReplicaInfoGet, [&](Session& session) {
        requirePointer(info);
        *info = requireDatabase(session, database)->replicaInfo();
    });
}

STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE database, DBREPLICAINFO* info) {
    return call(Operation::NSFDbReplicaInfoSet, [&](Session& session) {
        requirePointer(info);
        requireDatabase(session, database)->setReplicaInfo(*info);
    });
}

STATUS LNPUBLIC NSFTakeDatabaseOffline(const char* path, DWORD wait, DWORD options) {
    return call(Operation::NSFTakeDatabaseOffline, [&](Session& session) {
        if (options != 0 && options != OFFLINE_NODELETE)
            throw StatusError(EMB_ERR_ARGUMENT);
        session.takeOffline(fullPathOf(session, path), wait, options == 0);
    });
}

STATUS LNPUBLIC NSFBringDatabaseOnline(const char* path, DWORD options) {
    return call(Operation::NSFBringDatabaseOnline, [&](Session& session) {
        if (options != 0)
            throw StatusError(EMB_ERR_ARGUMENT);
        session.bringOnline(fullPathOf(session, path));
    });
}
