// krxpatch: the command line. Nothing is touched before the whole of it is understood.
#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "platform.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

const CLI::Validator
    notEmpty([](const std::string& text) { return text.empty() ? std::string("must not be empty") : std::string(); },
             "");

/** Names what must not be left out in the line of usage too, where "[OPTIONS]" reads as if all could. */
class HelpText : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        for (const CLI::Option* option :
             app->get_options([](const CLI::Option* each) { return each->nonpositional() && each->get_required(); })) {
            name += " " + option->get_name() + " " + option->get_type_name();
        }
        return Formatter::make_usage(app, name);
    }
};

CLI::App* AddCommand(CLI::App& program, const std::string& name, const std::string& description) {
    CLI::App* command = program.add_subcommand(name, description);
    command->set_help_flag("--help", "Print this help and exit");
    return command;
}

CLI::Option* AddPath(CLI::App* command, const std::string& name, std::filesystem::path& path, const std::string& kind,
                     const std::string& description) {
    return command
        ->add_option_function<std::string>(
            name, [&path](const std::string& text) { path = PathOf(text); }, description)
        ->type_name(kind)
        ->check(notEmpty);
}

/** A switch, which takes no value. */
CLI::Option* AddSwitch(CLI::App* command, const std::string& name, bool& on, const std::string& description) {
    return command->add_flag(name, on, description)->disable_flag_override();
}

/** What a command that makes a report has in common with the others. */
void AddReport(CLI::App* command, ReportOptions& options) {
    AddSwitch(command, "--json", options.json, "Print JSON");
    AddPath(command, "--html", options.html, "FILE", "Write the report as one HTML file, too");
}

