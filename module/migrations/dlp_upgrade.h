// The data-loss-prevention documents of the configuration database, brought up to date from the template.
//
// Form by form, the documents of the template are paired with those of the database by their name. One without a
// partner is copied into the database; a partner that the product ships is replaced, one of the customer's own is left
// alone.
#pragma once

#include <string>

#include "foundation/dlp_forms.h"
#include "migrations/dlp_document.h"
#include "notes_api.h"

namespace updkrx {

/** What a function of this file returns when it failed; UpgradeDLPForm returns it masked. */
inline constexpr STATUS dlpUpgradeFailed = 65535;

/** Upgrades all forms, whatever happens to one of them. 0, or dlpUpgradeFailed when a handle is 0. */
STATUS UpgradeDLPDocumentFromNTFtoNSF(DBHANDLE hTemplate, DBHANDLE hDatabase);

/** Upgrades one form. */
STATUS UpgradeDLPForm(DBHANDLE hTemplate, DBHANDLE hDatabase, const std::string& form, const std::string& field);

/** Adds the documents of a form in the database to the map. */
[[nodiscard]] STATUS SearchFormDocByDatabase(DBHANDLE hDatabase, const std::string& form, const std::string& field,
                                             DocumentMap& docMap);

/** Goes through the documents of a form in the template; those that are copied are added to the map. */
[[nodiscard]] STATUS UpgradeFormDocumentsWithIdentifiedFiled(DBHANDLE hTemplate, DBHANDLE hDatabase,
                                                             const std::string& form, const std::string& field,
                                                             DocumentMap& docMap);

} // namespace updkrx
