// Databases as DXL text.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "engine/values/item_codec.h"
#include "engine/values/status_error.h"

namespace embedded {

/** Makes the database file from DXL in UTF-8. Throws StatusError: EMB_ERR_DXL with "FILE:LINE: cause" for DXL that
 *  it does not take, ERR_EXISTS, EMB_ERR_BUSY for an existing database that somebody has open, or another status
 *  with the file and the cause; the database file is then as it was, and nothing is left beside it. */
void ImportDxl(const std::filesystem::path& databaseFile, const std::filesystem::path& dxlFile, bool replaceExisting);

struct DxlExportOptions {
    /**
     * Leaves out note IDs, sequence numbers, times (the replica cutoff and $Revisions among them; the times in a
     * note's own items stay) and signature values; notes in order of class and UNID. A UNID that the database
     * generated shows its first half, which holds the serial number, and sixteen zeros for the moment in the second.
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
