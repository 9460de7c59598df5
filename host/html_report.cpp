#include "html_report.h"

#include <ctime>
#include <fstream>
#include <string>
#include <string_view>

#include "html_page.h"
#include "text_table.h"

namespace krxpatch {
namespace {

constexpr size_t notesShown = 2000; // of a database: a browser still opens the file
constexpr size_t valueShown = 4000; // bytes

/** For text and for attributes in double quotes. Control characters would not be valid. */
std::string Escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t' ? '?' : c;
        }
    }
    return out;
}

const char* const noValue = "<span class=none>(none)</span>";

std::string ValueHtml(const std::string& text) {
    const bool cut = text.size() > valueShown;
    // A cut may leave a part of a character, which a browser shows as a replacement character.
    return "<span class=value>" + Escaped(text.substr(0, valueShown)) + (cut ? "..." : "") + "</span>";
}

std::string ValueHtml(const std::optional<ItemValue>& value) {
    if (!value) {
        return noValue;
    }
    std::string html;
    for (const std::string& each : value->values) {
        html += ValueHtml(each);
    }
    return html;
}

/** Rows of an old and a new form, already HTML. */
void PrintRow(std::ostream& out, const std::string& name, const std::string& before, const std::string& after) {
    out << "<tr><td>" << Escaped(name) << "</td><td class=old>" << before << "</td><td class=new>" << after
        << "</td></tr>\n";
}

constexpr const char* tableHead = "<table class=items><thead><tr><th>item</th><th>before</th><th>after</th></tr>"
                                  "</thead><tbody>\n";
constexpr const char* tableEnd = "</tbody></table>\n";

void PrintSettings(std::ostream& out, const char* heading, const std::vector<SettingChange>& settings) {
    if (settings.empty()) {
        return;
    }
    out << "<div class=entry><h3>" << heading << "</h3>" << tableHead;
    for (const SettingChange& setting : settings) {
        const auto shown = [](const std::string& text) { return text.empty() ? noValue : ValueHtml(text); };
        PrintRow(out, setting.name, shown(setting.before), shown(setting.after));
    }
    out << tableEnd << "</div>\n";
}

std::string DatabaseId(const DatabaseChange& database) {
    return "db-" + Escaped(database.name);
}

void PrintNote(std::ostream& out, const DatabaseChange& database, const NoteChange& note) {
    const std::string id = DatabaseId(database) + "-" + note.unid;
    out << "<details class=\"note entry\" id=\"" << id << "\"><summary><span class=\"tag " << NameOf(note.change)
        << "\">" << NameOf(note.change) << "</span> " << Escaped(note.kind) << " <strong>" << Escaped(note.name)
        << "</strong>" << (note.lost.empty() ? "" : " <span class=\"tag removed\">lost</span>") << "</summary><div>";
    if (!note.lost.empty()) {
        out << "<p class=lost>Lost: " << Escaped(note.lost) << "</p>";
    }
    out << "<a class=unid href=\"#" << id << "\"><code>" << note.unid << "</code></a>\n";
    if (!note.unidBefore.empty()) {
        out << "<span class=unid>takes the place of <code>" << note.unidBefore << "</code></span>\n";
    }
    out << tableHead;
    for (const ItemChange& item : note.items) {
        PrintRow(out, item.name, ValueHtml(item.before), ValueHtml(item.after));
    }
    out << tableEnd << "</div></details>\n";
}

void PrintNotes(std::ostream& out, const DatabaseChange& database, NoteGroup group) {
    size_t count = 0;
    for (const NoteChange& note : database.notes) {
        if (note.group != group || IsOnlySigned(note)) {
            continue;
        }
        if (count++ == 0) {
            out << "<h3>" << NameOf(group) << "</h3>\n";
        }
        if (count <= notesShown || !note.lost.empty()) {
            PrintNote(out, database, note);
        }
    }
    if (count > notesShown) {
        out << "<p class=gist>Not all of " << count << " are shown; krxpatch --json has them.</p>\n";
    }
}

/** Nobody wants to unfold each of them. */
void PrintOnlySigned(std::ostream& out, const DatabaseChange& database) {
    std::vector<std::string> names;
    for (const NoteChange& note : database.notes) {
        if (IsOnlySigned(note)) {
            names.push_back(note.kind + " \"" + note.name + "\"");
        }
    }
    if (!names.empty()) {
        out << "<details class=\"note entry\"><summary>" << Counted(names.size(), "design note")
            << " only signed</summary><div>" << Escaped(Join(names)) << "</div></details>\n";
    }
}

void PrintDatabase(std::ostream& out, const DatabaseChange& database) {
    out << "<details class=database id=\"" << DatabaseId(database) << "\"><summary><strong>" << Escaped(database.name)
        << "</strong> <span class=gist>" << Escaped(Summary(database)) << "</span>";
    if (const size_t lost = database.CountLost(); lost != 0) {
        out << " <span class=\"tag removed\">" << lost << " lost</span>";
    }
    out << "</summary><div>\n";
    PrintSettings(out, "settings", database.settings);
    PrintSettings(out, "access control list", database.accessControl);
    for (const NoteGroup group : noteGroups) {
        PrintNotes(out, database, group);
    }
    PrintOnlySigned(out, database);
    out << "</div></details>\n";
}

