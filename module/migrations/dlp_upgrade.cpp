#include "migrations/dlp_upgrade.h"

#include <algorithm>

#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "migrations/dlp_document.h"
#include "migrations/log_messages.h"
#include "migrations/note_items.h"

namespace updkrx {
namespace {

constexpr WORD selectionSize = 512;

/** One search over the documents of a form; false when it failed, which is logged. */
bool SearchForm(const char* operation, DBHANDLE searched, const std::string& form, NSFSEARCHPROC step,
                SearchDLPDocParam& parameter) noexcept {
    DebugLog(level::progress, "%s IN", operation);
    char selection[selectionSize];
    bq_snprintf(selection, sizeof selection, "Form=\"%s\"", form.c_str());
    ScopedFormula formula;
    if (CompileSelection(selection, selectionSize, formula) != NOERROR) {
        DebugLog(level::progress, "Fail to compile %s", operation);
        return false;
    }
    if (SearchNotes(searched, formula.Get(), NOTE_CLASS_DOCUMENT, step, &parameter) != NOERROR) {
        DebugLog(level::progress, "NSFSearch failed for SearchFormDocByDatabase");
        return false;
    }
    return true;
}

/** Adds a document to the map; false when its name cannot be read. */
bool MapDocument(const SearchDLPDocParam& search, NOTEID noteId) {
    ScopedNote note;
    if (OpenNote(note, search.hDatabase, noteId) != NOERROR) {
        DebugLog(level::progress, "MigrateManualScanSettingCallback, open note failed.");
        return false;
    }
    const auto name = ReadName(note.Get(), search.identifiedField.c_str());
    if (name && !name->empty()) {
        search.docMap->unids.emplace(*name, UnidTextOf(note.Get()));
    }
    DebugLog(level::progress, "SearchFormDocumentCallback OUT");
    return name.has_value();
}

void UpgradeDocument(const SearchDLPDocParam& search, NOTEID noteId) {
    DebugLog(level::progress, "UpgradeFormDocumentsWithIdentifiedFiledCallBack IN");
    if (search.docMap == nullptr) {
        DebugLog(level::progress, "SearchDLPDocParam's map is null");
        return;
    }
    if (UpgradeDlpDocument(search, noteId) == Ending::finished) {
        DebugLog(level::progress, "SearchFormDocumentCallback OUT");
    }
}

} // namespace

STATUS UpgradeDLPDocumentFromNTFtoNSF(DBHANDLE hTemplate, DBHANDLE hDatabase) {
    DebugLog(level::progress, "UpgradeDLPDocumentFromNTFtoNSF IN");
    if (hDatabase == NULLHANDLE || hTemplate == NULLHANDLE) {
        DebugLog(level::progress, "ERROR: hDatabase or hTempalte is 0, quit");
        return dlpUpgradeFailed;
    }
    for (const char* form : DlpForms) {
        (void)UpgradeDLPForm(hTemplate, hDatabase, form, "name"); // a form that fails does not stop the others
    }
    return NOERROR;
}

STATUS UpgradeDLPForm(DBHANDLE hTemplate, DBHANDLE hDatabase, const std::string& form, const std::string& field) {
    constexpr STATUS formFailed = dlpUpgradeFailed & ERR_MASK;
    DocumentMap docMap;
    if (SearchFormDocByDatabase(hDatabase, form, field, docMap) != NOERROR) {
        DebugLog(level::progress, "error to get form: %s document", form.c_str());
        return formFailed;
    }
    DebugLog(level::progress, "===========%s start==============", form.c_str());
    std::ranges::for_each(docMap.unids, LogPair);
    DebugLog(level::progress, "===========%s end==============", form.c_str());
    if (!docMap.complete) {
        DebugLog(level::progress, "Error: Not all names of %s documents can be read, so none is added.", form.c_str());
    }
    if (UpgradeFormDocumentsWithIdentifiedFiled(hTemplate, hDatabase, form, field, docMap) != NOERROR) {
        DebugLog(level::progress, "upgrade dlp documetn from ntf to nsf error, form: %s ,return", form.c_str());
        return formFailed;
    }
    return NOERROR;
}

STATUS SearchFormDocByDatabase(DBHANDLE hDatabase, const std::string& form, const std::string& field,
                               DocumentMap& docMap) {
    SearchDLPDocParam parameter = {NULLHANDLE, hDatabase, &docMap, field};
    if (!SearchForm("SearchFormDocByDatabase", hDatabase, form, SearchFormDocumentCallback, parameter)) {
        return dlpUpgradeFailed;
    }
    DebugLog(level::progress, "NSFSearch success to get form: %s documents with size: %d ", form.c_str(),
             static_cast<int>(docMap.unids.size()));
    return NOERROR;
}

STATUS UpgradeFormDocumentsWithIdentifiedFiled(DBHANDLE hTemplate, DBHANDLE hDatabase, const std::string& form,
                                               const std::string& field, DocumentMap& docMap) {
    SearchDLPDocParam parameter = {hTemplate, hDatabase, &docMap, field};
    if (!SearchForm("UpgradeFormDocumentsWithIdentifiedFiled", hTemplate, form,
                    UpgradeFormDocumentsWithIdentifiedFiledCallBack, parameter)) {
        return dlpUpgradeFailed;
    }
    DebugLog(level::progress, "Update form documents: %s  success ", form.c_str());
    return NOERROR;
}

STATUS LNCALLBACK SearchFormDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) noexcept {
    const SEARCH_MATCH found = CopyMatch(match);
    if (!IsMatch(found)) {
        return NOERROR;
    }
    const SearchDLPDocParam& search = *static_cast<const SearchDLPDocParam*>(parameter);
    DebugLog(level::progress, "SearchFormDocumentCallback IN");
    if (search.docMap == nullptr) {
        DebugLog(level::progress, "SearchDLPDocParam's set is null");
        return NOERROR;
    }
    // For want of memory a name is unknown just as well.
    const bool known =
        WithoutExceptions("SearchFormDocumentCallback", false, [&] { return MapDocument(search, found.ID.NoteID); });
    search.docMap->complete = search.docMap->complete && known;
    return NOERROR;
}

STATUS LNCALLBACK UpgradeFormDocumentsWithIdentifiedFiledCallBack(void* parameter, SEARCH_MATCH* match,
                                                                  ITEM_TABLE* /*summary*/) noexcept {
    return WithoutExceptions("UpgradeFormDocumentsWithIdentifiedFiledCallBack", NOERROR, [&] {
        const SEARCH_MATCH found = CopyMatch(match);
        if (IsMatch(found)) {
            UpgradeDocument(*static_cast<const SearchDLPDocParam*>(parameter), found.ID.NoteID);
        }
        return NOERROR;
    });
}

} // namespace updkrx
