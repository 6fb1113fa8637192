// Builds the command line from the families' tables. No other file uses the argument parser.
#include "ddalctl/cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "command_line/completion.h"
#include "command_line/suggestion.h"
#include "ddalctl/completion.h"
#include "ddalctl/evidence.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/help.h"
#include "ddalctl/manual.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

// The parser's result: the command and the values of its arguments.
struct Invocation {
    bool json = false;
    bool verbose = false;
    bool version = false;
    std::string completion;
    std::string documents; // the folder to write them to
    std::string name = "ddalctl";
    const Command *command = nullptr;
    Arguments arguments;
};

void add_argument(CLI::App &app, const Argument &argument, Invocation &invocation)
{
    if (argument.kind == Kind::flag) {
        app.add_flag_callback(
            argument.name, [&argument, &invocation] { invocation.arguments.set(argument, ""); }, argument.help);
        return;
    }
    if (argument.kind == Kind::words) {
        app.add_option_function<std::vector<std::string>>(
               argument.name,
               [&argument, &invocation](const std::vector<std::string> &values) {
                   for (const std::string &value : values)
                       invocation.arguments.set(argument, value);
               },
               argument.help)
            ->type_name("TEXT")
            ->required(!argument.optional);
        return;
    }
    CLI::Option *option = app.add_option_function<std::string>(
        argument.name,
        [&argument, &invocation](const std::string &value) { invocation.arguments.set(argument, value); },
        argument.help);
    option->type_name(value_name(argument));
    option->required(!argument.optional && !argument.is_option());
}

void add_command(CLI::App &app, const Family &family, const Command &command, Invocation &invocation)
{
    for (const Argument &argument : command.arguments)
        add_argument(app, argument, invocation);
    app.final_callback([&family, &command, &invocation] {
        invocation.command = &command;
        invocation.name = std::string("ddalctl ") + family.name + (*command.verb ? " " : "") + command.verb;
    });
}

void add_family(CLI::App &root, const Family &family, Invocation &invocation)
{
    CLI::App *app = root.add_subcommand(family.name, family.summary);
    for (const Command &command : family.commands) {
        if (!*command.verb) {
            add_command(*app, family, command, invocation);
            continue;
        }
        add_command(*app->add_subcommand(command.verb, command.summary), family, command, invocation);
        app->require_subcommand(1);
    }
}

void define(CLI::App &root, Invocation &invocation)
{
    root.name("ddalctl");
    root.fallthrough();
    root.require_subcommand(0, 1);
    root.add_flag("--json", invocation.json, "print one JSON document, also for a failure");
    root.add_flag("--verbose", invocation.verbose,
                  "print the log lines of the library on standard error, with their times");
    root.add_flag("--version", invocation.version, "print the version of this program");
    root.add_option("--completion", invocation.completion, "print the completion script of bash, zsh or fish")
        ->type_name("SHELL");
    root.add_option("--documents", invocation.documents)->group("");
    root.footer("Exit status: 0 success, 1 the operation failed, 2 wrong use,\n"
                "3 the board, device, property or item does not exist.\n"
                "Numbers are decimal, or hexadecimal after 0x.");
    for (const Family *family : families_and_help())
        add_family(root, *family, invocation);
}

// A command line that cannot be parsed still gets its answer in the requested form.
bool asks_for_json(int argc, char **argv)
{
    return std::find(argv + 1, argv + argc, std::string("--json")) != argv + argc;
}

bool is_verb_of(const Family &family, const std::string &word)
{
    return std::any_of(family.commands.begin(), family.commands.end(),
                       [&](const Command &command) { return word == command.verb; });
}

// The reason why the parser refused the words, and the help to read.
WrongUse refusal(const CLI::ParseError &error, int argc, char **argv)
{
    std::vector<std::string> words;
    std::copy_if(argv + 1, argv + argc, std::back_inserter(words),
                 [](const std::string &word) { return !word.starts_with("-"); });
    const Family *family = words.empty() ? nullptr : family_named(words[0]);
    if (!family)
        return WrongUse(
            (words.empty() ? error.what() : "no command \"" + words[0] + "\"" + family_suggestion(words[0])) +
            "; see ddalctl --help");

    const std::string help = std::string("; see ddalctl ") + family->name;
    if (is_verb_of(*family, ""))
        return WrongUse(error.what() + help + " --help");
    const std::string verb = words.size() > 1 ? words[1] : "";
    if (is_verb_of(*family, verb))
        return WrongUse(error.what() + help + " " + verb + " --help");
    std::string verbs;
    std::vector<std::string> names;
    for (const Command &command : family->commands) {
        verbs += (verbs.empty() ? "" : ", ") + std::string(command.verb);
        names.emplace_back(command.verb);
    }
    const std::string what =
        verb.empty() ? " requires a command"
                     : " does not know the command \"" + verb + "\"" + command_line::suggestion(verb, names);
    return WrongUse(family->name + what + "; give one of " + verbs + help + " --help");
}

int run_command(const Invocation &invocation)
{
    if (invocation.verbose)
        show_lines();
    Report report(invocation.json);
    invocation.command->run(invocation.arguments, report);
    report.print(stdout);
    if (fflush(stdout) != 0)
        throw Failure(-EIO, kOperationFailed, "cannot write the output");
    return report.status();
}

int run_parsed(const Invocation &invocation)
{
    if (!invocation.documents.empty()) {
        write_documents(invocation.documents);
        return kDone;
    }
    if (!invocation.completion.empty()) {
        const std::string script = command_line::completion_script(invocation.completion, "ddalctl");
        if (script.empty())
            throw WrongUse("--completion: \"" + invocation.completion + "\" is not one of bash, zsh, fish");
        fputs(script.c_str(), stdout);
        return kDone;
    }
    if (invocation.version) {
        puts(invocation.json ? "{\"version\": \"" DDALCTL_VERSION "\"}" : "ddalctl " DDALCTL_VERSION);
        return kDone;
    }
    if (!invocation.command)
        throw WrongUse("no command given; see ddalctl --help");
    return run_command(invocation);
}

} // namespace

int run(int argc, char **argv)
{
    if (argc > 1 && std::string(argv[1]) == command_line::kCompletionOption) {
        fputs(completions({argv + 2, argv + argc}).c_str(), stdout);
        return kDone;
    }
    Invocation invocation;
    CLI::App root("Inspect and control a radio board through libddal.");
    define(root, invocation);
    try {
        root.parse(argc, argv);
        return run_parsed(invocation);
    } catch (const CLI::CallForHelp &) {
        print_help(root.help(), asks_for_json(argc, argv));
        return kDone;
    } catch (const CLI::ParseError &error) {
        const WrongUse failure = refusal(error, argc, argv);
        print_failure(failure, invocation.name, invocation.command, asks_for_json(argc, argv));
        return failure.status();
    } catch (const Failure &failure) {
        print_failure(failure, invocation.name, invocation.command, asks_for_json(argc, argv));
        return failure.status();
    }
}

} // namespace ddalctl
