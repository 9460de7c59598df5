#include "text_report.h"

#include "text_table.h"

namespace krxpatch {
namespace {

constexpr size_t notesShown = 20;
constexpr size_t valueShown = 90;

const char* SignOf(Change change) {
    return change == Change::added ? "+" : change == Change::removed ? "-" : "~";
}

std::string TextOf(const std::optional<ItemValue>& value) {
    return value ? OneLine(*value, valueShown) : "(none)";
}

std::string TitleOf(const NoteChange& note) {
    std::string title = note.kind.empty() ? "document" : note.kind;
    if (!note.name.empty()) {
        title += " \"" + note.name + "\"";
    }
    return title + " (" + note.unid + ")";
}

void PrintSettings(std::ostream& out, const char* heading, const std::vector<SettingChange>& settings) {
    if (settings.empty()) {
        return;
    }
    out << "  " << heading << '\n';
    const auto shown = [](const std::string& text) { return text.empty() ? "(none)" : text; };
    std::vector<std::vector<std::string>> rows;
    rows.reserve(settings.size());
    for (const SettingChange& setting : settings) {
        rows.push_back({"    " + setting.name, shown(setting.before) + " -> " + shown(setting.after)});
    }
    out << FormatTable(rows);
}

void PrintNote(std::ostream& out, const NoteChange& note) {
    out << "    " << SignOf(note.change) << ' ' << Printable(TitleOf(note)) << '\n';
    if (!note.lost.empty()) {
        out << "        LOST: " << Printable(note.lost) << '\n';
    }
    if (note.change != Change::changed) {
        return;
    }
    for (const ItemChange& item : note.items) {
        if (item.name != "$Signature") {
            out << "        " << Printable(item.name + ": " + TextOf(item.before) + " -> " + TextOf(item.after))
                << '\n';
        }
    }
}

void PrintNotes(std::ostream& out, const DatabaseChange& database, NoteGroup group) {
    size_t shown = 0;
    size_t left = 0;
    for (const NoteChange& note : database.notes) {
        if (note.group != group || IsOnlySigned(note)) {
            continue;
        }
        // What would be lost is shown in any case.
        if (shown >= notesShown && note.lost.empty()) {
            ++left;
            continue;
        }
        if (shown++ == 0) {
            out << "  " << NameOf(group) << '\n';
        }
        PrintNote(out, note);
    }
    if (left != 0) {
        out << "    ... and " << left << " more (--json has all)\n";
    }
}

void PrintDatabase(std::ostream& out, const DatabaseChange& database) {
    out << '\n' << database.name << ": " << Summary(database) << '\n';
    PrintSettings(out, "settings", database.settings);
    PrintSettings(out, "access control list", database.accessControl);
    for (const NoteGroup group : noteGroups) {
        PrintNotes(out, database, group);
    }
}

void PrintChanges(std::ostream& out, const ChangeReport& report) {
    for (const DatabaseChange& database : report.databases) {
        PrintDatabase(out, database);
    }
    if (!report.files.empty()) {
        out << "\nother files\n";
    }
    for (const FileChange& file : report.files) {
        out << "    " << SignOf(file.change) << ' ' << Printable(file.name) << '\n';
    }
}

} // namespace

std::string OneLine(const ItemValue& value, size_t limit) {
    constexpr unsigned char continuationMask = 0xC0;
    constexpr unsigned char continuation = 0x80;
    std::string text;
    for (size_t i = 0; i < value.values.size() && text.size() <= limit; ++i) {
        text += (i == 0 ? "" : "; ") + value.values[i];
    }
    if (text.size() > limit) {
        size_t end = limit;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & continuationMask) == continuation) {
            --end; // no character is cut
        }
        text.resize(end);
        text += "...";
    }
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
        text.replace(at, 1, " / ");
    }
    return value.type.starts_with("text") ? '"' + text + '"' : text;
}

void PrintText(std::ostream& out, const ChangeReport& report, bool colour) {
    out << FormatFindings(report.findings, colour);
    if (!report.console.empty()) {
        std::vector<std::vector<std::string>> rows;
        for (const ConsoleCommand& command : report.console) {
            rows.push_back({"  " + command.command, command.outcome});
        }
        out << (report.findings.empty() ? "" : "\n") << "Console commands\n" << FormatTable(rows);
    }
    if (report.command != "run") { // which has shown a table of its databases
        PrintChanges(out, report);
    }
    if (report.seconds) {
        out << '\n' << DurationText(report) << '\n';
    }
    if (report.errors.empty()) {
        out << (report.command == "diff" && report.databases.empty() ? "" : "\n") << Summary(report) << '\n';
        if (!report.safetyCopy.empty()) {
            out << "The safety copy " << report.safetyCopy << " stays until the next run; "
                << CommandOn(report.before, "restore", "--discard") << " removes it.\n";
        }
    }
}

} // namespace krxpatch
