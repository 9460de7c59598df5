#include "json_report.h"

#include <nlohmann/json.hpp>

namespace krxpatch {
namespace {

using Json = nlohmann::ordered_json;

/** Grows when a program that reads this could break. */
constexpr int schemaVersion = 1;

Json OrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json ToJson(const DatabaseFacts& facts) {
    if (!facts.there) {
        return {};
    }
    return {
        {"error", OrNull(facts.error)},
        {"title", facts.title},
        {"builds", facts.builds},
        {"documents", facts.documents},
        {"designNotes", facts.designNotes},
        {"signedNotes", facts.signedNotes},
        {"changedNotes", facts.changedNotes},
        {"signers", facts.signers},
        {"replication", facts.replication},
    };
}

Json ToJson(const std::optional<ItemValue>& value) {
    return value ? Json{{"type", value->type}, {"flags", value->flags}, {"values", value->values}} : Json();
}

Json ToJson(const ItemChange& item) {
    return {{"name", item.name}, {"before", ToJson(item.before)}, {"after", ToJson(item.after)}};
}

Json ToJson(const SettingChange& setting) {
    return {{"name", setting.name}, {"before", OrNull(setting.before)}, {"after", OrNull(setting.after)}};
}

Json ToJson(const FileChange& file) {
    return {{"name", file.name}, {"change", NameOf(file.change)}};
}

Json ToJson(const ConsoleCommand& command) {
    return {{"command", command.command}, {"outcome", command.outcome}, {"succeeded", command.Succeeded()}};
}

Json ToJson(const Finding& finding) {
    return {{"level", NameOf(finding.level)},
            {"subject", finding.subject},
            {"file", OrNull(finding.file.string())},
            {"line", finding.line == 0 ? Json() : Json(finding.line)},
            {"text", finding.text},
            {"remedy", OrNull(finding.remedy)}};
}

Json ToJson(const ReportError& error) {
    return {{"code", error.code}, {"message", error.message}};
}

template<class Row>
Json ToJson(const std::vector<Row>& rows) {
    Json array = Json::array();
    for (const Row& row : rows) {
        array.push_back(ToJson(row));
    }
    return array;
}

Json ToJson(const NoteChange& note) {
    return {{"change", NameOf(note.change)},
            {"unid", note.unid},
            {"unidBefore", OrNull(note.unidBefore)},
            {"group", NameOf(note.group)},
            {"kind", note.kind},
            {"name", note.name},
            {"editors", note.editors},
            {"onlySigned", IsOnlySigned(note)},
            {"lost", OrNull(note.lost)},
            {"items", ToJson(note.items)}};
}

/** Texts that are no UTF-8 are shown with replacement characters rather than not at all. */
std::string Text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void PrintMember(std::ostream& out, const char* name, const Json& value) {
    out << "  " << Text(name) << ": " << Text(value) << ",\n";
}

/** One row a line, and one row in memory at a time: there may be very many. */
template<class Row, class Print>
void PrintRows(std::ostream& out, const std::vector<Row>& rows, const Print& print) {
    const char* separator = "\n";
    for (const Row& row : rows) {
        out << separator;
        print(row);
        separator = ",\n";
    }
}

void PrintDatabase(std::ostream& out, const DatabaseChange& database) {
    out << "    {\"name\": " << Text(database.name) << ", \"summary\": " << Text(Summary(database))
        << ",\n     \"before\": " << Text(ToJson(database.before))
        << ",\n     \"after\": " << Text(ToJson(database.after))
        << ",\n     \"settings\": " << Text(ToJson(database.settings))
        << ",\n     \"accessControl\": " << Text(ToJson(database.accessControl)) << ",\n     \"notes\": [";
    PrintRows(out, database.notes, [&](const NoteChange& note) { out << "      " << Text(ToJson(note)); });
    out << "]}";
}

} // namespace

Json HeadOf(const std::string& command, ExitCode exitCode, const std::vector<ReportError>& errors) {
    return {{"schema", schemaVersion},
            {"command", command},
            {"success", errors.empty()},
            {"exitCode", static_cast<int>(exitCode)},
            {"errors", ToJson(errors)}};
}

void PrintJson(std::ostream& out, const ChangeReport& report) {
    out << "{\n";
    const Json head = HeadOf(report.command, report.exitCode, report.errors);
    for (const auto& [name, value] : head.items()) {
        PrintMember(out, name.c_str(), value);
    }
    PrintMember(out, "summary", Summary(report));
    PrintMember(out, "before", report.before);
    PrintMember(out, "after", OrNull(report.after));
    PrintMember(out, "patchBuild", OrNull(report.patchBuild));
    PrintMember(out, "builds", OrNull(report.builds));
    PrintMember(out, "safetyCopy", OrNull(report.safetyCopy));
    PrintMember(out, "seconds", report.seconds ? Json(*report.seconds) : Json());
    PrintMember(out, "findings", ToJson(report.findings));
    PrintMember(out, "console", ToJson(report.console));
    PrintMember(out, "files", ToJson(report.files));
    PrintMember(out, "equalDatabases", report.equalDatabases);
    out << "  \"databases\": [";
    PrintRows(out, report.databases, [&](const DatabaseChange& database) { PrintDatabase(out, database); });
    out << "]\n}\n";
}

} // namespace krxpatch
