#include "state.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <string_view>
#include <vector>

#include "engine/database/signature.h"
#include "engine/store/store.h"
#include "engine/values/items.h"
#include "engine/values/status_error.h"
#include "foundation/unid_text.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;
using embedded::Items;
using embedded::ItemView;

/** The lists of DLP documents that name other documents. */
constexpr std::string_view references[] = {"ReferDocs", "UseDocs", "matchRule"};
/** What changes in a note while the rest of it stays. */
constexpr std::string_view otherItems[] = {"$Signature",  "BuildNumber", "$ConflictAction",
                                           "DefaultRule", "DocID",       "RefContent"};

/** Equal hashes, equal texts: of two halves, so that texts are not taken for one another. */
std::string HashOf(const std::string& text) {
    const std::hash<std::string_view> hash;
    char digest[33];
    (void)std::snprintf(digest, sizeof digest, "%016zx%016zx", hash(text), hash(text + '.'));
    return digest;
}

bool Contains(const auto& names, std::string_view name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

std::string TextOf(const ItemView& item) {
    return std::string(item.name) + '=' + std::to_string(item.type) + ',' + std::to_string(item.flags) + ',' +
           std::string(item.value) + '\n';
}

std::string UnidTextOf(const OID& oid) {
    char text[updkrx::unidTextSize];
    (void)std::snprintf(text, sizeof text, "%08X%08X%08X%08X", oid.File.Innards[1], oid.File.Innards[0],
                        oid.Note.Innards[1], oid.Note.Innards[0]);
    return text;
}

/** A list as it is when the references in it are repaired: rules with the replacing UNIDs, other lists without the
 *  vanished ones. */
std::string RepairedList(const Items& items, std::string_view name, const Replacements& replacements) {
    std::set<std::string> entries;
    for (const std::string_view entry : embedded::ItemEntries(items, name)) {
        std::string text(entry);
        for (const auto& [vanished, replacing] : replacements) {
            if (const size_t at = text.find(vanished); name == "matchRule" && at != std::string::npos) {
                text.replace(at, vanished.size(), replacing);
            }
        }
        if (!replacements.contains(text)) {
            entries.insert(text);
        }
    }
    std::string list(name);
    for (const std::string& entry : entries) {
        list += '\n' + entry;
    }
    return list;
}

/** The UNIDs in a document's lists of references. */
void AddReferences(const Items& items, std::set<std::string>& unids) {
    static const std::regex unid("[0-9A-F]{32}");
    for (const std::string_view name : references) {
        for (const std::string_view entry : embedded::ItemEntries(items, name)) {
            using Match = std::regex_iterator<std::string_view::const_iterator>;
            for (Match match(entry.begin(), entry.end(), unid); match != Match(); ++match) {
                unids.insert(match->str());
            }
        }
    }
}

/** The parts of a database's facets, in an order of their own: that of the notes changes. */
using Parts = std::map<std::string, std::multiset<std::string>>;

void AddNote(const embedded::NoteHead& head, Items items, bool isConf, const Replacements& replacements, Parts& parts) {
    if ((head.noteClass & NOTE_CLASS_REPLFORMULA) != 0) {
        parts["/replication"].insert(items.Encoded()); // under UNIDs that are made anew each time
        return;
    }
    embedded::ContractItems(items); // a note that stayed as it was opened to be signed has the same content
    const std::string unid = UnidTextOf(head.oid);
    std::string content = unid + std::to_string(head.noteClass);
    std::string place = "/";
    if (isConf && head.noteClass == NOTE_CLASS_DOCUMENT) {
        place += embedded::ItemText(items, "Form") + "/" + unid + "/";
        for (const std::string_view name : references) {
            content += RepairedList(items, name, replacements);
        }
    }
    embedded::ItemCursor cursor = items.Cursor();
    for (ItemView item{}; cursor.Next(item);) {
        if (Contains(otherItems, item.name) || Contains(references, item.name)) {
            parts[place + std::string(item.name)].insert(unid + TextOf(item));
        } else {
            content += TextOf(item);
        }
    }
    parts[place + "content"].insert(content);
}

State ReadDatabase(const fs::path& path, const Replacements& replacements) {
    constexpr size_t all = 1'000'000;
    Parts parts;
    const bool isConf = path.filename() == "krconf.nsf";
    std::set<std::string> present;
    std::set<std::string> referredTo;
    try {
        const auto store = embedded::Store::Open(path, embedded::StoreAccess::readOnly);
        for (const auto& [name, value] : store->Properties()) {
            if (name == embedded::property::replicaInfo) {
                parts["/replicaid"].insert(value.substr(0, sizeof(DBREPLICAINFO::ID)));
                parts["/replicaflags"].insert(value.substr(sizeof(DBREPLICAINFO::ID)));
            } else {
                const bool attribute = name.starts_with(embedded::property::attributePrefix);
                parts[attribute ? "/attributes" : "/" + name].insert(name + value);
            }
        }
        (void)store->Scan(0, all, [&](const embedded::NoteHead& head, std::string_view items) {
            if (!head.deleted) {
                AddNote(head, Items(std::string(items)), isConf, replacements, parts);
                present.insert(UnidTextOf(head.oid));
                AddReferences(Items(std::string(items)), referredTo);
            }
        });
        for (const std::string& unid : isConf ? referredTo : std::set<std::string>()) {
            if (!present.contains(unid)) {
                parts["/dangling/" + unid].insert("dangling");
            }
        }
    } catch (const embedded::StatusError& error) {
        parts = {{"/error", {error.what()}}};
    }
    State state;
    for (const auto& [facet, texts] : parts) {
        std::string whole;
        for (const std::string& text : texts) {
            whole += text;
        }
        state[facet] = HashOf(whole);
    }
    return state;
}

bool IsDatabase(const fs::path& file) {
    return file.extension() == ".nsf" || file.extension() == ".ntf";
}

const std::string copies = "data/krx.recovery/"; // krxpatch's safety copies, each by its ID

bool IsOfCopy(const fs::path& path) {
    return path.string().starts_with(copies);
}

/** What only tells of runs: it differs from one run to the next, and no run reads it. */
bool IsRecord(const fs::path& path) {
    return path == "notes.ini" || path == "console.log" || path.parent_path() == "data/krxtemp" ||
           path.filename() == "krxpatch.hold" || path == "krxpatch.history" ||
           (IsOfCopy(path) && path.filename() == "run");
}

/** A path without the ID of a safety copy, which is the time at which it was made. */
std::string WithoutId(const fs::path& path) {
    static const std::regex id("^" + copies + "[0-9a-z-]*"); // what stays tells of one that is being made
    return std::regex_replace(path.string(), id, copies + "ID");
}

/** What an ended run has left as safety copies: how many, whether their runs have ended, and every file in them, to the
 *  last byte: it is what stood there before the first of the runs. */
void AddCopies(const fs::path& server, const std::set<fs::path>& files, State& state) {
    size_t count = 0;
    for (const fs::path& path : files) {
        if (!IsOfCopy(path)) {
            continue;
        }
        const bool isMark = path.filename() == "run" || path.filename() == "ended";
        count += path.filename() == "run";
        state["copy" + WithoutId(path).substr(copies.size())] = isMark ? "there" : HashOf(ReadFile(server / path));
    }
    if (count != 0) {
        state["copies"] = std::to_string(count);
    }
}

std::set<fs::path> FilesOf(const fs::path& server) {
    std::set<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(server)) {
        if (entry.is_regular_file()) {
            files.insert(entry.path().lexically_relative(server));
        }
    }
    return files;
}

} // namespace

