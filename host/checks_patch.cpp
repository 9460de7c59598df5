// The checks of krxpatch.ini, and of what the patch brings.
#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <set>

#include "checks.h"
#include "common/ascii_text.h"
#include "note_reader.h"
#include "patch_entries.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view section = "config";
constexpr std::array<std::string_view, 5> keys = {"Files", "BuildNumber", "Databases", "UpdateExt", "SkipDbSign"};

std::optional<ConfigLine> FindKey(const CheckSubject& subject, std::string_view key) {
    return subject.patch.Find(section, key);
}

size_t LineOf(const CheckSubject& subject, std::string_view key) {
    const auto line = FindKey(subject, key);
    return line ? line->number : 0;
}

/** What keeps the product from reading the file at all; the checks of its content then have nothing to say. */
bool IsReadable(const CheckSubject& subject) {
    const std::string& bytes = subject.patch.Bytes();
    return !bytes.empty() && !bytes.starts_with("\xEF\xBB\xBF") && bytes.find('\0') == std::string::npos;
}

void CheckFile(const CheckSubject& subject, Findings& findings) {
    const std::string& bytes = subject.patch.Bytes();
    if (IsReadable(subject)) {
        return;
    }
    if (bytes.starts_with("\xEF\xBB\xBF")) {
        findings.Fail(subject.patchFile, 1,
                      "begins with a byte-order mark, so that its first section is not recognised",
                      "save the file as plain text without a byte-order mark");
    } else if (!bytes.empty()) {
        findings.Fail(subject.patchFile, 1, "is UTF-16, of which the product reads nothing",
                      "save the file as plain text (ANSI or UTF-8 without a byte-order mark)");
    } else {
        findings.Fail({}, 0, subject.facts.problem.empty() ? "krxpatch.ini is empty" : subject.facts.problem,
                      "install the patch's program folder again, or let this user read it");
    }
}

void CheckKeys(const CheckSubject& subject, Findings& findings) {
    if (!IsReadable(subject)) {
        return;
    }
    const fs::path& file = subject.patchFile;
    std::map<std::string, size_t> seen;
    size_t end = 0;
    for (const ConfigLine& line : subject.patch.Lines()) {
        if (end == 0 && LowerCase(line.text) == "[end]") {
            end = line.number;
        }
        const std::string bare = WithoutBlanks(line.key);
        const auto key =
            std::ranges::find_if(keys, [&](std::string_view each) { return LowerCase(each) == LowerCase(bare); });
        if (key == keys.end()) {
            if (line.section == section && !bare.empty() && !bare.starts_with(';')) {
                findings.Warn(file, line.number, bare + "= is nothing that the product reads", "look at its spelling");
            }
            continue;
        }
        const std::string name(*key);
        if (line.section != section) {
            findings.Warn(file, line.number,
                          name + "= does not stand in section [Config]" +
                              (end != 0 ? ", but behind [END], where nothing is read" : ""),
                          "move the line below [Config]");
        } else if (line.key != bare) {
            findings.Fail(file, line.number, "a blank at the name " + name + ": the key is not recognised",
                          "write " + name + "= without blanks");
        } else if (line.value != WithoutBlanks(line.value)) {
            findings.Fail(file, line.number, "a blank at the value of " + name + "=: it would count as part of it",
                          "remove the blanks");
        } else if (const auto [first, isNew] = seen.try_emplace(name, line.number); !isNew) {
            findings.Warn(file, line.number,
                          "a second line " + name + "=, which does not count: line " + std::to_string(first->second) +
                              " does",
                          "remove one of the two");
        }
    }
    for (const std::string_view key : {"Files", "BuildNumber", "Databases"}) {
        const auto line = FindKey(subject, key);
        if (!line || (line->value.empty() && key != "Files")) {
            findings.Fail(file, line ? line->number : 0,
                          "no " + std::string(key) + " in section Config: the upgrade would " +
                              (key == "Databases" ? "replace, stamp and sign nothing" : "not begin"),
                          "use the krxpatch.ini that came with the patch");
        }
    }
}

