// Copies a page from standard input to standard output. In the place of a line such as @MAN COMMANDS@ it prints what
// the registration of the commands tells.
#include <algorithm>
#include <functional>
#include <iostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "command_line.h"

namespace krxpatch {
namespace {

using Options = std::vector<const CLI::Option*>;

bool TakesValue(const CLI::Option& option) {
    return option.get_expected_max() != 0;
}

Options Named(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

Options Arguments(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

/** The names of the options that all commands have. */
std::set<std::string> CommonOptions(const CLI::App& program) {
    const auto commands = program.get_subcommands({});
    std::set<std::string> common;
    for (const CLI::Option* option : Named(*commands.front())) {
        if (std::ranges::all_of(commands, [&](const CLI::App* command) {
                return command->get_option_no_throw(option->get_name()) != nullptr;
            })) {
            common.insert(option->get_name());
        }
    }
    return common;
}

// The man page, in the language of mdoc(7)

/** A text as a line of its own. */
std::string ManText(const std::string& text) {
    std::string line = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
    for (const char character : text) {
        line += character == '\\' ? "\\e" : character == '-' ? "\\-" : std::string(1, character);
    }
    return line + '\n';
}

/** An option by its names and what it takes, or an argument. */
std::string ManTerm(const CLI::Option& option) {
    if (option.get_positional()) {
        return "Ar " + option.get_name();
    }
    std::string term;
    for (const std::string& name : option.get_snames()) {
        term += "Fl " + name + " , ";
    }
    return term + "Fl -" + option.get_lnames().front() + (TakesValue(option) ? " Ar " + option.get_type_name() : "");
}

void PrintManOptions(const CLI::App& command, const std::function<bool(const CLI::Option* option)>& filter) {
    if (const Options options = command.get_options(filter); !options.empty()) {
        std::cout << ".Bl -tag -width Ds\n";
        for (const CLI::Option* option : options) {
            std::cout << ".It " << ManTerm(*option) << '\n' << ManText(option->get_description());
        }
        std::cout << ".El\n";
    }
}

/** A command with all that must be given, and its arguments. */
void PrintManHeading(const CLI::App& command) {
    std::cout << ".It Cm " << command.get_name();
    for (const CLI::Option* option : Named(command)) {
        std::cout << (option->get_required() ? ' ' + ManTerm(*option) : "");
    }
    for (const CLI::Option* option : Arguments(command)) {
        std::cout << (option->get_required() ? " " : " Op ") << ManTerm(*option);
    }
    std::cout << '\n';
}

void PrintManCommands(const CLI::App& program) {
    const std::set<std::string> common = CommonOptions(program);
    std::cout << ".Bl -tag -width Ds\n";
    for (const CLI::App* command : program.get_subcommands({})) {
        PrintManHeading(*command);
        std::cout << ManText(command->get_description());
        PrintManOptions(*command, [&](const CLI::Option* option) { return !common.contains(option->get_name()); });
    }
    std::cout << ".El\n";
}

void PrintManCommonOptions(const CLI::App& program) {
    const std::set<std::string> common = CommonOptions(program);
    PrintManOptions(*program.get_subcommands({}).front(),
                    [&](const CLI::Option* option) { return common.contains(option->get_name()); });
}

void PrintManExitStatus(const CLI::App&) {
    std::cout << ".Bl -tag -width Ds\n";
    for (const ExitMeaning& row : exitMeanings) {
        std::cout << ".It " << row.code << '\n' << ManText(row.meaning);
    }
    std::cout << ".El\n";
}

void PrintManVersion(const CLI::App&) {
    std::cout << ".Os krxpatch " KRXPATCH_VERSION "\n";
}

// The completion: a row for each command

/** What an option takes, or an argument is. */
std::string Kind(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const std::string what = type.empty() ? option.get_name() : type; // of a path the name tells
    return what == "DIR" || what == "TREE" ? "folder" : what == "TEXT" ? "text" : "file";
}

/** The options, those that take something with its kind behind them. */
std::string OptionWords(const CLI::App& command) {
    std::string words;
    for (const CLI::Option* option : Named(command)) {
        for (const std::string& name : option->get_snames()) {
            words += "-" + name + ' ';
        }
        for (const std::string& name : option->get_lnames()) {
            words += "--" + name + (TakesValue(*option) ? "=" + Kind(*option) : "") + ' ';
        }
    }
    return words;
}

void PrintCompletionRows(const CLI::App& program) {
    std::string commands;
    for (const CLI::App* command : program.get_subcommands({})) {
        std::string kinds;
        for (const CLI::Option* argument : Arguments(*command)) {
            kinds += Kind(*argument) + ' ';
        }
        std::cout << "    " << command->get_name() << ") options='" << OptionWords(*command) << "' arguments='" << kinds
                  << "' ;;\n";
        commands += command->get_name() + ' ';
    }
    std::cout << "    '') options='" << commands << OptionWords(program) << "' ;;\n";
}

struct Part {
    std::string_view line;
    void (*print)(const CLI::App& program);
};

constexpr Part parts[] = {
    {"@MAN VERSION@", PrintManVersion},
    {"@MAN COMMANDS@", PrintManCommands},
    {"@MAN COMMON OPTIONS@", PrintManCommonOptions},
    {"@MAN EXIT STATUS@", PrintManExitStatus},
    {"@COMPLETION ROWS@", PrintCompletionRows},
};

/** False when there is nothing of the name that the line gives. */
bool PrintLine(const std::string& line, const CLI::App& program) {
    const auto part = std::ranges::find(parts, line, &Part::line);
    if (part != std::end(parts)) {
        part->print(program);
        return true;
    }
    std::cout << line << '\n';
    return !line.starts_with('@');
}

} // namespace
} // namespace krxpatch

int main() {
    bool complete = true;
    krxpatch::DescribeCommands([&](const CLI::App& program) {
        for (std::string line; std::getline(std::cin, line);) {
            complete = krxpatch::PrintLine(line, program) && complete;
        }
    });
    return complete && std::cout.flush() ? 0 : 1;
}
