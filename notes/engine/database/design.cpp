#include "engine/database/design.h"

#include <set>
#include <vector>

#include "engine/database/signature.h"
#include "engine/values/charset.h"

namespace embedded {
namespace {

constexpr WORD designClasses = NOTE_CLASS_INFO | NOTE_CLASS_FORM | NOTE_CLASS_VIEW | NOTE_CLASS_ICON |
                               NOTE_CLASS_DESIGN | NOTE_CLASS_HELP_INDEX | NOTE_CLASS_HELP | NOTE_CLASS_FILTER |
                               NOTE_CLASS_FIELD;
// A database has one note of these, whatever its title.
constexpr WORD singleClasses = NOTE_CLASS_INFO | NOTE_CLASS_ICON | NOTE_CLASS_HELP_INDEX | NOTE_CLASS_HELP;

constexpr const char* titleItem = "$TITLE";

std::string attribute(const char* name) {
    return std::string(property::attributePrefix) + name;
}

struct DesignNote {
    NoteHead head;
    Items items;
};

std::vector<DesignNote> readDesign(Database& database) {
    std::vector<NOTEID> ids;
    Database::SearchRequest request;
    request.classMask = designClasses;
    (void)database.search(request, [&](const Database::Match& match) -> STATUS { // ends only with the notes
        if (isDesignNote(match.head))
            ids.push_back(match.head.id);
        return NOERROR;
    });
    std::vector<DesignNote> design;
    for (const NOTEID id : ids) {
        OpenNote note;
        database.readNote(id, note);
        design.push_back({note.head, std::move(note.items)});
    }
    return design;
}

bool sameUnid(const DesignNote& a, const DesignNote& b) {
    return a.head.oid.File == b.head.oid.File && a.head.oid.Note == b.head.oid.Note;
}

bool sameElement(const DesignNote& a, const DesignNote& b) {
    const WORD classA = a.head.noteClass & NOTE_CLASS_ALL, classB = b.head.noteClass & NOTE_CLASS_ALL;
    return classA == classB &&
           ((classA & singleClasses) || itemText(a.items, titleItem) == itemText(b.items, titleItem));
}

/** The counterpart of a template's note among those that have none yet, or NULL. */
DesignNote* counterpart(std::vector<DesignNote>& own, const std::set<NOTEID>& taken, const DesignNote& wanted) {
    for (const auto same : {sameUnid, sameElement})
        for (DesignNote& note : own)
            if (!taken.contains(note.head.id) && same(note, wanted))
                return &note;
    return nullptr;
}

/** The icon note carries the title and the template's name, which are the database's own. */
Items itemsFor(Database& database, const DesignNote& from, const std::string& inherits) {
    Items items = from.items;
    const auto titled = items.find(titleItem);
    if ((from.head.noteClass & NOTE_CLASS_ICON) && titled) {
        const WORD flags = titled->flags;
        std::string title = lmbcsFromUtf8(database.store().getProperty(property::title));
        if (!inherits.empty())
            title += '\0' + lmbcsFromUtf8("#2" + inherits);
        items.set({titleItem, TYPE_TEXT, flags, title});
    }
    return items;
}

/** Equal but for the signature, which each database's own server makes. */
bool sameContent(const DesignNote& own, WORD noteClass, Items wanted) {
    Items items = own.items;
    items.erase(signatureItem);
    wanted.erase(signatureItem);
    return own.head.noteClass == noteClass && items == wanted;
}

void addNote(Database& database, const DesignNote& from, Items items) {
    OpenNote note = database.newNote();
    note.head.noteClass = from.head.noteClass;
    if (database.store().findUnid(unidOf(from.head.oid)) == 0)
        note.head.oid = from.head.oid;
    note.items = std::move(items);
    database.updateNote(note, true);
}

void changeNote(Database& database, const DesignNote& own, const DesignNote& from, Items items) {
    if (own.head.noteClass != from.head.noteClass) {
        // The class of a stored note stays, so that one that became the default form, say, is made anew.
        database.deleteNote(own.head.id, false);
        OpenNote note;
        note.head = own.head;
        note.head.id = 0;
        note.head.noteClass = from.head.noteClass;
        note.items = std::move(items);
        return database.updateNote(note, true);
    }
    OpenNote note;
    database.readNote(own.head.id, note);
    note.items = std::move(items);
    database.updateNote(note, true);
}

} // namespace

bool isDesignNote(const NoteHead& head) noexcept {
    return (head.noteClass & designClasses) && !(head.noteClass & NOTE_CLASS_PRIVATE) && !head.deleted;
}

std::string templateName(Database& database) {
    return database.store().getProperty(attribute("templatename"));
}

std::string inheritedTemplate(Database& database) {
    return database.store().getProperty(attribute("fromtemplate"));
}

namespace {

DesignExchange exchange(Database& database, Database& designTemplate) {
    DesignExchange result;
    const std::string inherits = templateName(designTemplate);
    std::vector<DesignNote> own = readDesign(database);
    std::set<NOTEID> taken;
    for (const DesignNote& wanted : readDesign(designTemplate)) {
        Items items = itemsFor(database, wanted, inherits);
        const DesignNote* existing = counterpart(own, taken, wanted);
        if (!existing) {
            addNote(database, wanted, std::move(items));
            ++result.added;
            continue;
        }
        taken.insert(existing->head.id);
        if (sameContent(*existing, wanted.head.noteClass, items)) {
            ++result.unchanged;
            continue;
        }
        changeNote(database, *existing, wanted, std::move(items));
        ++result.changed;
    }
    for (const DesignNote& note : own) {
        if (taken.contains(note.head.id))
            continue;
        database.deleteNote(note.head.id, true);
        ++result.deleted;
    }
    if (inherits != inheritedTemplate(database))
        database.store().setProperty(attribute("fromtemplate"), inherits);
    return result;
}

} // namespace

DesignExchange exchangeDesign(Database& database, Database& designTemplate) {
    Store& store = database.store();
    store.commit(); // what others have written is not this exchange's to take back
    try {
        const DesignExchange result = exchange(database, designTemplate);
        store.commit();
        return result;
    } catch (...) {
        store.rollback();
        throw;
    }
}

} // namespace embedded
