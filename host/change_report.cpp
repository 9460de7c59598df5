#include "change_report.h"

#include <algorithm>
#include <cstdio>

#include "common/ascii_text.h"
#include "text_table.h"

namespace krxpatch {
namespace {

const char* ThingOf(NoteGroup group) {
    return group == NoteGroup::documents ? "document" : group == NoteGroup::design ? "design note" : "replication note";
}

size_t CountOnlySigned(const DatabaseChange& database) {
    return static_cast<size_t>(std::ranges::count_if(database.notes, IsOnlySigned));
}

/** "1 document added, 2 changed"; nothing when there is no change. */
std::string CountsOf(const DatabaseChange& database, NoteGroup group) {
    std::string text;
    for (const Change change : {Change::added, Change::changed, Change::removed}) {
        size_t count = database.Count(change, group);
        if (change == Change::changed && group == NoteGroup::design) {
            count -= CountOnlySigned(database);
        }
        if (count != 0) {
            text +=
                (text.empty() ? Counted(count, ThingOf(group)) : ", " + std::to_string(count)) + " " + NameOf(change);
        }
    }
    return text;
}

} // namespace

bool IsOnlySigned(const NoteChange& note) {
    return note.change == Change::changed && note.group == NoteGroup::design && note.unidBefore.empty() &&
           !note.items.empty() && std::ranges::all_of(note.items, [](const ItemChange& item) {
               return updkrx::EqualIgnoringAsciiCase(item.name, "$Signature");
           });
}

bool DatabaseChange::IsEqual() const {
    return before.there == after.there && before.error.empty() && after.error.empty() && settings.empty() &&
           accessControl.empty() && notes.empty();
}

size_t DatabaseChange::Count(Change change, NoteGroup group) const {
    return static_cast<size_t>(std::ranges::count_if(
        notes, [&](const NoteChange& note) { return note.change == change && note.group == group; }));
}

size_t DatabaseChange::CountLost() const {
    return static_cast<size_t>(std::ranges::count_if(notes, [](const NoteChange& note) { return !note.lost.empty(); }));
}

void AddFailures(ChangeReport& report, const std::vector<Finding>& findings, const std::string& code) {
    for (const Finding& finding : findings) {
        if (finding.level == Level::failure) {
            report.errors.push_back(
                {code, (finding.file.empty() ? finding.subject + ": " : "") + DescribeWithRemedy(finding)});
        }
    }
    if (!report.errors.empty()) {
        report.exitCode = failed;
    }
}

void RefuseFor(ChangeReport& report, std::vector<Finding> findings, const std::string& code,
               const std::string& further) {
    report.findings = std::move(findings);
    AddFailures(report, report.findings, code);
    report.summary = Summary(report) + further;
    throw Failure(notStarted, report.summary);
}

std::string Summary(const DatabaseChange& database) {
    if (!database.before.error.empty() || !database.after.error.empty()) {
        return "cannot be read: " + (database.before.error.empty() ? database.after.error : database.before.error);
    }
    if (database.before.there != database.after.there) {
        const DatabaseFacts& facts = database.after.there ? database.after : database.before;
        return std::string(database.after.there ? "new" : "gone") + ", with " + Counted(facts.documents, "document") +
               " and " + Counted(facts.designNotes, "design note");
    }
    std::vector<std::string> parts;
    const auto add = [&](const std::string& part) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    };
    for (const NoteGroup group : noteGroups) {
        add(CountsOf(database, group));
    }
    if (const size_t count = CountOnlySigned(database); count != 0) {
        add(Counted(count, "design note") + " only signed");
    }
    if (!database.accessControl.empty()) {
        add(Counted(database.accessControl.size(), "line") + " of the access control list");
    }
    if (!database.settings.empty()) {
        add(Counted(database.settings.size(), "setting"));
    }
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : "; ") + part;
    }
    return text.empty() ? "equal" : text;
}

std::string Summary(const ChangeReport& report) {
    if (!report.summary.empty()) {
        return report.summary;
    }
    if (!report.errors.empty()) {
        const size_t more = report.errors.size() - 1;
        return report.errors.front().message + (more == 0 ? "" : " (and " + std::to_string(more) + " more)");
    }
    if (report.command == "check") {
        return "Nothing stands in the way of an upgrade.";
    }
    if (report.command == "run") {
        return (report.safetyCopy.empty() ? "Nothing to do" : "Done") +
               std::string(": the product databases carry build ") + report.builds + ".";
    }
    if (report.command == "verify") {
        return "The upgrade is really done: everything is as build " + report.patchBuild + " is to leave it.";
    }
    const size_t differing = report.databases.size() + report.files.size();
    if (differing == 0) {
        return report.command == "plan" ? "Nothing to do: the server is at build " + report.patchBuild + "."
                                        : "They are equal.";
    }
    size_t lost = 0;
    for (const DatabaseChange& database : report.databases) {
        lost += database.CountLost();
    }
    std::string text = Counted(report.databases.size(), "database") + (report.command == "plan"       ? " would change"
                                                                       : report.databases.size() == 1 ? " differs"
                                                                                                      : " differ");
    if (lost != 0) {
        text += "; " + Counted(lost, "change") + " of the customer's would be lost";
    }
    return text + ".";
}

std::string DurationText(const ChangeReport& report) {
    char seconds[32] = "";
    (void)std::snprintf(seconds, sizeof seconds, "%.1f", *report.seconds); // its length; it fits
    return std::string("The upgrade took ") + seconds + (report.withPauses ? " s." : " s, without its pauses.");
}

std::string Counted(size_t count, const std::string& thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

const char* NameOf(Change change) {
    switch (change) {
    case Change::added:
        return "added";
    case Change::removed:
        return "removed";
    case Change::changed:
        break;
    }
    return "changed";
}

const char* NameOf(NoteGroup group) {
    switch (group) {
    case NoteGroup::documents:
        return "documents";
    case NoteGroup::replication:
        return "replication";
    case NoteGroup::design:
        break;
    }
    return "design";
}

} // namespace krxpatch
