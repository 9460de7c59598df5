#include "end_state.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "common/ascii_text.h"
#include "database_diff.h"
#include "database_report.h"
#include "embedded_notes.h"
#include "foundation/dlp_forms.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
#include "log_follower.h"
#include "log_lines.h"
#include "note_reader.h"
#include "patch_entries.h"
#include "platform.h"
#include "session_view.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;
using Items = std::vector<NamedItem>;

/** The module's log has it at the beginning of each run. */
constexpr std::string_view beginOfRun = "===============Begin update database========";

std::string ServerName() {
    char lmbcs[MAXENVVALUE];
    if (!updkrx::GetEnvironmentText("MailServer", lmbcs, sizeof lmbcs)) {
        return {};
    }
    char native[4 * MAXENVVALUE];
    updkrx::ToNative(lmbcs, native, sizeof native);
    return platform::Utf8FromNative(native);
}

/** Null when it is none of the databases of the product's table; their templates are none. */
const updkrx::ProductDatabase* ProductOf(const std::string& name) {
    const updkrx::ProductDatabase* product = FindProduct(name);
    return product != nullptr && name == product->databaseName ? product : nullptr;
}

bool Has(const std::vector<std::string>& texts, const std::string& text) {
    return std::ranges::find(texts, text) != texts.end();
}

/** A few of many, in one text. */
std::string SomeOf(const std::vector<std::string>& texts) {
    constexpr size_t shown = 3;
    std::vector<std::string> some(texts.begin(),
                                  texts.begin() + static_cast<std::ptrdiff_t>(std::min(shown, texts.size())));
    return Join(some) + (texts.size() > shown ? " and " + std::to_string(texts.size() - shown) + " more" : "");
}

std::string InQuotes(const std::string& text) {
    return '"' + text + '"';
}

// ---- The notes that a run leaves

/** What one item of a replication note is to be. */
struct ExpectedItem {
    const char* name;
    std::vector<std::string> values;
};

/** Why the replication notes of a database are not as they should be; empty when they are. */
std::string ProblemOfReplication(const fs::path& file, const std::string& server) {
    const ExpectedItem expected[] = {{"$TITLE", {server}},
                                     {"$ReplVersion", {"2"}},
                                     {"$ReplSrcServers", {"-"}},
                                     {"$ReplClassMasks", {"2047"}},
                                     {"$ReplFormula", {"SELECT @All"}}};
    std::vector<std::string> titles;
    std::string problem;
    for (NoteReader reader(file); reader.Next();) {
        if ((reader.Note().noteClass & NOTE_CLASS_REPLFORMULA) == 0) {
            continue;
        }
        const Items items = reader.Items();
        titles.push_back(InQuotes(FirstLine(items, "$TITLE")));
        for (const ExpectedItem& item : expected) {
            const ItemValue* value = FindItem(items, item.name);
            if (problem.empty() && (value == nullptr || value->values != item.values)) {
                problem = "the replication note " + titles.back() + " has another " + item.name + " than " +
                          InQuotes(Join(item.values));
            }
        }
    }
    if (titles.empty()) {
        return "there is no replication note";
    }
    return titles.size() == 1
               ? problem
               : "there are " + std::to_string(titles.size()) + " replication notes and not one: " + SomeOf(titles);
}

/** The documents of the present format have a version with a dot, or none. */
std::vector<std::string> OldPatternVersions(const fs::path& file) {
    std::vector<std::string> versions;
    for (NoteReader reader(file); reader.Next();) {
        if (!reader.IsDocument()) {
            continue;
        }
        const Items items = reader.Items();
        const ItemValue* version = FindItem(items, "InternalPVer");
        if (version != nullptr && updkrx::EqualIgnoringAsciiCase(FirstLine(items, "Form"), "Patternfile") &&
            FirstLine(items, "InternalPVer").find('.') == std::string::npos) {
            versions.push_back(InQuotes(FirstLine(items, "InternalPVer")));
        }
    }
    return versions;
}