void CheckBuildNumber(const CheckSubject& subject, Findings& findings) {
    const auto line = FindKey(subject, "BuildNumber");
    if (!IsReadable(subject) || !line || line->value.empty()) {
        return;
    }
    const std::string& value = line->value;
    const int32_t build = updkrx::NumberOf(value);
    const auto fail = [&](const std::string& message, const std::string& remedy) {
        findings.Fail(subject.patchFile, line->number, "BuildNumber=" + value + " " + message, remedy);
    };
    const std::string own = "BuildNumber=" + std::to_string(subject.facts.installedBuild.value_or(3050));
    if (value.find_first_not_of("0123456789") != std::string::npos) {
        fail("is no build number: it is read as " + std::to_string(build),
             "write the last number of the patch's build alone, such as " + own);
    } else if (build <= 0 || build == std::numeric_limits<int32_t>::max()) {
        fail("is no build number", "write the patch's own, such as " + own);
    } else if (const auto installed = subject.facts.installedBuild; installed && build != *installed) {
        fail(std::string("is ") + (build > *installed ? "above" : "below") + " that of its own folder, " +
                 subject.facts.programFolder.filename().string() +
                 ": the databases would be stamped with a build that is not installed, or not at all",
             "install the program of that build, or use the krxpatch.ini that came with this one");
    } else if (const int32_t carried = HighestBuild(subject.databases); build < carried) {
        findings.Warn(subject.patchFile, line->number,
                      "BuildNumber=" + value + " is below what databases carry, " + std::to_string(carried),
                      "install the newest patch");
    }
}

void CheckEntries(const CheckSubject& subject, Findings& findings) {
    const fs::path& file = subject.patchFile;
    const size_t line = LineOf(subject, "Databases");
    std::set<std::string> seen;
    for (const std::string& entry : subject.facts.entries) {
        const std::string name = "Databases=: " + entry;
        if (entry.empty()) {
            findings.Fail(file, line, "Databases= has an entry without a name", "remove the comma too much");
            continue;
        }
        if (entry.find_first_of("/\\") != std::string::npos) {
            findings.Fail(file, line, "Databases= names " + entry + ", which is a path and no file name",
                          "write the file's name alone");
            continue;
        }
        if (!seen.insert(LowerCase(entry)).second) {
            findings.Warn(file, line, name + " is there twice, and would be replaced twice", "remove one of the two");
        }
        const updkrx::ProductDatabase* product = FindProduct(entry);
        const std::string meant = LowerCase(WithoutBlanks(entry));
        if (product != nullptr && product->templateName != nullptr && entry == product->databaseName) {
            findings.Fail(file, line, name + " is the server's own: it would be replaced with all its documents",
                          std::string("write ") + product->templateName + ", from which it gets its design");
        } else if (product == nullptr && entry != policyFile) {
            findings.Warn(file, line, name + " is no file of the product's",
                          FindProduct(meant) != nullptr ? "write " + meant + ", in small letters and without blanks"
                                                        : "remove it, unless the patch's notes name it");
        }
    }
    for (const updkrx::ProductDatabase& product : updkrx::ProductDatabases) {
        if (product.templateName != nullptr && !subject.facts.entries.empty() && !seen.contains(product.templateName)) {
            findings.Fail(file, line,
                          std::string("Databases= lacks ") + product.templateName + ": " + product.databaseName +
                              " would be stamped with the new build and keep its old design",
                          "use the krxpatch.ini that came with the patch");
        }
    }
}

void CheckDelivered(const CheckSubject& subject, Findings& findings) {
    const size_t line = LineOf(subject, "Databases");
    for (const std::string& missing : subject.facts.undelivered) {
        findings.Fail(subject.patchFile, line, missing + ": cannot be read, though Databases= names it",
                      "install the patch's program folder again");
    }
    for (const std::string& entry : subject.facts.entries) {
        const fs::path target = subject.server.ProductFolder() / entry;
        if (std::error_code ignored; !entry.empty() && fs::is_directory(target, ignored)) {
            findings.Fail(target, 0, "is a folder, where the patch puts a file", "remove it, or give it another name");
        }
    }
    for (const DatabaseReport& report : subject.delivered) {
        const fs::path file = subject.facts.programFolder / report.name;
        if (!report.error.empty()) {
            findings.Fail(file, 0, report.error, "install the patch's program folder again");
        } else if (const auto& build = subject.facts.patchBuild;
                   build && !report.builds.empty() && HighestBuild({report}) != *build) {
            findings.Fail(file, 0, "is of build " + BuildsOf(report) + ", and the patch of " + BuildText(*build),
                          "make sure that the patch is complete and of one build");
        }
    }
}

