// Databases as DXL text.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "engine/values/item_codec.h"
#include "engine/values/status_error.h"

namespace embedded {

/** Hears now and then how many bytes of how many are done; false ends the work. */
using DxlProgress = std::function<bool(uint64_t done, uint64_t total)>;

enum class DxlImportInto {
    newDatabase,      // which must not be there yet
    replacedDatabase, // what is there is replaced, if anything is
    existingDatabase, // the one note of the file becomes one more note, in the place of the one that has its UNID
};

/** What a person may want to know of an import; UTF-8, one line each. */
using DxlRemarks = std::vector<std::string>;

/** Makes the database file from DXL. Throws StatusError: EMB_ERR_DXL with "FILE:LINE: cause" for a file that is not DXL
 *  or is beyond the limits, ERR_EXISTS, EMB_ERR_BUSY for an existing database that somebody has open,
 *  EMB_ERR_CANCELLED, or another status with the file and the cause; the database file is then as it was, and nothing
 *  is left beside it. */
DxlRemarks ImportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile,
                     DxlImportInto into, const DxlProgress& progress = {});

struct DxlExportOptions {
    /**
     * Leaves out note IDs, sequence numbers, times (the replica cutoff and $Revisions among them; the times in a
     * note's own items stay), facts of the file (its path and <databaseinfo>) and signature values; documents as
     * <note>, notes in order of class and UNID. A UNID that the database generated shows its first half, which holds
     * the serial number, and sixteen zeros for the moment in the second.
     */
    bool stable = false;
};

/** Writes the database as DXL into the file, whole or not at all. Leaves the database as it is. */
void ExportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile,
               const DxlExportOptions& options);

/** An item as DXL shows it, in UTF-8. */
struct ShownItem {
    std::string name;
    std::string type;                // the element: "text", "numberlist", ...; "rawitemdata" and the type's number
    std::string flags;               // by name, with blanks between them
    std::vector<std::string> values; // several only of a list; line breaks are "\n", raw bytes Base64 in one line
};

ShownItem ShowItem(const ItemView& item);
/** The word that DXL has for a class of notes; hexadecimal digits when it has none. */
std::string ShowClass(WORD noteClass);

} // namespace embedded
