#include "lost_changes.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "common/ascii_text.h"
#include "foundation/install_paths.h"
#include "note_reader.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** Items that the product keeps itself. */
constexpr const char* ownItems[] = {"$Signature", "$UpdatedBy", "$Revisions", "(class)", "BuildNumber",
                                    "DocID",      "RefContent", "ReferDocs",  "UseDocs"};

bool IsOwnItem(const std::string& name) {
    return std::ranges::any_of(ownItems, [&](const char* own) { return updkrx::EqualIgnoringAsciiCase(name, own); });
}

bool IsValueLost(const ItemChange& item) {
    if (!item.before || IsOwnItem(item.name)) {
        return false;
    }
    return std::ranges::any_of(item.before->values, [&](const std::string& value) {
        return !value.empty() &&
               (!item.after || std::ranges::find(item.after->values, value) == item.after->values.end());
    });
}

using Items = std::vector<NamedItem>;

/** The notes of a template that matter here, and who made them. */
class Template {
public:
    explicit Template(const std::optional<fs::path>& file, const std::vector<NoteChange>& changes) {
        if (!file) {
            return;
        }
        name_ = file->filename().string();
        for (const NoteChange& note : changes) {
            wanted_.insert(UnidBefore(note));
        }
        try {
            Read(*file);
        } catch (const std::exception&) {
            notes_.clear(); // as if it were missing
            designNotes_.clear();
        }
    }

    [[nodiscard]] const std::string& Name() const noexcept { return name_; }
    [[nodiscard]] const Items* Find(const NoteChange& note) const {
        if (const auto found = notes_.find(UnidBefore(note)); found != notes_.end()) {
            return &found->second;
        }
        const auto found = designNotes_.find({note.kind, note.name});
        return note.group == NoteGroup::documents || found == designNotes_.end() ? nullptr : &found->second;
    }
    /** Whether all of them made notes of this template. */
    [[nodiscard]] bool AreMakers(const std::vector<std::string>& names, const std::string& serverName) const {
        return std::ranges::all_of(
            names, [&](const std::string& name) { return name == serverName || makers_.contains(name); });
    }

private:
    static const std::string& UnidBefore(const NoteChange& note) {
        return note.unidBefore.empty() ? note.unid : note.unidBefore;
    }

    void Read(const fs::path& file) {
        NoteReader reader(file);
        while (reader.Next()) {
            Items items = reader.Items();
            for (std::string& editor : EditorsIn(items)) {
                makers_.insert(std::move(editor));
            }
            if (wanted_.contains(reader.Note().unidText)) {
                notes_[reader.Note().unidText] = items;
            }
            if (!reader.IsDocument()) {
                designNotes_[{reader.Note().className, FirstLine(items, "$TITLE")}] = std::move(items);
            }
        }
    }

    std::string name_;
    std::set<std::string> wanted_;
    std::map<std::string, Items> notes_; // by UNID
    std::map<std::pair<std::string, std::string>, Items> designNotes_;
    std::set<std::string> makers_;
};

/** The program folders before the patch's, the newest first. */
std::vector<fs::path> EarlierProgramFolders(const fs::path& program) {
    const auto versionOf = [](const fs::path& folder) {
        return updkrx::ParseVersionDirName(folder.filename().string());
    };
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(program.parent_path())) {
        if (entry.is_directory() && versionOf(entry.path()) < versionOf(program)) {
            folders.push_back(entry.path());
        }
    }
    std::ranges::sort(folders, [&](const fs::path& a, const fs::path& b) { return versionOf(a) > versionOf(b); });
    return folders;
}

std::optional<fs::path> FirstThere(const std::vector<fs::path>& files) {
    std::error_code ignored; // what cannot be looked at is not there
    const auto found = std::ranges::find_if(files, [&](const fs::path& file) { return fs::exists(file, ignored); });
    return found == files.end() ? std::nullopt : std::optional(*found);
}

std::optional<fs::path> TemplateBefore(const TemplateFolders& folders, const std::string& stem) {
    std::vector<fs::path> files = {folders.products / (stem + ".ntf")};
    for (const fs::path& program : EarlierProgramFolders(folders.program)) {
        files.push_back(program / (stem + ".ntf"));
        files.push_back(program / (stem + ".nsf"));
    }
    return FirstThere(files);
}

class Judge {
public:
    Judge(const DatabaseChange& database, const TemplateFolders& folders, const std::string& stem)
        : before_(TemplateBefore(folders, stem), database.notes),
          patch_(FirstThere({folders.program / (stem + ".ntf"), folders.program / (stem + ".nsf")}), {}),
          serverName_(folders.serverName) {}

    /** Why something of the customer's gets lost with this change; empty when nothing does. */
    [[nodiscard]] std::string WhyLost(const NoteChange& note) const {
        std::vector<ItemChange> lost;
        std::ranges::copy_if(note.items, std::back_inserter(lost), IsValueLost);
        if (lost.empty()) {
            return {};
        }
        if (const Items* delivered = before_.Find(note); delivered != nullptr) {
            std::erase_if(lost, [&](const ItemChange& item) {
                const ItemValue* value = FindItem(*delivered, item.name);
                return value != nullptr && value->values == item.before->values;
            });
            return lost.empty() ? "" : "not as " + before_.Name() + " had delivered it: " + NamesOf(lost);
        }
        if (!note.editors.empty()) {
            return patch_.AreMakers(note.editors, serverName_) ? "" : WhoseChange(note) + ": " + NamesOf(lost);
        }
        if (note.group == NoteGroup::replication) {
            return "replication settings that the upgrade does not keep";
        }
        if (note.group == NoteGroup::documents) {
            return "nothing tells who has saved it: " + NamesOf(lost);
        }
        return note.change == Change::removed ? "no template is known that brings it" : "";
    }

private:
    static std::string NamesOf(const std::vector<ItemChange>& items) {
        std::vector<std::string> names;
        for (const ItemChange& item : items) {
            if (item.name != "Form") {
                names.push_back(item.name);
            }
        }
        return Join(names);
    }

    [[nodiscard]] std::string WhoseChange(const NoteChange& note) const {
        std::vector<std::string> names;
        std::ranges::copy_if(note.editors, std::back_inserter(names),
                             [&](const std::string& name) { return !patch_.AreMakers({name}, serverName_); });
        return "saved or signed by " + Join(names);
    }

    Template before_;
    Template patch_;
    std::string serverName_;
};

} // namespace

void MarkLostChanges(ChangeReport& report, const TemplateFolders& folders) {
    for (DatabaseChange& database : report.databases) {
        if (!database.name.ends_with(".nsf")) {
            continue; // what a template holds is the product's
        }
        const Judge judge(database, folders, database.name.substr(0, database.name.size() - 4));
        for (NoteChange& note : database.notes) {
            if (note.change != Change::added) {
                note.lost = judge.WhyLost(note);
            }
        }
    }
}

} // namespace krxpatch
