#include "database_diff.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "common/ascii_text.h"
#include "note_reader.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** What a document is called, in the item of these that it has first. */
constexpr const char* nameItems[] = {"name",      "Title",    "Subject",    "PolicyName",   "ServerName", "ListName",
                                     "VirusName", "FileName", "TypeName",   "ScheduleName", "AgentName",  "Topic",
                                     "Address",   "MsgID",    "Attachment", "Owner"};

using Items = std::vector<NamedItem>;

/** One file, while it is gone through. */
class Side {
public:
    explicit Side(const fs::path& file) {
        std::error_code ignored; // what cannot be looked at is not there
        facts_.there = fs::exists(file, ignored);
        Guard([&] {
            if (facts_.there) {
                reader_ = std::make_unique<NoteReader>(file);
                for (const auto& [name, value] : reader_->Facts(false)) {
                    if (name == "title") {
                        facts_.title = value;
                    }
                }
            }
        });
    }

    [[nodiscard]] bool IsReadable() const noexcept { return reader_ != nullptr; }
    [[nodiscard]] const NoteReader& Reader() const noexcept { return *reader_; }
    [[nodiscard]] const DatabaseFacts& Facts() const noexcept { return facts_; }

    /** Goes on to the next note and counts it. */
    void Next() {
        Guard([&] {
            if (reader_->Next()) {
                Count();
            }
        });
    }
    /** Whether there is no further note, or no readable one. */
    [[nodiscard]] bool AtEnd() const noexcept { return !reader_ || reader_->AtEnd(); }

    void CountAll() {
        for (Next(); !AtEnd();) {
            Next();
        }
    }

    /** Of the present note, or none when it cannot be read. */
    Items ReadItems() {
        Items items;
        Guard([&] { items = reader_->Items(); });
        return items;
    }

private:
    void Guard(const std::function<void()>& read) {
        try {
            read();
        } catch (const std::exception& error) {
            facts_.error = error.what();
            reader_.reset();
        }
    }

    void Count() {
        if (reader_->IsDocument()) {
            ++facts_.documents;
            return;
        }
        const Items items = reader_->Items();
        if ((reader_->Note().noteClass & NOTE_CLASS_REPLFORMULA) != 0) {
            facts_.replication.push_back(FirstLine(items, "$TITLE"));
            return;
        }
        if ((reader_->Note().noteClass & NOTE_CLASS_HELP) != 0) {
            facts_.builds.push_back(FirstLine(items, "BuildNumber"));
        }
        ++facts_.designNotes;
        if (const ItemValue* signature = FindItem(items, "$Signature"); signature != nullptr) {
            ++facts_.signedNotes;
            facts_.changedNotes += signature->values.back() != "unchanged since";
            if (const std::string signer = FirstLine(items, "$Signature");
                !signer.empty() && std::ranges::find(facts_.signers, signer) == facts_.signers.end()) {
                facts_.signers.push_back(signer);
            }
        }
    }

    DatabaseFacts facts_;
    std::unique_ptr<NoteReader> reader_;
};

std::string DocumentName(const Items& items) {
    for (const char* item : nameItems) {
        if (std::string name = FirstLine(items, item); !name.empty()) {
            return name;
        }
    }
    return {};
}

NoteGroup GroupOf(const NoteReader& reader) {
    const bool isReplication = (reader.Note().noteClass & NOTE_CLASS_REPLFORMULA) != 0;
    return reader.IsDocument() ? NoteGroup::documents : isReplication ? NoteGroup::replication : NoteGroup::design;
}

/** What is told of a note, but for its items. */
NoteChange Describe(const NoteReader& reader, const Items& items, Change change) {
    NoteChange note;
    note.change = change;
    note.unid = reader.Note().unidText;
    const bool isDocument = reader.IsDocument();
    note.group = GroupOf(reader);
    note.kind = isDocument ? FirstLine(items, "Form") : std::string(reader.Note().className);
    note.name = isDocument ? DocumentName(items) : FirstLine(items, "$TITLE");
    note.editors = EditorsIn(items);
    return note;
}

bool IsCompared(const NamedItem& item) {
    return !updkrx::EqualIgnoringAsciiCase(item.name, "$Revisions");
}

std::string LowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), updkrx::AsciiLower);
    return text;
}

/** The items that differ, in the order of their names. Of several items with one name the first is compared with the
 *  first, and so on. */
