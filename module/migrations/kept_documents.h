// The database that keeps the documents which the template's versions are to replace, while they are out.
//
// The process may end at any moment, and a server may refuse every write from any moment on. So a document is deleted
// only when it stands in another database as well: a replica, because documents keep their UNIDs on the way between
// replicas. It is made when the first document is taken out and goes when the documents, or what replaces them, are on
// the disk. A run that finds one puts back first what is missing.
#pragma once

#include "notes_api.h"

namespace updkrx {

/** A document of the template that is to take another's place. */
struct TemplateNote {
    DBHANDLE database;
    NOTEID noteId;
    UNID unid;
};

/**
 * Copies a document of the configuration database to where it is kept, and sees that the disk has it. Notes beside it
 * the UNIDs that a copy of `replacement` may get, so that the copy can be removed when the document is put back. On
 * servers that give copies UNIDs of their own, the copy is made where the document is kept: `prepared` becomes its note
 * ID, else 0.
 */
[[nodiscard]] STATUS KeepOnDisk(DBHANDLE database, NOTEID noteId, const UNID& unid, const TemplateNote& replacement,
                                NOTEID& prepared);

/** Copies a prepared copy into the database, where it has the UNID that it was prepared with. */
[[nodiscard]] STATUS CopyPrepared(NOTEID prepared, DBHANDLE database, NOTEID& newId) noexcept;

/** Notes that the copy of the template's document has this UNID. False when that fails: a later run could not tell the
 *  copy from a document of the customer's. */
[[nodiscard]] bool NoteCopyOfKept(const UNID& unid, const UNID& copy) noexcept;

/** Copies a kept document back into the database if that lacks it, and completes it as far as it can be saved. */
[[nodiscard]] STATUS PutBackKeptDocument(DBHANDLE database, const UNID& unid);

/** Whether the database that keeps them is there. */
[[nodiscard]] bool HasKeptDocuments();
/** Whether no document is in it: those that were are in their places. */
[[nodiscard]] bool KeepsNone();

/** Puts back the documents that are missing, and adds their references to what stands in their place. False when not
 *  all of them stand then: what fails is logged, and nothing may be taken out that could be mistaken for one of
 *  them. */
[[nodiscard]] bool PutBackKeptDocuments(DBHANDLE database);

/** Whether the database has each document that is kept, or what replaces it, complete and with no copy beside it; else
 *  it is logged. */
[[nodiscard]] bool AllKeptDocumentsStand(DBHANDLE database);

/** Removes the database that keeps them; logged when it stays, for the next run to remove. */
void RemoveKeptDocuments();

} // namespace updkrx
