#include "migrations/dlp_document.h"

#include <string_view>

#include "common/ascii_text.h"
#include "foundation/debug_log.h"
#include "foundation/exception_barrier.h"
#include "foundation/item_reading.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_text.h"
#include "foundation/second_try.h"
#include "foundation/unid_text.h"
#include "migrations/deletion_stub.h"
#include "migrations/log_messages.h"
#include "migrations/note_identity.h"
#include "migrations/obsolete_unids.h"
#include "migrations/predefined.h"
#include "migrations/references.h"
#include "migrations/replaced_document.h"

namespace updkrx {
namespace {

constexpr WORD nameLength = 1024;
constexpr WORD nativeNameSize = 1024;

/** A document of the template that has been opened, and its name. */
struct TemplateDocument {
    NOTEID noteId;
    NOTEHANDLE note;
    const std::string& name;
};

/** A name in the native character set, line by line: a translation ends at a zero byte, which is a line break. Nothing
 *  when a line cannot be translated. The text is terminated. */
std::optional<std::string> ToNativeName(std::string_view text) {
    std::string name;
    while (true) {
        char line[nativeNameSize];
        const size_t length = text.substr(0, text.find('\0')).size();
        if (ToNative(text.data(), line, sizeof line) == 0 && length != 0) {
            return std::nullopt;
        }
        name += line;
        if (length == text.size()) {
            return name;
        }
        name += '\0';
        text.remove_prefix(length + 1);
    }
}

/** Removes a copy without a trace; false, which is logged, when it stays. */
bool RemoveCopy(DBHANDLE database, NOTEID copyId) noexcept {
    const STATUS status = DeleteWithoutTrace(database, copyId);
    if (status != NOERROR) {
        LogCopyThatStays(copyId, status);
    }
    return status == NOERROR;
}

/** Saves a copy that has got a UNID of its own once more, under the one of the template's document. */
STATUS SaveUnderTemplateUnid(DBHANDLE database, NOTEHANDLE copy, NOTEHANDLE templateNote) noexcept {
    ScopedNote note;
    if (const STATUS status = note.Open(NSFNoteCopy, copy); status != NOERROR) {
        return status;
    }
    const OID identity = OidOf(templateNote);
    return SaveAs(database, note.Get(), identity, {UnidOf(templateNote)});
}

/**
 * Sees to it that an added copy stands under `unid`, that of the template's document, by which others refer to it.
 * Where that cannot be, `unid` becomes the copy's own, and references are going to be replaced by it. False when the
 * copy was removed again, because its UNID cannot be found out.
 */
bool SettleUnid(DBHANDLE database, const TemplateDocument& document, NOTEID copyId, std::string& unid) {
    ScopedNote copy;
    STATUS status = WithSecondTry([&] { return OpenNote(copy, database, copyId); });
    if (status != NOERROR) {
        DebugLog(level::progress, "NSFNoteOpen error. notesid=%d, sError is %d, czErrorMessage is %s...",
                 static_cast<int>(copyId), status, StatusText(status).Text());
        return FindNote(database, UnidOf(document.note)) == copyId || !RemoveCopy(database, copyId);
    }
    const std::string own = UnidTextOf(copy.Get());
    if (EqualIgnoringAsciiCase(own, unid)) {
        return true;
    }
    VanishingUnids vanishing(own);
    vanishing.Add(unid);
    DebugLog(level::progress, "The doc copied from ntf has another UNID: notesid=%d, unid is %s",
             static_cast<int>(copyId), own.c_str());
    status = WithSecondTry([&] { return SaveUnderTemplateUnid(database, copy.Get(), document.note); });
    if (Succeeded("NSFNoteUpdate", status)) {
        copy.Close();
        (void)(RemoveCopy(database, copyId) || RemoveCopy(database, copyId)); // two documents of one name: try again
        return true;
    }
    vanishing.RecordUnlessTaken(database, UnidOf(document.note));
    unid = own;
    return true;
}

/** The database has no document of this name. */
Ending AddDocument(const SearchDLPDocParam& search, const TemplateDocument& document) {
    DebugLog(level::progress, "not find %s, add to nsf", document.name.c_str());
    // The map has the name before the database: a later document of this name must find it, whatever fails meanwhile.
    const auto added = search.docMap->unids.emplace(document.name, UnidTextOf(document.note)).first;
    NOTEID copyId = 0;
    const STATUS status = StoreOverStub(search.hDatabase, {UnidOf(document.note)}, [&] {
        return NSFDbCopyNote(search.hTemplate, nullptr, nullptr, document.noteId, search.hDatabase, nullptr, nullptr,
                             &copyId, nullptr);
    });
    if (status != NOERROR) {
        search.docMap->unids.erase(added);
        DebugLog(level::progress, "NSFDbCopyNote error. old notesid=%d, sError is %d, czErrorMessage is %s...",
                 static_cast<int>(document.noteId), status, StatusText(status).Text());
        if (!TellsOfTakenUnid(status) || FindNote(search.hDatabase, UnidOf(document.note)) == NOTEID{0}) {
            search.docMap->notAdded.insert({document.name, {document.noteId, UnidOf(document.note)}});
        }
        return Ending::finished;
    }
    DebugLog(level::progress, "NSFDbCopyNote success");
    std::string& unid = added->second;
    if (!SettleUnid(search.hDatabase, document, copyId, unid)) {
        search.docMap->unids.erase(added);
        return Ending::undone;
    }
    KeepReferencesTo(unid);
    DebugLog(level::progress, "NSFNoteGetInfo success");
    DebugLog(level::progress, "bq_snprintf success");
    DebugLog(level::progress, "szdlpdocUNID is %s, tmpunid is %s", unid.c_str(), unid.c_str());
    DebugLog(level::progress, "UpgradeFormDocumentsWithIdentifiedFiledCallBack copy document %s:%s success",
             document.name.c_str(), unid.c_str());
    return Ending::finished;
}

/** The database's document is the customer's own. */
void KeepDocument(const std::string& name) noexcept {
    DebugLog(level::progress, "%s is find in nsf, it is NOT predefine", name.c_str());
}

/** The database's document is one that the product ships: it is deleted and made anew from the template, with its UNID
 *  and with the references that the template's version lacks. */
Ending ReplaceDocument(const SearchDLPDocParam& search, const TemplateDocument& document, const std::string& unid,
                       ScopedNote& note) {
    const char* name = document.name.c_str();
    DebugLog(level::progress, "%s is find in nsf, it is predefine", name);
    DebugLog(level::progress, "%s is %s by any rule or template, try to delete and recreate", name,
             HasItem(note.Get(), "ReferDocs") ? "used" : "NOT used");
    References references;
    if (!references.Read(note.Get())) {
        return Ending::stopped; // before the document is deleted, which would lose them
    }
    ReplacedDocument replaced(search.hDatabase, unid, search.hTemplate, document.note);
    if (replaced.TakeOut(note) && replaced.MakeFromTemplate(references) && replaced.GiveOldUnid()) {
        return Ending::finished;
    }
    return replaced.PutBack() && replaced.MayTryAgain() ? Ending::stopped : Ending::stuck;
}

/** The database has a document of this name, with this UNID. */
Ending UpgradePartner(const SearchDLPDocParam& search, const TemplateDocument& document, const std::string& unid) {
    DebugLog(level::progress, "current nsf doc name %s,unid:%s", document.name.c_str(), unid.c_str());
    UNID parsed = {};
    ParseUnidText(unid, parsed);
    ScopedNote note;
    if (note.Open(NSFNoteOpenByUNID, search.hDatabase, &parsed, WORD{0}) != NOERROR) {
        DebugLog(level::progress, "NSFNoteOpenByUNID, open note failed.");
        return Ending::stopped;
    }
    const auto predefined = IsPredefined(note.Get());
    if (!predefined) {
        return Ending::stopped;
    }
    if (!*predefined) {
        KeepDocument(document.name);
        return Ending::finished;
    }
    return ReplaceDocument(search, document, unid, note);
}

} // namespace

std::optional<std::string> ReadName(NOTEHANDLE note, const char* field) {
    char text[nameLength + 1];
    const auto length = ReadItemText(note, field, text, sizeof text);
    if (!length) {
        return std::nullopt;
    }
    auto name = ToNativeName({text, *length});
    if (!name) {
        char unid[unidTextSize];
        GetUnidText(note, unid);
        DebugLog(level::progress, "Error: The name of a document cannot be translated. UNID is %s", unid);
    }
    return name;
}

namespace {

/** The template document's UNID, and that of the database's document of its name. */
struct Pair {
    UNID shipped;
    std::string present;
};

/** UpgradeDlpDocument, once; `pair` is set when the database has a document of the name. */
Ending UpgradeOnce(const SearchDLPDocParam& search, NOTEID templateNoteId, std::optional<Pair>& pair) {
    ScopedNote templateNote;
    if (OpenNote(templateNote, search.hTemplate, templateNoteId) != NOERROR) {
        DebugLog(level::progress, "open krconfntf failed.");
        return Ending::stopped;
    }
    const auto name = ReadName(templateNote.Get(), search.identifiedField.c_str());
    if (!name || name->empty()) {
        return name ? Ending::finished : Ending::undone;
    }
    const TemplateDocument document = {templateNoteId, templateNote.Get(), *name};
    const auto partner = search.docMap->unids.find(*name);
    if (partner == search.docMap->unids.end()) {
        return search.docMap->complete ? AddDocument(search, document) : Ending::finished;
    }

    pair = {UnidOf(templateNote.Get()), partner->second};
    return UpgradePartner(search, document, partner->second);
}

} // namespace

void LetReferencesMean(DBHANDLE database, const std::string& unid, const UNID& shipped) {
    VanishingUnids vanishing(unid);
    vanishing.Add(UnidTextOf(shipped));
    vanishing.RecordUnlessTaken(database, shipped);
}

Ending UpgradeDlpDocument(const SearchDLPDocParam& search, NOTEID templateNoteId) {
    std::optional<Pair> pair;
    // Whatever an exception leaves of a copy has the document's name in the map.
    Ending ending = WithoutExceptions("UpgradeDlpDocument", Ending::undone,
                                      [&] { return UpgradeOnce(search, templateNoteId, pair); });
    if (ending == Ending::undone || ending == Ending::stopped) {
        ending = UpgradeOnce(search, templateNoteId, pair);
    }
    if (ending == Ending::stopped && pair) { // the document stays as it is
        LetReferencesMean(search.hDatabase, pair->present, pair->shipped);
    }
    return ending;
}

} // namespace updkrx