std::vector<ItemChange> CompareItems(const Items& before, const Items& after) {
    std::map<std::pair<std::string, size_t>, ItemChange> changes;
    const auto collect = [&](const Items& items, std::optional<ItemValue> ItemChange::*side) {
        std::map<std::string, size_t> seen;
        for (const NamedItem& item : items) {
            if (IsCompared(item)) {
                const std::string key = LowerCase(item.name);
                ItemChange& change = changes[{key, seen[key]++}];
                change.name = item.name;
                change.*side = item.value;
            }
        }
    };
    collect(before, &ItemChange::before);
    collect(after, &ItemChange::after);
    std::vector<ItemChange> different;
    for (auto& [key, change] : changes) {
        if (change.before != change.after) {
            different.push_back(std::move(change));
        }
    }
    return different;
}

/** A class stands among the items, under a name that no item has. */
Items WithClass(const Side& side, Items items) {
    if (!side.Reader().IsDocument()) {
        items.push_back({"(class)", {"class", "", {ClassText(side.Reader().Note())}}});
    }
    return items;
}

NoteChange OnlyOn(Side& side, Change change) {
    const Items items = side.ReadItems();
    if (!side.IsReadable()) {
        return {};
    }
    NoteChange note = Describe(side.Reader(), items, change);
    note.items =
        change == Change::added ? CompareItems({}, WithClass(side, items)) : CompareItems(WithClass(side, items), {});
    return note;
}

/** Nothing when the note is equal on both sides. */
std::optional<NoteChange> OnBoth(Side& before, Side& after) {
    if (before.Reader().Note().noteClass == after.Reader().Note().noteClass &&
        before.Reader().Encoded() == after.Reader().Encoded()) {
        return std::nullopt; // nearly all of them, and quickly
    }
    const Items old = before.ReadItems();
    const Items fresh = after.ReadItems();
    if (!before.IsReadable() || !after.IsReadable()) {
        return std::nullopt;
    }
    NoteChange note = Describe(after.Reader(), fresh, Change::changed);
    note.editors = EditorsIn(old);
    note.items = CompareItems(WithClass(before, old), WithClass(after, fresh));
    return note.items.empty() ? std::nullopt : std::optional(std::move(note));
}

/** Below 0 when the note of `before` comes first. A side that has ended comes last. */
int Order(const Side& before, const Side& after) {
    if (before.AtEnd() || after.AtEnd()) {
        return static_cast<int>(before.AtEnd()) - static_cast<int>(after.AtEnd());
    }
    return std::memcmp(&before.Reader().Note().unid, &after.Reader().Note().unid, sizeof(UNID));
}

std::vector<NoteChange> CompareNotes(Side& before, Side& after) {
    std::vector<NoteChange> notes;
    before.Next();
    after.Next();
    while (!before.AtEnd() || !after.AtEnd()) {
        const int order = Order(before, after);
        if (order < 0) {
            notes.push_back(OnlyOn(before, Change::removed));
        } else if (order > 0) {
            notes.push_back(OnlyOn(after, Change::added));
        } else if (auto note = OnBoth(before, after)) {
            notes.push_back(*std::move(note));
        }
        if (order <= 0 && before.IsReadable()) {
            before.Next();
        }
        if (order >= 0 && after.IsReadable()) {
            after.Next();
        }
        if (!before.IsReadable() || !after.IsReadable()) {
            return {};
        }
    }
    return notes;
}

bool IsSingle(const std::string& kind) {
    return kind == "helpaboutdocument" || kind == "icon" || kind == "helpindex" || kind == "helpusingdocument";
}

bool AreSameElement(const NoteChange& a, const NoteChange& b) {
    return a.group != NoteGroup::documents && a.group == b.group && a.kind == b.kind &&
           (IsSingle(a.kind) || a.name == b.name);
}

/** A design note that was removed and one of the same name that was added are one that has changed. */
void PairDesignNotes(std::vector<NoteChange>& notes) {
    for (NoteChange& removed : notes) {
        if (removed.change != Change::removed || removed.group == NoteGroup::documents) {
            continue;
        }
        const auto added = std::ranges::find_if(notes, [&](const NoteChange& note) {
            return note.change == Change::added && AreSameElement(note, removed);
        });
        if (added == notes.end()) {
            continue;
        }
        const auto itemsOf = [](NoteChange& note, std::optional<ItemValue> ItemChange::*side) {
            Items items;
            for (ItemChange& item : note.items) {
                items.push_back({item.name, *std::move(item.*side)});
            }
            return items;
        };
        added->items = CompareItems(itemsOf(removed, &ItemChange::before), itemsOf(*added, &ItemChange::after));
        added->change = Change::changed;
        added->editors = removed.editors;
        added->unidBefore = std::exchange(removed.unid, {}); // marks it as done
    }
    std::erase_if(notes, [](const NoteChange& note) { return note.unid.empty(); });
}

