#include "checks.h"
#include "commands.h"

namespace krxpatch {

ExitCode CheckServer(const CheckOptions& options) {
    return OutputReport("check", options.output, [&](ChangeReport& report) {
        report.before = options.server.string();
        report.findings = CheckFolder(options.server);
        AddFailures(report, report.findings, "would-fail");
    });
}

} // namespace krxpatch