State ReadState(const fs::path& server, const Replacements& replacements) {
    static std::map<std::string, State> known; // most databases are as they were in an earlier state
    State state;
    const std::set<fs::path> files = FilesOf(server);
    AddCopies(server, files, state);
    for (const fs::path& path : files) {
        if (IsOfCopy(path)) {
            continue;
        }
        if (path.parent_path() == "data/krxtemp" && path.extension() != ".dbg") {
            state["file/" + path.string()] = "a file that is no log";
        }
        if (IsRecord(path) && path.filename() != "krxpatch.hold") {
            continue;
        }
        const std::string bytes = ReadFile(server / path);
        if (!IsDatabase(path)) {
            state["file/" + path.string()] = HashOf(bytes);
            continue;
        }
        state["file/" + path.string()] = "a database";
        const auto [facets, isNew] = known.try_emplace(path.string() + HashOf(bytes));
        if (isNew) {
            facets->second = ReadDatabase(server / path, replacements);
        }
        for (const auto& [name, value] : facets->second) {
            state[path.filename().string() + name] = value;
        }
    }
    return state;
}

void RecoverDatabases(const fs::path& server) {
    for (const fs::path& path : FilesOf(server)) {
        if (IsDatabase(path) && !IsOfCopy(path) && fs::exists(server / (path.string() + "-journal"))) {
            try {
                embedded::Store::Open(server / path, embedded::StoreAccess::readWrite)->Close();
            } catch (const embedded::StatusError&) {
                continue; // reading it will tell
            }
        }
    }
}

std::string ValueOf(const State& state, const std::string& facet) {
    const auto found = state.find(facet);
    return found == state.end() ? "" : found->second;
}

std::set<std::string> Differences(const State& a, const State& b) {
    std::vector<State::value_type> different;
    std::ranges::set_symmetric_difference(a, b, std::back_inserter(different));
    std::set<std::string> facets;
    for (const auto& [facet, value] : different) {
        facets.insert(facet);
    }
    return facets;
}

std::string DigestOf(const fs::path& server) {
    std::string all;
    for (const fs::path& path : FilesOf(server)) {
        if (!IsRecord(path)) {
            const bool isMark = IsOfCopy(path) && path.filename() == "ended";
            all += WithoutId(path) + '\0' + (isMark ? "" : HashOf(ReadFile(server / path)));
        }
    }
    return HashOf(all);
}

std::string ReadFile(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace sweep
