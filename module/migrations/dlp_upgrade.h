// The data-loss-prevention documents of the configuration database, brought up to date from the template.
//
// Form by form, the documents of the template are paired with those of the database by their name. One without a
// partner is copied into the database; a partner that the product ships is replaced, one of the customer's own is left
// alone.
#pragma once

#include <map>
#include <string>

#include "notes_api.h"

namespace updkrx {

/** The DLP forms, in the order in which they are upgraded. */
inline constexpr const char* DlpForms[] = {
    "dictionary", "entity", "template", "dictionary_type", "entity_type", "industry", "region", "validator",
};

/** A form's documents in the database. */
struct DocumentMap {
    /** UNID texts by name, in the native character set. Of several documents with one name the first that was found
     *  counts. */
    std::map<std::string, std::string> unids;
    /** False when the name of some document could not be read. A document of the template without a partner may have
     *  that one, and would be its double: none is added then. */
    bool complete = true;
};

/** The parameter of the two search steps. */
struct SearchDLPDocParam {
    DBHANDLE hTemplate; // 0 in the search over the database
    DBHANDLE hDatabase;
    DocumentMap* docMap;
    std::string identifiedField; // the item that holds the name
};

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

/** Search steps of these two. 0, whatever happens to one document, so that the others get their turn. */
STATUS LNCALLBACK SearchFormDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) noexcept;
STATUS LNCALLBACK UpgradeFormDocumentsWithIdentifiedFiledCallBack(void* parameter, SEARCH_MATCH* match,
                                                                  ITEM_TABLE* summary) noexcept;

} // namespace updkrx