template<class Row, class Print>
void PrintSection(std::ostream& out, const char* heading, const char* columns, const std::vector<Row>& rows,
                  const Print& print) {
    if (rows.empty()) {
        return;
    }
    out << "<h2>" << heading << "</h2>\n<table><thead><tr>" << columns << "</tr></thead><tbody>\n";
    for (const Row& row : rows) {
        out << "<tr>";
        print(row);
        out << "</tr>\n";
    }
    out << tableEnd;
}

std::string Tag(const char* colour, const std::string& text) {
    return std::string("<td><span class=\"tag ") + colour + "\">" + text + "</span></td>";
}

std::string Cell(const std::string& text) {
    return "<td>" + Escaped(text) + "</td>";
}

std::string NowText() {
    const std::time_t now = std::time(nullptr);
    char text[32] = "";
    (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", std::gmtime(&now)); // its length; it fits
    return text;
}

constexpr std::string_view beginning =
    "<!DOCTYPE html>\n<html lang=en>\n<head>\n<meta charset=utf-8>\n<meta name=generator content=krxpatch>\n";

const char* TitleOf(const std::string& command) {
    return command == "plan"     ? "Upgrade plan"
           : command == "check"  ? "Check before an upgrade"
           : command == "run"    ? "Upgrade"
           : command == "verify" ? "Verification of an upgrade"
                                 : "Comparison";
}

void PrintHead(std::ostream& out, const ChangeReport& report) {
    const std::string title = TitleOf(report.command);
    // Nothing may be loaded, whatever text got into the page.
    out << beginning
        << "<meta name=viewport content=\"width=device-width, initial-scale=1\">\n"
           "<meta http-equiv=Content-Security-Policy content=\"default-src 'none'; style-src 'unsafe-inline'; "
           "script-src 'unsafe-inline'\">\n<title>"
        << title << "</title>\n<style>" << htmlStyle << "</style>\n</head>\n<body>\n<main>\n<h1>" << title
        << "</h1>\n<p class=where>" << Escaped(report.before)
        << (report.after.empty() ? "" : " &rarr; " + Escaped(report.after))
        << (report.patchBuild.empty() ? "" : " &middot; to build " + Escaped(report.patchBuild)) << " &middot; made "
        << NowText() << "</p>\n<p class=\"verdict"
        << (!report.errors.empty()     ? " bad"
            : report.databases.empty() ? ""
                                       : " pending")
        << "\">" << Escaped(Summary(report)) << "</p>\n";
}

void PrintFindings(std::ostream& out, const ChangeReport& report) {
    PrintSection(out, "Findings", "<th></th><th>about</th><th>finding</th>", report.findings,
                 [&](const Finding& finding) {
                     const char* colour = finding.level == Level::failure   ? "removed"
                                          : finding.level == Level::warning ? "changed"
                                                                            : "added";
                     out << Tag(colour, NameOf(finding.level)) << Cell(finding.subject)
                         << Cell(Describe(finding) + (finding.remedy.empty() ? "" : ". " + finding.remedy));
                 });
}

void PrintDatabases(std::ostream& out, const ChangeReport& report) {
    if (report.databases.empty()) {
        return;
    }
    out << "<h2 id=databases>Databases</h2>\n<nav><ul>\n";
    for (const DatabaseChange& database : report.databases) {
        out << "<li><a href=\"#" << DatabaseId(database) << "\">" << Escaped(database.name) << "</a></li>\n";
    }
    out << "</ul></nav>\n<div class=tools><input id=search type=search placeholder=\"Search documents, items, values\" "
           "aria-label=Search><button id=open type=button>Open all</button><button id=fold type=button>Fold "
           "all</button>"
           "<span id=count role=status></span></div>\n";
    for (const DatabaseChange& database : report.databases) {
        PrintDatabase(out, database);
    }
}

} // namespace

void PrintHtml(std::ostream& out, const ChangeReport& report) {
    PrintHead(out, report);
    PrintFindings(out, report);
    PrintDatabases(out, report);
    PrintSection(out, "Other files", "<th></th><th>file</th>", report.files, [&](const FileChange& file) {
        out << Tag(NameOf(file.change), NameOf(file.change)) << Cell(file.name);
    });
    PrintSection(out, "Console commands", "<th></th><th>command</th><th>outcome</th>", report.console,
                 [&](const ConsoleCommand& command) {
                     out << (command.Succeeded() ? Tag("added", "ok") : Tag("removed", "FAIL")) << Cell(command.command)
                         << Cell(command.outcome);
                 });
    if (report.seconds) {
        out << "<p class=gist>" << DurationText(report) << "</p>\n";
    }
    out << "</main>\n";
    if (!report.databases.empty()) {
        out << "<script>" << htmlScript << "</script>\n";
    }
    out << "</body>\n</html>\n";
}

bool IsHtmlReport(const std::filesystem::path& file) {
    std::string start(beginning.size(), '\0');
    std::ifstream stream(file, std::ios::binary);
    return stream.read(start.data(), static_cast<std::streamsize>(start.size())) && start == beginning;
}

} // namespace krxpatch