/** What a delivered file replaces, or gives its design to. */
const DatabaseReport* FindReplaced(const CheckSubject& subject, const DatabaseReport& delivered) {
    const updkrx::ProductDatabase* product = FindProduct(delivered.name);
    const auto found = std::ranges::find_if(subject.databases, [&](const DatabaseReport& report) {
        return product != nullptr && report.name == product->databaseName && report.error.empty();
    });
    return found == subject.databases.end() ? nullptr : &*found;
}

/** A new version may well do without a form; one that has lost most of them is no whole template. */
void CheckDesign(const fs::path& file, const DatabaseReport& delivered, const DatabaseReport& database,
                 Findings& findings) {
    if (delivered.formsAndViews < database.formsAndViews) {
        findings.Add({2 * delivered.formsAndViews < database.formsAndViews ? Level::failure : Level::warning,
                      {},
                      file,
                      0,
                      "has " + std::to_string(delivered.formsAndViews) + " forms and views, and " + database.name +
                          " has " + std::to_string(database.formsAndViews) + ": it would lose the others",
                      "make sure that the patch is whole"});
    }
}

/** Converting a database to a template of another kind takes its design away. */
void CheckKinds(const CheckSubject& subject, Findings& findings) {
    for (const DatabaseReport& delivered : subject.delivered) {
        const DatabaseReport* database = FindReplaced(subject, delivered);
        if (database == nullptr || !delivered.error.empty()) {
            continue;
        }
        if (database->designNotes == 0) {
            findings.Fail(subject.server.ProductFolder() / database->name, 0, "is empty: it has no design",
                          "put the database back from the backup");
            continue;
        }
        const fs::path file = subject.facts.programFolder / delivered.name;
        const std::string remedy = "put the right file there; it has the design of " + delivered.title;
        const bool named = !delivered.templateName.empty() && !database->inheritsFrom.empty();
        if (named && delivered.templateName != database->inheritsFrom) {
            findings.Fail(file, 0,
                          "is the template " + delivered.templateName + ", and " + database->name + " is made from " +
                              database->inheritsFrom + ": its design would be lost",
                          remedy);
        } else if (!named && delivered.title != database->title) {
            findings.Fail(file, 0,
                          "has the title '" + delivered.title + "', and " + database->name + " '" + database->title +
                              "': it is of another kind",
                          remedy);
        } else {
            CheckDesign(file, delivered, *database, findings);
        }
    }
}

/** The encyclopedia of an old server is made anew from its template. */
void CheckNeeded(const CheckSubject& subject, Findings& findings) {
    constexpr const char* encyclopedia = "krency.ntf";
    const auto& entries = subject.facts.entries;
    const bool brought = std::ranges::find(entries, encyclopedia) != entries.end();
    const bool there = std::ranges::any_of(subject.databases, [&](const DatabaseReport& report) {
        return report.name == encyclopedia && report.error.empty();
    });
    if (!entries.empty() && !brought && !there) {
        findings.Fail(subject.server.ProductFolder() / encyclopedia, 0,
                      "missing, and the patch does not bring it: krency.nsf could be deleted and not made anew",
                      "put krency.ntf there, or use the krxpatch.ini that came with the patch");
    }
    for (const DatabaseReport& delivered : subject.delivered) {
        const fs::path file = subject.facts.programFolder / delivered.name;
        if (delivered.name == encyclopedia && delivered.error.empty() && !HasDocuments(file)) {
            findings.Fail(file, 0, "has no documents: krency.nsf, when it is made anew from it, would be empty",
                          "make sure that the patch is whole");
        }
    }
}

constexpr CheckRow rows[] = {
    {"krxpatch.ini", CheckFile},
    {"keys", CheckKeys},
    {"build number", CheckBuildNumber},
    {"entries", CheckEntries},
    {"delivered files", CheckDelivered},
    {"kinds of templates", CheckKinds, ofFolder},
    {"needed templates", CheckNeeded, ofFolder},
};

} // namespace

std::span<const CheckRow> PatchChecks() {
    return rows;
}

} // namespace krxpatch