std::vector<SettingChange> CompareFacts(const NoteReader& before, const NoteReader& after, bool accessControl) {
    std::map<std::string, SettingChange> settings;
    const auto collect = [&](const NoteReader& reader, std::string SettingChange::*side) {
        for (const auto& [name, value] : reader.Facts(accessControl)) {
            settings[name].name = name;
            settings[name].*side += value;
        }
    };
    collect(before, &SettingChange::before);
    collect(after, &SettingChange::after);
    std::vector<SettingChange> different;
    for (auto& [name, setting] : settings) {
        if (setting.before != setting.after) {
            different.push_back(std::move(setting));
        }
    }
    return different;
}

/** Documents first, each kind by its name. */
void Sort(std::vector<NoteChange>& notes) {
    std::ranges::sort(notes, {}, [](const NoteChange& note) {
        return std::tuple(note.group, std::string_view(note.kind), std::string_view(note.name),
                          std::string_view(note.unid));
    });
}

bool IsDatabase(const fs::path& file) {
    return file.extension() == ".nsf" || file.extension() == ".ntf";
}

/** The files in a folder and the folders in it, by their names from there. */
std::set<std::string> FilesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            names.insert(entry.path().lexically_relative(folder).generic_string());
        }
    }
    return names;
}

void CompareFile(const std::string& name, const fs::path& before, const fs::path& after, ChangeReport& report) {
    if (!fs::exists(before)) {
        report.files.push_back({name, Change::added});
    } else if (!fs::exists(after)) {
        report.files.push_back({name, Change::removed});
    } else if (!HaveSameBytes(before, after)) {
        report.files.push_back({name, Change::changed});
    }
}

} // namespace

DatabaseChange CompareDatabases(const std::string& name, const fs::path& before, const fs::path& after) {
    DatabaseChange result;
    result.name = name;
    Side old(before);
    Side fresh(after);
    if (old.IsReadable() && fresh.IsReadable()) {
        result.settings = CompareFacts(old.Reader(), fresh.Reader(), false);
        result.accessControl = CompareFacts(old.Reader(), fresh.Reader(), true);
        result.notes = CompareNotes(old, fresh);
        PairDesignNotes(result.notes);
        Sort(result.notes);
    } else {
        for (Side* side : {&old, &fresh}) {
            if (side->IsReadable()) {
                side->CountAll();
            }
        }
    }
    result.before = old.Facts();
    result.after = fresh.Facts();
    return result;
}

bool HaveSameBytes(const fs::path& first, const fs::path& second) {
    constexpr std::streamsize chunk = 1 << 16;
    std::ifstream a(first, std::ios::binary);
    std::ifstream b(second, std::ios::binary);
    std::string bytesA(chunk, '\0');
    std::string bytesB(chunk, '\0');
    while (a && b) {
        a.read(bytesA.data(), chunk);
        b.read(bytesB.data(), chunk);
        if (a.gcount() != b.gcount() ||
            std::memcmp(bytesA.data(), bytesB.data(), static_cast<size_t>(a.gcount())) != 0) {
            return false;
        }
    }
    return a.eof() && b.eof();
}

void AddDatabase(DatabaseChange database, ChangeReport& report) {
    for (const DatabaseFacts* facts : {&database.before, &database.after}) {
        if (!facts->error.empty()) {
            report.errors.push_back({"unreadable-database", facts->error});
        }
    }
    if (database.IsEqual()) {
        ++report.equalDatabases;
    } else {
        report.databases.push_back(std::move(database));
    }
}

void CompareFolders(const DatabaseFolder& before, const DatabaseFolder& after, ChangeReport& report) {
    std::set<std::string> names = FilesIn(before.path);
    names.merge(FilesIn(after.path));
    for (const std::string& name : names) {
        const fs::path old = before.path / name;
        const fs::path fresh = after.path / name;
        if (!IsDatabase(name)) {
            CompareFile(name, old, fresh, report);
            continue;
        }
        DatabaseChange database = CompareDatabases(name, old, fresh);
        const auto state = [&](const DatabaseFolder& folder) {
            return folder.offline.contains(name) ? std::string("offline") : std::string("online");
        };
        if (database.before.there && database.after.there && state(before) != state(after)) {
            database.settings.push_back({"availability", state(before), state(after)});
        }
        AddDatabase(std::move(database), report);
    }
}

} // namespace krxpatch
