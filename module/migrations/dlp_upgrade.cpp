#include "migrations/dlp_upgrade.h"

#include <algorithm>
#include <utility>

#include "common/bounded_text.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "migrations/dlp_document.h"
#include "migrations/log_messages.h"
#include "migrations/note_identity.h"

namespace updkrx {
namespace {

constexpr WORD selectionSize = 512;

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

void SearchFormDocumentCallback(const SearchDLPDocParam& search, NOTEID noteId) {
    DebugLog(level::progress, "SearchFormDocumentCallback IN");
    if (search.docMap == nullptr) {
        DebugLog(level::progress, "SearchDLPDocParam's set is null");
        return;
    }
    // For want of memory a name is unknown just as well.
    const bool complete = std::exchange(search.docMap->complete, false);
    search.docMap->complete = MapDocument(search, noteId) && complete;
}

void UpgradeFormDocumentsWithIdentifiedFiledCallBack(const SearchDLPDocParam& search, NOTEID noteId) {
    DebugLog(level::progress, "UpgradeFormDocumentsWithIdentifiedFiledCallBack IN");
    if (search.docMap == nullptr) {
        DebugLog(level::progress, "SearchDLPDocParam's map is null");
        return;
    }
    const Ending ending = UpgradeDlpDocument(search, noteId);
    if (ending == Ending::finished || ending == Ending::undone) {
        DebugLog(level::progress, "SearchFormDocumentCallback OUT");
    }
}

/** A pass over the documents of a form, what it does to one, and what the two are called in the log. */
struct Pass {
    const char* operation;
    const char* stepName;
    void (*step)(const SearchDLPDocParam& search, NOTEID noteId);
};

constexpr Pass mapping = {"SearchFormDocByDatabase", "SearchFormDocumentCallback", SearchFormDocumentCallback};
constexpr Pass upgrade = {"UpgradeFormDocumentsWithIdentifiedFiled", "UpgradeFormDocumentsWithIdentifiedFiledCallBack",
                          UpgradeFormDocumentsWithIdentifiedFiledCallBack};

/** False when the search failed, which is logged. */
bool SearchForm(const Pass& pass, DBHANDLE searched, const std::string& form,
                const SearchDLPDocParam& parameter) noexcept {
    DebugLog(level::progress, "%s IN", pass.operation);
    char selection[selectionSize];
    bq_snprintf(selection, sizeof selection, "Form=\"%s\"", form.c_str());
    ScopedFormula formula;
    if (CompileSelection(selection, selectionSize, formula) != NOERROR) {
        DebugLog(level::progress, "Fail to compile %s", pass.operation);
        return false;
    }
    const STATUS status = SearchNotes({pass.stepName, searched, formula.Get(), NOTE_CLASS_DOCUMENT},
                                      [&](const SEARCH_MATCH& found) { pass.step(parameter, found.ID.NoteID); });
    if (status != NOERROR) {
        DebugLog(level::progress, "NSFSearch failed for SearchFormDocByDatabase");
    }
    return status == NOERROR;
}

/** Copies the documents that could not be copied once more, unless the database has got them all the same. */
void AddWhatIsMissing(const SearchDLPDocParam& search, const std::string& form) {
    DocumentMap present;
    if (search.docMap->notAdded.empty() ||
        SearchFormDocByDatabase(search.hDatabase, form, search.identifiedField, present) != NOERROR) {
        return;
    }
    const SearchDLPDocParam again = {search.hTemplate, search.hDatabase, &present, search.identifiedField};
    for (const auto& [name, document] : search.docMap->notAdded) {
        (void)WithoutExceptions("AddWhatIsMissing", Ending::stuck, [&, &name = name, &document = document] {
            if (const auto copy = present.unids.find(name); copy != present.unids.end()) {
                LetReferencesMean(search.hDatabase, copy->second, document.unid);
                return Ending::finished;
            }
            return UpgradeDlpDocument(again, document.noteId);
        });
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
    const STATUS status = SearchFormDocByDatabase(hDatabase, form, field, docMap);
    if (status == NOERROR && !docMap.complete) {
        DocumentMap again;
        if (SearchFormDocByDatabase(hDatabase, form, field, again) == NOERROR) {
            docMap = std::move(again);
        }
    }
    if (status != NOERROR) {
        DebugLog(level::progress, "error to get form: %s document", form.c_str());
        return formFailed;
    }
    DebugLog(level::progress, "===========%s start==============", form.c_str());
    std::ranges::for_each(docMap.unids, LogPair);
    DebugLog(level::progress, "===========%s end==============", form.c_str());
    if (!docMap.complete) {
        DebugLog(level::progress, "Error: Not all names of %s documents can be read, so none is added.", form.c_str());
    }
    const STATUS upgraded = UpgradeFormDocumentsWithIdentifiedFiled(hTemplate, hDatabase, form, field, docMap);
    AddWhatIsMissing({hTemplate, hDatabase, &docMap, field}, form);
    if (upgraded != NOERROR) {
        DebugLog(level::progress, "upgrade dlp documetn from ntf to nsf error, form: %s ,return", form.c_str());
        return formFailed;
    }
    return NOERROR;
}

STATUS SearchFormDocByDatabase(DBHANDLE hDatabase, const std::string& form, const std::string& field,
                               DocumentMap& docMap) {
    if (!SearchForm(mapping, hDatabase, form, {NULLHANDLE, hDatabase, &docMap, field})) {
        return dlpUpgradeFailed;
    }
    DebugLog(level::progress, "NSFSearch success to get form: %s documents with size: %d ", form.c_str(),
             static_cast<int>(docMap.unids.size()));
    return NOERROR;
}

STATUS UpgradeFormDocumentsWithIdentifiedFiled(DBHANDLE hTemplate, DBHANDLE hDatabase, const std::string& form,
                                               const std::string& field, DocumentMap& docMap) {
    if (!SearchForm(upgrade, hTemplate, form, {hTemplate, hDatabase, &docMap, field})) {
        return dlpUpgradeFailed;
    }
    DebugLog(level::progress, "Update form documents: %s  success ", form.c_str());
    return NOERROR;
}

} // namespace updkrx