/** References of DLP documents to documents that there are not. */
std::vector<std::string> DanglingReferences(const fs::path& file) {
    std::map<std::string, std::string> references; // UNID, and who refers to it
    std::set<std::string> documents;
    for (NoteReader reader(file); reader.Next();) {
        if (!reader.IsDocument()) {
            continue;
        }
        documents.insert(reader.Note().unidText);
        // Names of items stand in the encoded form as they are: most documents have no such lists.
        if (reader.Encoded().find("Docs") == std::string_view::npos) {
            continue;
        }
        const Items items = reader.Items();
        const std::string form = FirstLine(items, "Form");
        if (std::ranges::none_of(updkrx::DlpForms,
                                 [&](const char* dlp) { return updkrx::EqualIgnoringAsciiCase(form, dlp); })) {
            continue;
        }
        for (const char* list : {"ReferDocs", "UseDocs"}) {
            const ItemValue* value = FindItem(items, list);
            for (const std::string& unid : value == nullptr ? std::vector<std::string>() : value->values) {
                if (!unid.empty()) {
                    std::string place = list;
                    place.append(" of ").append(form).append(" ").append(InQuotes(FirstLine(items, "name")));
                    references.emplace(unid, place.append(" names ").append(unid));
                }
            }
        }
    }
    std::vector<std::string> dangling;
    for (const auto& [unid, reference] : references) {
        if (!documents.contains(unid)) {
            dangling.push_back(reference);
        }
    }
    return dangling;
}

/** What of an installed file is not as the patch delivers it: design notes, and documents that are no longer there. */
std::vector<std::string> UnlikeDelivered(const fs::path& delivered, const fs::path& installed) {
    std::vector<std::string> unlike;
    for (const NoteChange& note : CompareDatabases(installed.filename().string(), delivered, installed).notes) {
        const bool stamped =
            note.change == Change::changed && std::ranges::all_of(note.items, [](const ItemChange& item) {
                return item.name == "$Signature" || item.name == "BuildNumber";
            });
        const bool lost = note.group == NoteGroup::documents && note.change == Change::removed;
        if (lost || (note.group == NoteGroup::design && !stamped)) {
            unlike.push_back((lost ? "lost " : "") + note.kind + " " + InQuotes(note.name));
        }
    }
    return unlike;
}

// ---- The examination

class Examination {
public:
    Examination(const ServerFolder& server, const PatchFacts& facts)
        : server_(server), facts_(facts), id_(IdInUse()), mailServer_(ServerName()) {}

    std::vector<Finding> Run() {
        const std::vector<DatabaseReport> reports = ReadDatabases(server_.DatabaseNames());
        if (const UpgradeState state = CompareWithBuild(reports, *facts_.patchBuild);
            state.behind.size() == state.databases) {
            Fail("server", "it has not been upgraded: no database carries build " + BuildText(*facts_.patchBuild),
                 CommandOn(server_.Path(), "run") + " upgrades it; after a run, " +
                     CommandOn(server_.Path(), "log", "--errors") + " tells why it did not");
            return std::move(findings_);
        }
        for (const DatabaseReport& report : reports) {
            Examine(report);
        }
        for (const std::string& name : facts_.entries) {
            ExamineDelivered(name);
        }
        ExamineLeftovers();
        ExamineConsole();
        ExamineLog();
        return std::move(findings_);
    }

private:
    void Fail(const std::string& subject, const std::string& text, const std::string& remedy) {
        findings_.push_back({Level::failure, subject, {}, 0, text, remedy});
    }
    void Warn(const std::string& subject, const std::string& text, const std::string& remedy) {
        findings_.push_back({Level::warning, subject, {}, 0, text, remedy});
    }

    [[nodiscard]] std::string PutBackOrAgain() const {
        return CommandOn(server_.Path(), "restore") +
               " puts the server back as it was; then the upgrade can be run again";
    }

    void Examine(const DatabaseReport& report) {
        const updkrx::ProductDatabase* product = ProductOf(report.name);
        if (product == nullptr && !Has(facts_.entries, report.name)) {
            return; // not the upgrade's
        }
        const size_t before = findings_.size();
        if (report.offline) {
            Fail(report.name, "is offline", "bring it online, when nothing is wrong with it");
        } else if (!report.error.empty()) {
            Fail(report.name, report.missing ? "is missing" : "cannot be read: " + report.error, PutBackOrAgain());
        } else {
            try {
                ExamineReadable(report, product);
            } catch (const std::exception& error) {
                Fail(report.name, error.what(), PutBackOrAgain());
            }
        }
        if (findings_.size() == before) {
            findings_.push_back({Level::ok,
                                 report.name,
                                 {},
                                 0,
                                 BuildsOf(report) + ", " + std::to_string(report.signedNotes) + " of " +
                                     std::to_string(report.designNotes) + " design notes signed" +
                                     (report.designHidden ? ", design hidden" : ""),
                                 ""});
        }
    }

