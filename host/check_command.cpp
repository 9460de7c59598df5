#include "checks.h"
#include "commands.h"

namespace krxpatch {
namespace {

void CheckAll(const std::filesystem::path& folder, ChangeReport& report) {
    report.before = std::filesystem::absolute(folder).lexically_normal().string();
    FolderCheck check = CheckFolder(folder);
    report.findings = std::move(check.findings);
    report.patchBuild = check.patchBuild;
    AddFailures(report, report.findings, "would-fail");
    if (check.holder) { // what else fails may be of the moment
        std::erase_if(report.errors,
                      [&](const ReportError& error) { return error.message.find(*check.holder) != std::string::npos; });
        report.errors.insert(report.errors.begin(),
                             {NameOf(heldByAnother), report.before + ": is being changed: " + *check.holder});
        report.exitCode = heldByAnother;
    }
}

} // namespace

ExitCode CheckServer(const CheckOptions& options) {
    return OutputReading("check", options.output, [&](ChangeReport& report) { CheckAll(options.server, report); });
}

} // namespace krxpatch
