#include "report_output.h"

#include <fstream>
#include <iostream>

#include "hold.h"
#include "html_report.h"
#include "json_report.h"
#include "path_checks.h"
#include "text_report.h"

namespace krxpatch {
namespace {

void WriteHtml(const ChangeReport& report, const std::filesystem::path& file) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    PrintHtml(out, report);
    if (!out.flush()) {
        throw Failure(failed, file.string() + ": cannot be written");
    }
}

/** A report takes the place of an earlier report and of nothing else, and comes to stand in no server's folder. */
void RequirePlaceForHtml(const std::filesystem::path& file) {
    namespace fs = std::filesystem;
    const auto refuse = [&](const std::string& why) { throw Failure(notStarted, file.string() + ": " + why); };
    RequirePlaceForFile(file, notStarted);
    if (const auto server = ServerFolderAround(fs::weakly_canonical(fs::absolute(file)).parent_path())) {
        refuse("lies in the server folder " + server->string());
    }
    const fs::file_status status = fs::status(file);
    if (fs::is_symlink(fs::symlink_status(file)) && !fs::exists(status)) {
        refuse("is a link to nothing");
    }
    if (fs::is_regular_file(status) && fs::file_size(file) != 0 && !IsHtmlReport(file)) {
        refuse("exists already and is no report");
    }
}

void Work(const ReportOptions& options, const std::function<void(ChangeReport&)>& work, ChangeReport& report) {
    if (!options.html.empty()) {
        RequirePlaceForHtml(options.html);
    }
    work(report);
    if (!options.html.empty()) {
        WriteHtml(report, options.html);
    }
}

} // namespace

ExitCode OutputReport(const std::string& command, const ReportOptions& options,
                      const std::function<void(ChangeReport& report)>& work) {
    ChangeReport report;
    report.command = command;
    if (!options.json) {
        Work(options, work, report);
        PrintText(std::cout, report, options.colour);
        if (!report.errors.empty()) {
            throw Failure(report.exitCode, Summary(report));
        }
        return report.exitCode;
    }
    const auto fail = [&](ExitCode code, const std::string& message) {
        report.exitCode = code;
        report.errors.insert(report.errors.begin(), {NameOf(code), message});
    };
    try {
        Work(options, work, report);
    } catch (const Failure& failure) {
        fail(failure.Code(), failure.what());
    } catch (const std::filesystem::filesystem_error& error) {
        fail(failed, CauseOf(error));
    } catch (const std::exception& error) {
        fail(failed, error.what());
    }
    PrintJson(std::cout, report);
    return report.exitCode;
}

} // namespace krxpatch
