#include "report_output.h"

#include <cstdlib>
#include <iostream>

#include "file_text.h"
#include "hold.h"
#include "html_report.h"
#include "json_report.h"
#include "path_checks.h"
#include "platform.h"
#include "temporary_folder.h"
#include "text_report.h"
#include "watched_work.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** Where a link leads, the page stands. */
fs::path PlaceOf(const fs::path& file) {
    return fs::exists(file) ? fs::canonical(file) : file;
}

/** The page takes its place whole or not at all. */
void WriteHtml(const ChangeReport& report, const fs::path& file) {
    const fs::path place = PlaceOf(file);
    const TemporaryFolder folder(place);
    const fs::path made = folder.Path() / "page.html";
    WriteFile(
        made, [&](std::ostream& out) { PrintHtml(out, report); }, place);
    fs::rename(made, place);
}

/** Why there is no page, as an error of its own: what the page tells of is done. Empty when there is one. */
std::string TryWriteHtml(const ChangeReport& report, const fs::path& file) {
    try {
        WriteHtml(report, file);
        return {};
    } catch (const fs::filesystem_error& error) {
        return "the page is not written: " + CauseOf(error) +
               (report.builds.empty() ? "" : "; the product databases carry build " + report.builds);
    }
}

/** A report takes the place of an earlier report and of nothing else, and comes to stand in no server's folder. */
void RequirePlaceForHtml(const std::filesystem::path& file) {
    const auto refuse = [&](const std::string& why) { throw Failure(notStarted, file.string() + ": " + why); };
    RequirePlaceForFile(file, notStarted);
    if (const auto server = ServerFolderAround(fs::weakly_canonical(fs::absolute(file)).parent_path())) {
        refuse("lies in the server folder " + server->string());
    }
    const fs::file_status status = fs::status(file);
    if (fs::is_symlink(fs::symlink_status(file)) && !fs::exists(status)) {
        refuse("is a link to nothing");
    }
    const bool isPlace = fs::is_regular_file(status) && (fs::file_size(file) == 0 || IsHtmlReport(file));
    if (fs::exists(status) && !isPlace) {
        refuse("exists already and is no report");
    }
    try {
        const TemporaryFolder tried(PlaceOf(file));
    } catch (const fs::filesystem_error& error) {
        refuse("cannot be written: " + error.code().message());
    }
}

/** Returns why there is no page; empty when there is one, or none is wanted. */
std::string Work(const ReportOptions& options, const std::function<void(ChangeReport&)>& work, ChangeReport& report) {
    if (!options.html.empty()) {
        RequirePlaceForHtml(options.html);
    }
    work(report);
    return options.html.empty() ? "" : TryWriteHtml(report, options.html);
}

/** A run has done its work whether there is a page or not: nobody may take it for one that failed. */
bool CountsPage(const ChangeReport& report) {
    return report.command != "run";
}

ExitCode OutputText(const ReportOptions& options, const std::function<void(ChangeReport&)>& work,
                    ChangeReport& report) {
    const std::string problem = Work(options, work, report);
    PrintText(std::cout, report, options.colour);
    if (report.errors.empty() && !problem.empty()) {
        throw Failure(CountsPage(report) ? failed : report.exitCode, problem);
    }
    if (!report.errors.empty()) {
        if (!problem.empty()) {
            std::cerr << "krxpatch: " << problem << '\n';
        }
        throw Failure(report.exitCode, Summary(report));
    }
    return report.exitCode;
}

ExitCode OutputJson(const ReportOptions& options, const std::function<void(ChangeReport&)>& work,
                    ChangeReport& report) {
    const auto fail = [&](ExitCode code, const std::string& message) {
        report.exitCode = code;
        if (message != report.summary) { // which the errors tell one by one
            report.errors.insert(report.errors.begin(), {NameOf(code), message});
        }
    };
    std::string problem;
    try {
        problem = Work(options, work, report);
    } catch (const Failure& failure) {
        fail(failure.Code(), failure.what());
    } catch (const fs::filesystem_error& error) {
        fail(failed, CauseOf(error));
    } catch (const std::exception& error) {
        fail(failed, error.what());
    }
    if (!problem.empty() && CountsPage(report)) {
        report.exitCode = failed;
        report.errors.push_back({NameOf(failed), problem});
    }
    PrintJson(std::cout, report);
    if (!problem.empty() && !CountsPage(report)) {
        throw Failure(report.exitCode, problem);
    }
    return report.exitCode;
}

} // namespace

ExitCode OutputReport(const std::string& command, const ReportOptions& options,
                      const std::function<void(ChangeReport& report)>& work) {
    ChangeReport report;
    report.command = command;
    return options.json ? OutputJson(options, work, report) : OutputText(options, work, report);
}

ExitCode OutputReading(const std::string& command, const ReportOptions& options,
                       const std::function<void(ChangeReport& report)>& work) {
    platform::NoteInterrupts();
    return OutputReport(command, options, [&](ChangeReport& report) {
        DoWatched([&] { work(report); },
                  [&] {
                      if (platform::IsInterrupted()) {
                          EndInterrupted(command, options);
                      }
                  });
    });
}

void EndInterrupted(const std::string& command, const ReportOptions& options) {
    ChangeReport report;
    report.command = command;
    report.exitCode = interrupted;
    report.errors = {{NameOf(interrupted), "interrupted; nothing was changed"}};
    if (options.json) {
        PrintJson(std::cout, report);
        std::cout << std::flush;
    } else {
        std::cerr << "krxpatch: " << Summary(report) << std::endl;
    }
    std::_Exit(interrupted);
}

} // namespace krxpatch