    void ExamineReadable(const DatabaseReport& report, const updkrx::ProductDatabase* product) {
        const fs::path file = server_.ProductFolder() / report.name;
        if (product != nullptr && !CarriesBuild(report)) {
            Fail(report.name, "carries build " + BuildsOf(report) + " and not " + BuildText(*facts_.patchBuild),
                 PutBackOrAgain());
        }
        if (product != nullptr || facts_.signsDelivered) {
            ExamineSignatures(report);
        }
        if (Has(facts_.entries, report.name) && !report.designHidden) {
            Fail(report.name, "its design is not hidden", PutBackOrAgain());
        }
        if (product == nullptr) {
            return;
        }
        if (product->templateName != nullptr && Has(facts_.entries, product->templateName)) {
            ExamineDesign(report.name, product->templateName);
        }
        if (const std::string problem = ProblemOfReplication(file, mailServer_); !problem.empty()) {
            Fail(report.name, problem, "set the replication settings by hand, or restore and run again");
        }
        if (report.name == "krency.nsf") {
            const fs::path source = server_.ProductFolder() / "krency.ntf";
            if (!HasDocuments(file) && fs::exists(source) && HasDocuments(source)) {
                Fail(report.name, "has no documents, though krency.ntf has some", PutBackOrAgain());
            }
            if (const auto old = OldPatternVersions(file); !old.empty()) {
                Fail(report.name, "is of the old format: pattern versions without a dot: " + SomeOf(old),
                     "see that krency.ntf is installed, restore and run again");
            }
        }
        if (report.name == "krconf.nsf") {
            if (const auto dangling = DanglingReferences(file); !dangling.empty()) {
                Fail(report.name,
                     Counted(dangling.size(), "reference") + " to a document that is not there: " + SomeOf(dangling),
                     "open the documents and choose again what they use");
            }
        }
    }

    [[nodiscard]] bool CarriesBuild(const DatabaseReport& report) const {
        return std::ranges::none_of(CompareWithBuild({report}, *facts_.patchBuild).behind,
                                    [&](const DatabaseReport& behind) { return behind.name == report.name; });
    }

    void ExamineSignatures(const DatabaseReport& report) {
        constexpr const char* remedy = "sign the database with the server's ID";
        if (report.signedNotes != report.designNotes) {
            Fail(report.name,
                 std::to_string(report.designNotes - report.signedNotes) + " of " +
                     Counted(report.designNotes, "design note") + " not signed",
                 remedy);
        }
        if (report.changedNotes != 0) {
            Fail(report.name, Counted(report.changedNotes, "design note") + " changed since signed", remedy);
        }
        for (const std::string& signer : report.signers) {
            if (signer != id_) {
                Fail(report.name, "has design notes signed by " + signer + " and not by " + id_, remedy);
            }
        }
    }

    void ExamineDesign(const std::string& name, const std::string& templateName) {
        const std::string path = "krx/" + name;
        const std::string templatePath = "krx/" + templateName;
        DWORD count = 0;
        std::string text(1 << 16, '\0');
        if (EmbDesignCompare(path.c_str(), templatePath.c_str(), &count, text.data(),
                             static_cast<DWORD>(text.size())) != NOERROR) {
            Fail(name, "its design cannot be compared with that of " + templateName, PutBackOrAgain());
            return;
        }
        const fs::path folder = server_.ProductFolder();
        if (count == 0 || UnlikeDelivered(folder / templateName, folder / name).empty()) {
            return; // one that was made anew is a copy of the template, and not made to inherit from it
        }
        std::vector<std::string> differences;
        std::istringstream lines(text.c_str());
        for (std::string kind, noteClass, title;
             std::getline(lines, kind, '\t') && std::getline(lines, noteClass, '\t') && std::getline(lines, title);) {
            differences.push_back(kind.append(" ").append(noteClass).append(" ").append(InQuotes(title)));
        }
        Fail(name, "its design is not that of " + templateName + ": " + SomeOf(differences),
             "send the console `load convert " + path + " * " + templatePath + "` and sign the database");
    }

