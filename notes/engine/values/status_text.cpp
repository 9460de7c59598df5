#include "engine/values/status_text.h"

#include "embedded_notes.h"

namespace embedded {
namespace {

struct KnownStatus {
    STATUS code;
    std::string_view text;
};

constexpr KnownStatus texts[] = {
    {ERR_UNKNOWN, "Unknown error"},
    {ERR_NOEXIST, "File does not exist"},
    {ERR_EXISTS, "File already exists"},
    {ERR_MEMORY, "Insufficient memory."},
    {ERR_SEGMENT_TOO_BIG, "Object or segment is too large"},
    {ERR_NOT_NSF, "File is not a database"},
    {ERR_ITEM_NOT_FOUND, "Document item not found"},
    {ERR_NOTE_DELETED, "Document has been deleted"},
    {ERR_INVALID_NOTE, "Invalid or nonexistent document"},
    {ERR_SUMMARY_TOO_BIG, "Document summary is too large"},
    {ERR_CONFLICT, "The document has been saved by another user"},
    {ERR_UPDATE_CLASS, "The class of a stored document cannot be changed"},
    {ERR_DUPLICATE_UNID, "Another document has this universal ID"},
    {ERR_CANT_CHANGE_UNID, "The universal ID of a stored document cannot be changed"},
    {ERR_NOACCESS, "You are not authorized to perform that operation"},
    {ERR_NOT_FOUND, "Entry not found in index"},
    {ERR_FORMULA_COMPILATION, "Formula does not compile"},
    {ERR_DBINUSE, "The database is in use"},
    {ERR_DBOFFLINE, "The database is offline"},
    {EMB_ERR_NO_SESSION, "No Notes session has begun"},
    {EMB_ERR_HANDLE, "Invalid handle"},
    {EMB_ERR_ARGUMENT, "Missing or invalid argument"},
    {EMB_ERR_ITEM_TYPE, "The item's type does not allow this operation"},
    {EMB_ERR_TOO_LONG, "Name or value is too long"},
    {EMB_ERR_DAMAGED, "The database is damaged"},
    {EMB_ERR_DISK, "Disk error, or the disk is full"},
    {EMB_ERR_BUSY, "The database is being written by another process"},
    {EMB_ERR_READ_ONLY, "The session may only read"},
    {EMB_ERR_NO_SERVER, "Unable to find path to server"},
    {EMB_ERR_LOCKED, "Memory block is locked"},
    {EMB_ERR_DXL, "DXL cannot be imported"},
    {EMB_ERR_UNSUPPORTED, "Not supported by the embedded platform"},
    {EMB_ERR_RECOVERY, "The database was left in the middle of a write and needs recovery"},
    {EMB_ERR_NEWER, "The database was made by a newer version"},
    {EMB_ERR_CANCELLED, "The operation was ended"},
};

} // namespace

std::string_view StatusText(STATUS code) noexcept {
    for (const KnownStatus& entry : texts) {
        if (entry.code == code) {
            return entry.text;
        }
    }
    return {};
}

} // namespace embedded
