// Which of a customer's changes an upgrade would lose.
//
// A value is lost when the upgrade removes or replaces it: a list loses the entries that are not in the new one. Items
// that the product keeps itself (references, DocID, the build number, signatures) are nobody's change. Whose the value
// was is found out so:
//
// 1. The template from before the upgrade has the note (by its UNID, design notes also by class and title): the value
//    is the customer's when it is not what that template delivered. "From before" is NAME.ntf in the product folder,
//    else NAME.ntf or NAME.nsf in the newest earlier program folder that has one.
// 2. Else, a note that somebody has saved or signed who did not make the documents of the patch's own template, and who
//    is not the server itself, is the customer's.
// 3. Else, the customer's are: a removed design or replication note, since no template is known that brings it; and a
//    document that tells nothing of who saved it. All other notes are the product's.
#pragma once

#include <filesystem>
#include <string>

#include "change_report.h"

namespace krxpatch {

struct TemplateFolders {
    std::filesystem::path products; // the product folder as it is before the upgrade
    std::filesystem::path program;  // the program folder with the patch; earlier ones stand beside it
    std::string serverName;         // of the ID in use
};

/** Sets `lost` of the changes of each database. A template that cannot be read counts as missing. */
void MarkLostChanges(ChangeReport& report, const TemplateFolders& folders);

} // namespace krxpatch
