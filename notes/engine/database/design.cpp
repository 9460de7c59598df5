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

std::string Attribute(const char* name) {
    return std::string(property::attributePrefix) + name;
}

std::vector<OpenNote> ReadDesign(Database& database) {
    std::vector<NOTEID> ids;
    Database::SearchRequest request;
    request.classMask = designClasses;
    (void)database.Search(request, [&](const Database::Match& match) -> STATUS { // ends only with the notes
        if (IsDesignNote(match.head)) {
            ids.push_back(match.head.id);
        }
        return NOERROR;
    });
    std::vector<OpenNote> design;
    for (const NOTEID id : ids) {
        OpenNote note;
        database.ReadNote(id, note);
        design.push_back(std::move(note));
    }
    return design;
}

bool SameUnid(const OpenNote& a, const OpenNote& b) {
    return UnidOf(a.head.oid) == UnidOf(b.head.oid);
}

bool SameElement(const OpenNote& a, const OpenNote& b) {
    const WORD classA = a.head.noteClass & NOTE_CLASS_ALL, classB = b.head.noteClass & NOTE_CLASS_ALL;
    return classA == classB &&
           ((classA & singleClasses) || ItemText(a.items, titleItem) == ItemText(b.items, titleItem));
}

/** The counterpart of a template's note among those that have none yet, or NULL. */
OpenNote* Counterpart(std::vector<OpenNote>& own, const std::set<NOTEID>& taken, const OpenNote& wanted) {
    for (const auto same : {SameUnid, SameElement}) {
        for (OpenNote& note : own) {
            if (!taken.contains(note.head.id) && same(note, wanted)) {
                return &note;
            }
        }
    }
    return nullptr;
}

/** The icon note carries the title and the template's name, which are the database's own. */
Items ItemsFor(Database& database, const OpenNote& from, const std::string& inherits) {
    Items items = from.items;
    const auto titled = items.Find(titleItem);
    if ((from.head.noteClass & NOTE_CLASS_ICON) && titled) {
        const WORD flags = titled->flags;
        std::string title = LmbcsFromUtf8(database.GetStore().GetProperty(property::title));
        if (!inherits.empty()) {
            title += '\0' + LmbcsFromUtf8("#2" + inherits);
        }
        items.Set({titleItem, TYPE_TEXT, flags, title});
    }
    return items;
}

/** The dates that a note carries beside its times are its own: those of `own` in the place of those in `items`. */
Items WithDatesOf(const Items& own, const Items& items) {
    std::string dates;
    ItemCursor ownCursor = own.Cursor();
    for (ItemView view{}; ownCursor.Next(view);) {
        if (view.type == keptInfo) {
            AppendEncoded(dates, view);
        }
    }
    std::string encoded;
    ItemCursor cursor = items.Cursor();
    for (ItemView view{}; cursor.Next(view);) {
        if (view.type == keptHead) {
            AppendEncoded(encoded, view);
        } else if (view.type != keptInfo) {
            encoded += dates;
            dates.clear();
            AppendEncoded(encoded, view);
        }
    }
    return Items(encoded + dates);
}

/** Without the signature, which each database's own server makes, and the names of objects in their database. */
std::string Comparable(Items items) {
    items.Erase(signatureItem);
    return WithObjects(items.Encoded(), [](const ObjectRef& object) { return ObjectRef{0, object.size, object.hash}; });
}

bool SameContent(const OpenNote& own, WORD noteClass, const Items& wanted) {
    return own.head.noteClass == noteClass && Comparable(own.items) == Comparable(wanted);
}

/** Saves the note with these items, which are those of `from` or made from them. */
void SaveWith(Database& database, OpenNote& note, const OpenNote& from, Items items) {
    note.items = std::move(items);
    note.objectsIn = from.objectsIn;
    note.objectsOf = from.objectsOf;
    database.UpdateNote(note, true);
}

void AddNote(Database& database, const OpenNote& from, Items items) {
    OpenNote note = database.NewNote();
    note.head.noteClass = from.head.noteClass;
    if (database.GetStore().FindUnid(UnidOf(from.head.oid)) == 0) {
        note.head.oid = from.head.oid;
    }
    SaveWith(database, note, from, std::move(items));
}

