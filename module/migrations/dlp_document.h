// One document of the template on its way into the configuration database.
#pragma once

#include <optional>
#include <string>

#include "foundation/notes_api.h"
#include "migrations/dlp_upgrade.h"

namespace updkrx {

/** How the work on a document ended: at its end, or early. The log tells the two apart. */
enum class Ending { finished, stopped };

/** A document's name in the native character set; nothing when it has none, or none that can be read, which is
 *  logged. */
[[nodiscard]] std::optional<std::string> ReadName(NOTEHANDLE note, const char* field);

/**
 * Upgrades the database by one document of the template: copies it when the map has no document of its name, replaces
 * that document when the product ships it, and leaves it alone when not. Failures are logged. Whatever fails, and also
 * when an exception ends the work, the document that the database had is written back; when that fails too, which is
 * logged, what is left is a copy out of the template, if one can be made.
 */
Ending UpgradeDlpDocument(const SearchDLPDocParam& search, NOTEID templateNoteId);

} // namespace updkrx
