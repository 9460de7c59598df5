// One document of the template on its way into the configuration database.
#pragma once

#include <optional>
#include <string>

#include "migrations/dlp_upgrade.h"
#include "notes_api.h"

namespace updkrx {

/** How the work on a document ended: at its end, or early. The log tells the two apart. */
enum class Ending { finished, stopped };

/** A document's name in the native character set, empty when it has none; nothing, which is logged, when it cannot be
 *  read or translated. A line break in it is a zero byte. */
[[nodiscard]] std::optional<std::string> ReadName(NOTEHANDLE note, const char* field);

/**
 * Upgrades the database by one document of the template: copies it when the map is complete and has no document of its
 * name, replaces that document when the product ships it, and leaves it alone when not. Failures are logged. Whatever
 * fails, and also when an exception ends the work, the document that the database had is written back; when that fails
 * too, which is logged, it stays kept for the next run.
 */
Ending UpgradeDlpDocument(const SearchDLPDocParam& search, NOTEID templateNoteId);

} // namespace updkrx
