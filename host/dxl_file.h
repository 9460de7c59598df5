// Making databases from DXL files.
#pragma once

#include <filesystem>
#include <string>

#include "embedded_notes.h"

namespace krxpatch {

/** Imports a file with options of EmbDxlImport, and shows on a terminal how far that is. Returns what a person should
 *  know of it, one line each. Throws Failure with the file and the cause: as interrupted when somebody asks this
 *  process to end, else as failed. Nothing is left of a database that could not be made. */
[[nodiscard]] std::string ImportDxlFile(const std::filesystem::path& database, const std::filesystem::path& dxl,
                                        DWORD options);

} // namespace krxpatch