ExitCode ParseAndRun(std::vector<std::string> arguments) {
    CLI::App program("Upgrades the databases of a mail server, and shows what an upgrade did.", "krxpatch");
    program.formatter(std::make_shared<HelpText>()); // the commands have it too
    program.set_help_flag("--help", "Print this help and exit");
    program.set_version_flag("--version", "krxpatch " KRXPATCH_VERSION);
    program.require_subcommand(0, 1); // an unknown word is reported as such before a missing command is
    program.footer("Exit codes: 0 done, 1 not done or not wholly, 2 could not start, 3 changes pending.\n"
                   "krxpatch COMMAND --help tells more about a command.");

    SandboxOptions sandboxOptions{.folder = {}, .from = PathOf(KRXPATCH_SAMPLES), .sample = true};
    CLI::App* sandbox = AddCommand(program, "sandbox", "Lay out the sample server in a new or empty folder");
    AddPath(sandbox, "DIR", sandboxOptions.folder, "", "The folder")->required();
    CLI::Option* from =
        AddPath(sandbox, "--from", sandboxOptions.from, "TREE", "A tree of exports, instead of the sample server");

    RehearseOptions rehearseOptions;
    CLI::App* rehearse = AddCommand(program, "rehearse", "Copy a server folder, for an upgrade to be rehearsed there");
    AddPath(rehearse, "--server", rehearseOptions.server, "DIR", "The server folder, which holds notes.ini")
        ->required();
    AddPath(rehearse, "NEW", rehearseOptions.folder, "", "The copy: a new or empty folder")->required();

    RunOptions runOptions{.server = {}, .module = platform::ExecutableFolder() / platform::moduleFile};
    CLI::App* run = AddCommand(program, "run", "Upgrade a server, and show each step and the outcome");
    AddPath(run, "--server", runOptions.server, "DIR", "The server folder, which holds notes.ini")->required();
    AddPath(run, "--module", runOptions.module, "FILE", "The upgrade module, instead of the one beside this program");
    AddSwitch(run, "--real-time", runOptions.realTime, "Keep the pauses, which are skipped otherwise");

    StatusOptions statusOptions;
    CLI::App* status = AddCommand(program, "status", "Tell what a server carries; writes nothing");
    AddPath(status, "--server", statusOptions.server, "DIR", "The server folder, which holds notes.ini")->required();
    AddSwitch(status, "--json", statusOptions.json, "Print JSON");

    PlanOptions planOptions{.server = {}, .module = runOptions.module, .output = {}};
    CLI::App* plan = AddCommand(program, "plan", "Tell what an upgrade would change; writes nothing in the folder");
    AddPath(plan, "--server", planOptions.server, "DIR", "The server folder, which holds notes.ini")->required();
    AddPath(plan, "--module", planOptions.module, "FILE", "The upgrade module, instead of the one beside this program");
    AddReport(plan, planOptions.output);

    VerifyOptions verifyOptions;
    CLI::App* verify = AddCommand(program, "verify", "Tell whether an upgrade is really done; writes nothing");
    AddPath(verify, "--server", verifyOptions.server, "DIR", "The server folder, which holds notes.ini")->required();
    AddSwitch(verify, "--json", verifyOptions.output.json, "Print JSON");

    DiffOptions diffOptions;
    CLI::App* diff = AddCommand(program, "diff", "Compare two databases, or two server folders");
    AddPath(diff, "A", diffOptions.before, "", "A database, a server folder or a folder of databases")->required();
    AddPath(diff, "B", diffOptions.after, "", "What it is compared with")->required();
    AddReport(diff, diffOptions.output);

    ImportOptions importOptions;
    CLI::App* import = AddCommand(program, "import", "Make a database from DXL");
    AddPath(import, "DB", importOptions.database, "", "The database file to make")->required();
    AddPath(import, "FILE.dxl", importOptions.dxl, "", "The DXL file")->required();
    CLI::Option* replace = AddSwitch(import, "--force", importOptions.force, "Replace an existing database");
    AddSwitch(import, "--into", importOptions.into, "Add the file's one note to an existing database")
        ->excludes(replace);

    ExportOptions exportOptions;
    CLI::App* dxlExport = AddCommand(program, "export", "Write a database as DXL");
    AddPath(dxlExport, "DB", exportOptions.database, "", "The database file")->required();
    AddPath(dxlExport, "FILE.dxl", exportOptions.dxl, "", "The DXL file to write; - or nothing for standard output");
    AddSwitch(dxlExport, "--stable", exportOptions.stable,
              "Leave out note IDs, sequence numbers, times and signature values");
    AddSwitch(dxlExport, "--force", exportOptions.force, "Replace an existing file");

    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the end
        program.parse(std::move(arguments));
    } catch (const CLI::Success& helpOrVersion) {
        program.exit(helpOrVersion);
        return succeeded;
    } catch (const CLI::ParseError& error) {
        throw Failure(notStarted, std::string(error.what()) + " (krxpatch --help tells more)");
    }
    if (program.get_subcommands().empty()) {
        throw Failure(notStarted, "a command is missing (krxpatch --help tells more)");
    }
    if (sandbox->parsed()) {
        sandboxOptions.sample = from->count() == 0;
        return Sandbox(sandboxOptions);
    }
    if (rehearse->parsed()) {
        return Rehearse(rehearseOptions);
    }
    if (run->parsed()) {
        return Run(runOptions);
    }
    if (status->parsed()) {
        return Status(statusOptions);
    }
    if (plan->parsed()) {
        return Plan(planOptions);
    }
    if (verify->parsed()) {
        return Verify(verifyOptions);
    }
    if (diff->parsed()) {
        return Diff(diffOptions);
    }
    return import->parsed() ? Import(importOptions) : Export(exportOptions);
}

} // namespace
} // namespace krxpatch

int main(int argc, char** argv) {
    using namespace krxpatch;
    platform::PrepareOutput(); // "krxpatch run | head" must not end the upgrade
    const auto report = [](ExitCode exitCode, const std::string& message) {
        std::cerr << "krxpatch: " << message << '\n';
        return exitCode;
    };
    try {
        const ExitCode exitCode = ParseAndRun(platform::Arguments(argc, argv));
        return std::cout.flush() ? exitCode : report(failed, "standard output: cannot be written");
    } catch (const Failure& failure) {
        std::cout.flush(); // what was done so far stands before the reason
        return report(failure.Code(), failure.what());
    } catch (const std::filesystem::filesystem_error& error) {
        return report(failed, error.path1().string() + ": " + error.code().message());
    } catch (const std::exception& error) {
        return report(failed, error.what());
    }
}
