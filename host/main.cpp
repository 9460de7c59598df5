// krxpatch. Nothing is touched before the whole command line is understood.
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <streambuf>
#include <string>

#include <nlohmann/json.hpp>

#include "command_line.h"
#include "json_report.h"
#include "platform.h"

namespace krxpatch {
namespace {

/** What is written to standard output is lost for as long as this lives. */
class SilentOutput {
public:
    SilentOutput() : shown_(std::cout.rdbuf(&lost_)) {}
    SilentOutput(const SilentOutput&) = delete;
    SilentOutput& operator=(const SilentOutput&) = delete;
    ~SilentOutput() { std::cout.rdbuf(shown_); }

private:
    class Sink : public std::streambuf {
        int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    };

    Sink lost_;
    std::streambuf* shown_;
};

/** The report of a command that does not print it itself, whatever came of it. */
void PrintReport(const std::string& command, ExitCode exitCode, const std::string& error, const Report& content) {
    const std::vector<ReportError> errors = {{NameOf(exitCode), error}};
    Report report = HeadOf(command, exitCode, error.empty() ? std::vector<ReportError>() : errors);
    report.update(content);
    // Names that are no UTF-8 are shown with replacement characters rather than not at all.
    std::cout << report.dump(2, ' ', false, Report::error_handler_t::replace) << '\n';
}

/** Runs the work, and fills in what went wrong. */
template<class Work>
ExitCode Guarded(std::string& error, const Work& work) {
    try {
        return work();
    } catch (const Failure& failure) {
        error = failure.what();
        return failure.Code();
    } catch (const std::filesystem::filesystem_error& failure) {
        error = CauseOf(failure);
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    return failed;
}

int Main(const std::vector<std::string>& arguments) {
    const CommandLine line = ParseCommandLine(arguments);
    Report report = Report::object();
    std::string error;
    ExitCode exitCode = succeeded;
    if (line.run) {
        std::optional<SilentOutput> silent;
        if (line.json ? !line.printsReport : line.quiet) {
            silent.emplace();
        }
        exitCode = Guarded(error, [&] { return line.run(report); });
    }
    if (line.run && line.json && !line.printsReport) {
        PrintReport(line.command, exitCode, error, report);
    }
    if (!std::cout.flush() && error.empty()) { // what was done so far stands before the reason
        error = "standard output: cannot be written";
        exitCode = failed;
    }
    if (!error.empty()) {
        std::cerr << "krxpatch: " << error << '\n';
    }
    return exitCode;
}

} // namespace
} // namespace krxpatch

int main(int argc, char** argv) {
    krxpatch::platform::PrepareOutput(); // "krxpatch run | head" must not end the upgrade
    try {
        return krxpatch::Main(krxpatch::platform::Arguments(argc, argv));
    } catch (const std::exception& error) { // the report of a failure has failed
        std::cerr << "krxpatch: " << error.what() << '\n';
        return krxpatch::failed;
    }
}
