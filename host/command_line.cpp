#include "command_line.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <set>
#include <utility>

#include <CLI/CLI.hpp>

#include "platform.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

const CLI::Validator notEmpty(
    [](const std::string& text) {
        return text.empty()             ? std::string("must not be empty")
               : text.starts_with("--") ? "is missing: " + text + " is an option (./" + text + " would be a name)"
                                        : std::string();
    },
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

std::string ExitCodesText() {
    std::string text = "Exit codes:\n";
    for (const ExitMeaning& row : exitMeanings) {
        text += "  " + std::to_string(row.code) + "  " + row.meaning + "\n";
    }
    return text + "krxpatch COMMAND --help tells more about a command.";
}

/** What all commands have. */
struct Look {
    bool json = false;
    bool quiet = false;
    bool noColour = false;

    [[nodiscard]] bool Colour() const {
        const char* without = std::getenv("NO_COLOR");
        return !noColour && (without == nullptr || *without == '\0') && platform::OutputIsTerminal();
    }
};

/** The commands as they are registered, one function each. A command's options live as long as the function that
 *  carries it out. */
class Registration {
public:
    explicit Registration(CLI::App& program) : program_(program) {}

    void AddAll() {
        AddCheck();
        AddRun();
        AddRestore();
        AddStatus();
        AddHistory();
        AddLog();
        AddExplain();
        AddPlan();
        AddVerify();
        AddDiff();
        AddSandbox();
        AddRehearse();
        AddImport();
        AddExport();
    }

    [[nodiscard]] CommandLine Chosen() const { return chosen_; }
    [[nodiscard]] bool IsSwitch(const std::string& name) const { return switches_.contains(name); }
    /** Whether a command prints its report itself. */
    [[nodiscard]] bool PrintsReport(const std::string& command) const { return reporters_.contains(command); }

private:
    void AddCheck() {
        CLI::App* command = Add("check", "Tell all that can be seen to go wrong in an upgrade; writes nothing");
        const auto options = std::make_shared<CheckOptions>();
        AddServer(command, options->server);
        AddPage(command, options->output);
        CarryAndPrint(command, options, CheckServer);
    }

    void AddRun() {
        CLI::App* command = Add("run", "Check a server, keep a copy, upgrade it, and tell the outcome");
        const auto options = std::make_shared<RunOptions>();
        options->module = platform::ExecutableFolder() / platform::moduleFile;
        AddServer(command, options->server);
        AddPath(command, "--module", options->module, "FILE",
                "The upgrade module, instead of the one beside this program");
        AddSwitch(command, "--real-time", options->realTime, "Keep the pauses, which are skipped otherwise");
        AddSwitch(command, "--force", options->force, "Go on whatever the checks say");
        AddSwitch(command, "-v,--verbose", options->verbose, "Show the lines of the module's own log");
        AddPage(command, options->output);
        CarryAndPrint(command, options, Run);
    }

    void AddRestore() {
        CLI::App* command = Add("restore", "Put the safety copy of a run back");
        const auto options = std::make_shared<RestoreOptions>();
        AddServer(command, options->server);
        CLI::Option* id =
            command->add_option("ID", options->id, "The copy, as --list tells; without it the newest")->check(notEmpty);
        CLI::Option* list = AddSwitch(command, "--list", options->list, "List the copies; writes nothing");
        CLI::Option* discard =
            AddSwitch(command, "--discard", options->discard, "Remove the copy, or without ID all, instead");
        AddSwitch(command, "--force", options->force, "Discard also the copy of a run that died")->needs(discard);
        list->excludes(id)->excludes(discard);
        Carry(command, [options](const Look&, Report& report) {
            platform::NoteInterrupts();
            return Restore(*options, report);
        });
    }

    void AddStatus() {
        CLI::App* command = Add("status", "Tell what a server carries; writes nothing");
        const auto options = std::make_shared<StatusOptions>();
        AddServer(command, options->server);
        Carry(command, [options](const Look&, Report& report) { return Status(*options, report); });
    }

    void AddHistory() {
        CLI::App* command = Add("history", "Tell who did what to a server, and when; writes nothing");
        const auto options = std::make_shared<HistoryOptions>();
        AddServer(command, options->server);
        Carry(command, [options](const Look&, Report& report) { return History(*options, report); });
    }

    void AddLog() {
        CLI::App* command = Add("log", "Show the module's log, each line explained; writes nothing");
        const auto options = std::make_shared<LogOptions>();
        AddServer(command, options->server);
        AddSwitch(command, "--errors", options->errorsOnly, "Only what went wrong");
        AddSwitch(command, "--follow", options->follow, "Go on with lines to come, until interrupted");
        Carry(command, [options](const Look& look, Report& report) {
            options->colour = look.Colour();
            if (options->follow && look.json) {
                throw Failure(notStarted, "--follow does not go with --json, which is printed at the end");
            }
            return ShowLog(*options, report);
        });
    }

    void AddExplain() {
        CLI::App* command = Add("explain", "Explain a status or a line of the module's log");
        const auto options = std::make_shared<ExplainOptions>();
        command->add_option("CODE|TEXT", options->text, "Such as 13ea, or the line in quotes; without it all lines");
        Carry(command, [options](const Look&, Report& report) { return ExplainText(*options, report); });
    }

    void AddPlan() {
        CLI::App* command = Add("plan", "Tell what an upgrade would change; writes nothing in the folder");
        const auto options = std::make_shared<PlanOptions>();
        options->module = platform::ExecutableFolder() / platform::moduleFile;
        AddServer(command, options->server);
        AddPath(command, "--module", options->module, "FILE",
                "The upgrade module, instead of the one beside this program");
        AddPage(command, options->output);
        CarryAndPrint(command, options, Plan);
    }

    void AddVerify() {
        CLI::App* command = Add("verify", "Tell whether an upgrade is really done; writes nothing");
        const auto options = std::make_shared<VerifyOptions>();
        AddServer(command, options->server);
        AddPage(command, options->output);
        CarryAndPrint(command, options, Verify);
    }

    void AddDiff() {
        CLI::App* command = Add("diff", "Compare two databases, or two server folders");
        const auto options = std::make_shared<DiffOptions>();
        AddPath(command, "A", options->before, "", "A database, a server folder or a folder of databases")->required();
        AddPath(command, "B", options->after, "", "What it is compared with")->required();
        AddPage(command, options->output);
        CarryAndPrint(command, options, Diff);
    }

    void AddSandbox() {
        CLI::App* command = Add("sandbox", "Lay out the sample server in a new or empty folder");
        const auto options = std::make_shared<SandboxOptions>();
        const std::filesystem::path sample = platform::ExecutableFolder() / "samples" / "server";
        options->from = sample;
        AddPath(command, "DIR", options->folder, "", "The folder")->required();
        AddPath(command, "--from", options->from, "TREE", "A tree of exports, instead of the sample server");
        Carry(command, [options, sample](const Look& look, Report&) {
            platform::NoteInterrupts();
            options->colour = look.Colour();
            options->sample = options->from == sample;
            return Sandbox(*options);
        });
    }

    void AddRehearse() {
        CLI::App* command = Add("rehearse", "Copy a server folder, for an upgrade to be rehearsed there");
        const auto options = std::make_shared<RehearseOptions>();
        AddServer(command, options->server);
        AddPath(command, "NEW", options->folder, "", "The copy: a new or empty folder")->required();
        Carry(command, [options](const Look&, Report&) {
            platform::NoteInterrupts();
            return Rehearse(*options);
        });
    }

    void AddImport() {
        CLI::App* command = Add("import", "Make a database from DXL");
        const auto options = std::make_shared<ImportOptions>();
        AddPath(command, "DB", options->database, "", "The database file to make")->required();
        AddPath(command, "FILE.dxl", options->dxl, "", "The DXL file")->required();
        CLI::Option* replace = AddSwitch(command, "--force", options->force, "Replace an existing database");
        AddSwitch(command, "--into", options->into, "Add the file's one note to an existing database")
            ->excludes(replace);
        Carry(command, [options](const Look&, Report& report) {
            platform::NoteInterrupts();
            return Import(*options, report);
        });
    }

    void AddExport() {
        CLI::App* command = Add("export", "Write a database as DXL");
        const auto options = std::make_shared<ExportOptions>();
        AddPath(command, "DB", options->database, "", "The database file")->required();
        AddPath(command, "FILE.dxl", options->dxl, "", "The DXL file to write; - or nothing for standard output");
        AddSwitch(command, "--stable", options->stable,
                  "Leave out note IDs, sequence numbers, times and signature values");
        AddSwitch(command, "--force", options->force, "Replace an existing file");
        Carry(command, [options](const Look& look, Report&) {
            if ((options->dxl.empty() || options->dxl == "-") && (look.json || look.quiet)) {
                throw Failure(notStarted, "--json and --quiet go with FILE.dxl only: standard output gets the DXL");
            }
            options->json = look.json;
            return Export(*options);
        });
    }

    CLI::App* Add(const std::string& name, const std::string& description) {
        CLI::App* command = program_.add_subcommand(name, description);
        command->set_help_flag("-h,--help", "Print this help and exit");
        AddSwitch(command, "--json", look_->json, "Print JSON instead of text");
        AddSwitch(command, "--quiet", look_->quiet, "Print nothing but what went wrong");
        AddSwitch(command, "--no-color", look_->noColour, "No colours on a terminal, as with NO_COLOR set");
        return command;
    }

    static CLI::Option* AddPath(CLI::App* command, const std::string& name, std::filesystem::path& path,
                                const std::string& kind, const std::string& description) {
        return command
            ->add_option_function<std::string>(
                name, [&path](const std::string& text) { path = PathOf(text); }, description)
            ->type_name(kind)
            ->check(notEmpty);
    }

    static void AddServer(CLI::App* command, std::filesystem::path& server) {
        AddPath(command, "--server", server, "DIR", "The server folder, which holds notes.ini")->required();
    }

    CLI::Option* AddSwitch(CLI::App* command, const std::string& name, bool& on, const std::string& description) {
        switches_.insert(name.substr(name.find("--")));
        return command->add_flag(name, on, description)->disable_flag_override();
    }

    void AddPage(CLI::App* command, ReportOptions& options) {
        AddPath(command, "--html", options.html, "FILE", "Write the report as one HTML file, too");
    }

    /** A command that prints its report itself. */
    template<class Options>
    void CarryAndPrint(CLI::App* command, const std::shared_ptr<Options>& options,
                       ExitCode (*carryOut)(const Options& options)) {
        command->callback([this, name = command->get_name(), options, carryOut] {
            options->output.json = look_->json;
            options->output.colour = look_->Colour();
            chosen_ = {name, look_->json, look_->quiet, true,
                       [options, carryOut](Report&) { return carryOut(*options); }};
        });
        reporters_.insert(command->get_name());
    }

    template<class Command>
    void Carry(CLI::App* command, Command carryOut) {
        command->callback([this, name = command->get_name(), carryOut] {
            chosen_ = {name, look_->json, look_->quiet, false,
                       [look = look_, carryOut](Report& report) { return carryOut(*look, report); }};
        });
    }

    CLI::App& program_;
    std::shared_ptr<Look> look_ = std::make_shared<Look>();
    CommandLine chosen_;
    std::set<std::string> switches_;
    std::set<std::string> reporters_;
};

/** How many letters to change, add or take away to make one word of another. */
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

/** Throws Failure for a word that is none of the names, with the one that may be meant. */
void RequireKnown(const std::string& kind, const std::string& word, const std::vector<std::string>& names) {
    constexpr size_t similar = 2;
    std::string meant;
    size_t least = similar + 1;
    for (const std::string& name : names) {
        const size_t distance = name.starts_with(word) || word.starts_with(name) ? 1 : Distance(word, name);
        if (name == word) {
            return;
        }
        if (distance < least) {
            least = distance;
            meant = name;
        }
    }
    throw Failure(notStarted, "there is no " + kind + " '" + word + "'" +
                                  (meant.empty() ? "" : "; is " + meant + " meant?") + " (krxpatch --help tells more)");
}

/** An unknown word in the place of the command. */
void RequireCommand(const CLI::App& program, const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        throw Failure(notStarted, "a command is missing (krxpatch --help tells more)");
    }
    if (arguments.front().starts_with('-')) {
        return;
    }
    std::vector<std::string> names;
    for (const CLI::App* command : program.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    RequireKnown("command", arguments.front(), names);
}

/** The options of the command that is named first; the parser would miss what it requires before it tells of others. */
void RequireOptions(const CLI::App& program, const std::vector<std::string>& arguments) {
    if (arguments.front().starts_with('-')) {
        return;
    }
    std::vector<std::string> names;
    for (const CLI::Option* option : program.get_subcommand(arguments.front())->get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    for (const std::string& argument : arguments) {
        if (argument == "--") { // names of files follow
            return;
        }
        if (argument.starts_with("--")) {
            RequireKnown("option", argument.substr(0, argument.find('=')), names);
        }
    }
}

/** Throws Failure. */
CommandLine Parse(CLI::App& program, const Registration& registration, std::vector<std::string> arguments) {
    RequireCommand(program, arguments);
    RequireOptions(program, arguments);
    for (const std::string& argument : arguments) {
        if (const size_t equals = argument.find('=');
            equals != std::string::npos && registration.IsSwitch(argument.substr(0, equals))) {
            throw Failure(notStarted, argument.substr(0, equals) + " is a switch and takes no value");
        }
    }
    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the end
        program.parse(std::move(arguments));
    } catch (const CLI::Success& helpOrVersion) {
        program.exit(helpOrVersion);
        return {};
    } catch (const CLI::ParseError& error) {
        throw Failure(notStarted, std::string(error.what()) + " (krxpatch --help tells more)");
    }
    if (!registration.Chosen().run) {
        throw Failure(notStarted, "a command is missing (krxpatch --help tells more)");
    }
    return registration.Chosen();
}

/** What tells of the failure as the command would have. */
CommandLine Refuse(const Registration& registration, const std::vector<std::string>& arguments,
                   const Failure& failure) {
    CommandLine line;
    line.command = arguments.empty() || arguments.front().starts_with('-') ? "" : arguments.front();
    line.json = std::ranges::find(arguments, "--json") != arguments.end();
    line.printsReport = registration.PrintsReport(line.command);
    line.run = [line, failure](Report&) -> ExitCode {
        if (!line.printsReport) {
            throw failure;
        }
        ReportOptions output;
        output.json = line.json;
        return OutputReport(line.command, output, [&](ChangeReport&) { throw failure; });
    };
    return line;
}

/** The program with its commands. */
struct Program {
    Program() {
        parser.formatter(std::make_shared<HelpText>()); // the commands have it too
        parser.set_help_flag("-h,--help", "Print this help and exit");
        parser.set_version_flag("--version", "krxpatch " KRXPATCH_VERSION);
        parser.require_subcommand(0, 1); // a missing one is reported by Parse
        parser.footer(ExitCodesText());
        registration.AddAll();
    }

    CLI::App parser{"Upgrades the databases of a mail server, and shows what an upgrade did.", "krxpatch"};
    Registration registration{parser};
};

} // namespace

CommandLine ParseCommandLine(const std::vector<std::string>& arguments) {
    Program program;
    try {
        return Parse(program.parser, program.registration, arguments);
    } catch (const Failure& failure) {
        return Refuse(program.registration, arguments, failure);
    }
}

void DescribeCommands(const std::function<void(const CLI::App& program)>& describe) {
    describe(Program().parser);
}

} // namespace krxpatch
