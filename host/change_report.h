// What check, plan, run, verify and diff tell: one data model, which text_report, json_report and html_report show.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "failure.h"
#include "finding.h"

namespace krxpatch {

/** An item as DXL shows it. */
struct ItemValue {
    std::string type;
    std::string flags;
    std::vector<std::string> values; // one, but for lists

    bool operator==(const ItemValue&) const = default;
};

struct ItemChange {
    std::string name;
    std::optional<ItemValue> before; // nothing: it was not there
    std::optional<ItemValue> after;
};

enum class Change { added, changed, removed };

enum class NoteGroup { documents, design, replication };

struct NoteChange {
    Change change = Change::changed;
    std::string unid;
    std::string unidBefore; // only when a design note of the same name takes the place of another one
    NoteGroup group = NoteGroup::documents;
    std::string kind;                 // of a document its form, of a design note its class
    std::string name;                 // of a design note $TITLE; of a document what it is called, which may be nothing
    std::vector<std::string> editors; // of an earlier note, else of the new one: who has saved or signed it
    std::vector<ItemChange> items;
    std::string lost; // why a change of the customer's gets lost by this; empty when none does
};

inline constexpr NoteGroup noteGroups[] = {NoteGroup::documents, NoteGroup::design, NoteGroup::replication};

/** Whether nothing but signatures differs. */
[[nodiscard]] bool IsOnlySigned(const NoteChange& note);

/** A setting, or a line of an access control list. An empty text: it was not there. */
struct SettingChange {
    std::string name;
    std::string before;
    std::string after;
};

/** A database as it is on one side. */
struct DatabaseFacts {
    bool there = false;
    std::string error; // why it cannot be read; what follows then means nothing
    std::string title;
    std::vector<std::string> builds; // of its help notes
    size_t documents = 0;
    size_t designNotes = 0;
    size_t signedNotes = 0;  // of the design notes
    size_t changedNotes = 0; // of the signed notes, those that were changed afterwards
    std::vector<std::string> signers;
    std::vector<std::string> replication; // the titles of the replication notes
};

struct DatabaseChange {
    std::string name;
    DatabaseFacts before;
    DatabaseFacts after;
    std::vector<SettingChange> settings;      // title, replica settings, hidden design, template, offline
    std::vector<SettingChange> accessControl; // by name of the entry
    std::vector<NoteChange> notes;            // none of a database that is only there on one side

    [[nodiscard]] bool IsEqual() const;
    [[nodiscard]] size_t Count(Change change, NoteGroup group) const;
    [[nodiscard]] size_t CountLost() const;
};

/** A file that is no database. */
struct FileChange {
    std::string name;
    Change change = Change::changed;
};

/** A command that was sent to the server's console. */
struct ConsoleCommand {
    std::string command;
    std::string outcome;

    [[nodiscard]] bool Succeeded() const { return outcome.starts_with("done"); }
};

struct ReportError {
    std::string code; // to programs
    std::string message;
};

struct ChangeReport {
    std::string command;
    ExitCode exitCode = succeeded;
    std::vector<ReportError> errors; // none: the command could do what it is for
    std::string before;              // what is compared, by its path; of check, plan, run and verify the server folder
    std::string after;
    std::string patchBuild;
    std::string builds;                    // of a run: what the product databases carry at its end
    std::string safetyCopy;                // of a run: the ID of the copy that restore puts back
    std::optional<double> seconds;         // that the upgrade took
    bool withPauses = false;               // the time includes them
    std::vector<DatabaseChange> databases; // those that differ; of a comparison of two files the one
    size_t equalDatabases = 0;
    std::vector<FileChange> files;
    std::vector<ConsoleCommand> console;
    std::vector<Finding> findings;
    std::string summary; // when it is not to be made of all this
};

/** Makes each of these findings that is a failure an error of this code; with any error the exit code is "failed". */
void AddFailures(ChangeReport& report, const std::vector<Finding>& findings, const std::string& code);

/** Ends a command that does not begin because of findings: they become errors of this code, and the first of them with
 *  what is to be said further is the gist of it all. */
[[noreturn]] void RefuseFor(ChangeReport& report, std::vector<Finding> findings, const std::string& code,
                            const std::string& further = "");

/** The gist in one sentence. */
[[nodiscard]] std::string Summary(const ChangeReport& report);
/** How long the upgrade took, as a sentence; needs the time. */
[[nodiscard]] std::string DurationText(const ChangeReport& report);
/** What changes in a database, in a few words: "3 documents added, 1 design note changed". */
[[nodiscard]] std::string Summary(const DatabaseChange& database);

/** Words for what is counted: "1 document", "2 documents". */
[[nodiscard]] std::string Counted(size_t count, const std::string& thing);
[[nodiscard]] const char* NameOf(Change change);
[[nodiscard]] const char* NameOf(NoteGroup group);

} // namespace krxpatch