void ChangeNote(Database& database, const OpenNote& own, const OpenNote& from, Items items) {
    if (own.head.noteClass != from.head.noteClass) {
        // The class of a stored note stays, so that one that became the default form, say, is made anew.
        database.DeleteNote(own.head.id, false);
        OpenNote note;
        note.head = own.head;
        note.head.id = 0;
        note.head.noteClass = from.head.noteClass;
        return SaveWith(database, note, from, std::move(items));
    }
    OpenNote note;
    database.ReadNote(own.head.id, note);
    SaveWith(database, note, from, std::move(items));
}

} // namespace

bool IsDesignNote(const NoteHead& head) noexcept {
    return (head.noteClass & designClasses) && !(head.noteClass & NOTE_CLASS_PRIVATE) && !head.deleted;
}

std::string TemplateName(Database& database) {
    return database.GetStore().GetProperty(Attribute("templatename"));
}

std::string InheritedTemplate(Database& database) {
    return database.GetStore().GetProperty(Attribute("fromtemplate"));
}

namespace {

/** Calls `visit` for each note of the template with its counterpart in the database, which may be null, and the items
 *  that it is to have; then for each note of the database that the template lacks (null). */
template<typename Visit>
void PairDesigns(Database& database, Database& designTemplate, const Visit& visit) {
    const std::string inherits = TemplateName(designTemplate);
    std::vector<OpenNote> own = ReadDesign(database);
    std::set<NOTEID> taken;
    for (const OpenNote& wanted : ReadDesign(designTemplate)) {
        const OpenNote* existing = Counterpart(own, taken, wanted);
        if (existing) {
            taken.insert(existing->head.id);
        }
        visit(existing, &wanted,
              WithDatesOf(existing ? existing->items : Items(), ItemsFor(database, wanted, inherits)));
    }
    for (const OpenNote& note : own) {
        if (!taken.contains(note.head.id)) {
            visit(&note, nullptr, Items());
        }
    }
}

DesignExchange Exchange(Database& database, Database& designTemplate) {
    DesignExchange result;
    PairDesigns(database, designTemplate, [&](const OpenNote* own, const OpenNote* wanted, Items items) {
        if (!wanted) {
            database.DeleteNote(own->head.id, true);
            ++result.deleted;
        } else if (!own) {
            AddNote(database, *wanted, std::move(items));
            ++result.added;
        } else if (SameContent(*own, wanted->head.noteClass, items)) {
            ++result.unchanged;
        } else {
            ChangeNote(database, *own, *wanted, std::move(items));
            ++result.changed;
        }
    });
    if (const std::string inherits = TemplateName(designTemplate); inherits != InheritedTemplate(database)) {
        database.GetStore().SetProperty(Attribute("fromtemplate"), inherits);
    }
    return result;
}

} // namespace

std::vector<DesignDifference> CompareDesign(Database& database, Database& designTemplate) {
    using Kind = DesignDifference::Kind;
    std::vector<DesignDifference> differences;
    PairDesigns(database, designTemplate, [&](const OpenNote* own, const OpenNote* wanted, const Items& items) {
        if (own && wanted && SameContent(*own, wanted->head.noteClass, items)) {
            return;
        }
        const OpenNote& note = wanted ? *wanted : *own;
        const std::string title = ItemText(note.items, titleItem);
        differences.push_back({!own     ? Kind::missing
                               : wanted ? Kind::different
                                        : Kind::surplus,
                               note.head.noteClass,
                               Utf8FromLmbcs(std::string_view(title).substr(0, title.find('\0')))});
    });
    return differences;
}

DesignExchange ExchangeDesign(Database& database, Database& designTemplate) {
    Store& store = database.GetStore();
    store.Commit(); // what others have written is not this exchange's to take back
    try {
        const DesignExchange result = Exchange(database, designTemplate);
        store.Commit();
        return result;
    } catch (...) {
        store.Rollback();
        throw;
    }
}

} // namespace embedded