    void ExamineDelivered(const std::string& name) {
        if (name.empty()) {
            return;
        }
        const fs::path delivered = facts_.programFolder / name;
        const fs::path installed = server_.ProductFolder() / name;
        if (!fs::exists(installed)) {
            if (ProductOf(name) == nullptr) { // of which it is told already
                Fail(name, "is not installed", PutBackOrAgain());
            }
            return;
        }
        if (!fs::exists(delivered)) {
            Fail(name, "the patch does not bring it: " + delivered.string() + " is missing",
                 "complete the patch, restore and run again");
            return;
        }
        if (!name.ends_with(".nsf") && !name.ends_with(".ntf")) {
            if (!HaveSameBytes(delivered, installed)) {
                Fail(name, "is not the file that the patch delivers", "copy " + delivered.string() + " over it");
            }
            return;
        }
        if (const auto unlike = UnlikeDelivered(delivered, installed); !unlike.empty()) {
            Fail(name, "is not what the patch delivers: " + SomeOf(unlike), PutBackOrAgain());
        }
    }

    void ExamineLeftovers() {
        for (const fs::directory_entry& entry : fs::directory_iterator(server_.ProductFolder())) {
            const std::string name = entry.path().filename().string();
            if (name.find(".updkrx-") != std::string::npos) {
                Fail(name, "is left of an upgrade that could not finish its work on the database", PutBackOrAgain());
            }
        }
    }

    /** The last outcome of each command that an upgrade sends, as far as the server's console has a record. */
    void ExamineConsole() {
        const fs::path log = server_.ConsoleLog();
        std::ifstream stream(log);
        if (!stream) {
            Warn("console", "there is no record of the commands that an upgrade sends: " + log.string(),
                 "see in the server's own log that they were carried out");
            return;
        }
        std::map<std::string, std::string> outcomes;
        for (std::string line; std::getline(stream, line);) {
            std::istringstream fields(line);
            std::string time, outcome, command;
            if (std::getline(fields, time, '\t') && std::getline(fields, outcome, '\t') &&
                std::getline(fields, command)) {
                outcomes[command] = outcome;
            }
        }
        for (const std::string& command : ExpectedCommands()) {
            const auto found = outcomes.find(command);
            if (found == outcomes.end()) {
                Warn("console", "there is no record that `" + command + "` was sent", "send it, if it was not");
            } else if (!ConsoleCommand{found->first, found->second}.Succeeded()) {
                Fail("console", "`" + command + "` ended with: " + found->second, "send it again");
            }
        }
    }

    /** A write that failed and is not seen above has been made up for, or was to a note that nothing here looks at. */
    void ExamineLog() {
        std::string first;
        size_t failures = 0;
        for (const LoggedLine& line : LogFollower(server_.LogFolder(), LogFollower::From::beginning).TakeNewLines()) {
            if (line.message == beginOfRun) {
                failures = 0;
            } else if (KindOf(line.message) == LineKind::failure && ++failures == 1) {
                first = line.message;
            }
        }
        if (failures > 0) {
            Warn("module's log",
                 std::to_string(failures) + (failures == 1 ? " failure" : " failures, of which the first is") + ": " +
                     Printable(first),
                 CommandOn(server_.Path(), "log", "--errors") +
                     " shows and explains them; what was not made up for stands above");
        }
    }

    [[nodiscard]] std::vector<std::string> ExpectedCommands() const {
        std::vector<std::string> commands;
        for (const std::string& name : facts_.entries) {
            if (name.ends_with(".ntf")) {
                const std::string stem = name.substr(0, name.size() - 4);
                std::string command = "load convert krx/";
                commands.push_back(command.append(stem).append(".nsf * krx/").append(name));
            }
            if (name == "krconf.ntf") {
                commands.emplace_back("load design -f krx/krconf.nsf");
            }
        }
        if (!commands.empty()) {
            commands.emplace_back("tell krxreal restart");
        }
        return commands;
    }

    const ServerFolder& server_;
    const PatchFacts& facts_;
    std::string id_;
    std::string mailServer_;
    std::vector<Finding> findings_;
};

} // namespace

std::vector<Finding> ExamineEndState(const ServerFolder& server, const PatchFacts& facts) {
    return Examination(server, facts).Run();
}

} // namespace krxpatch
