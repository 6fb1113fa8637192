#include "ddalctl/completion.h"

#include <algorithm>

#include "command_line/completion.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/help.h"

namespace ddalctl {

namespace {

using command_line::Candidates;

constexpr uint64_t kMostNumbers = 32; // a longer range says nothing
constexpr const char *kVersion = "--version";
constexpr const char *kCompletion = "--completion";
constexpr Choice kShells[] = {{"bash", 0}, {"zsh", 0}, {"fish", 0}};

const std::vector<Argument> &common_options()
{
    static const std::vector<Argument> options = {
        {"--json", Kind::flag, "print JSON"},
        {"--verbose", Kind::flag, "print the log lines of the library"},
        {"--help", Kind::flag, "print help"},
        {kVersion, Kind::flag, "print the version of this program"},
        one_of<kShells>(kCompletion, "print the completion script of a shell"),
    };
    return options;
}

// The command line as far as the words before the typed one tell it.
struct Position {
    const Family *family = nullptr;
    const Command *command = nullptr;
    const Argument *option = nullptr;   // the option whose value is typed
    bool is_wrong = false;              // there is no such family or command
    std::vector<std::string> arguments; // words of the positional arguments
};

const Argument *option_named(const Position &position, const std::string &name)
{
    if (position.command) {
        for (const Argument &argument : position.command->arguments)
            if (name == argument.name)
                return &argument;
    }
    for (const Argument &option : common_options())
        if (name == option.name)
            return &option;
    return nullptr;
}

const Command *command_of(const Family &family, const std::string &verb)
{
    const auto found = std::find_if(family.commands.begin(), family.commands.end(),
                                    [&](const Command &command) { return verb == command.verb; });
    return found == family.commands.end() ? nullptr : &*found;
}

void take(Position &position, const std::string &word)
{
    if (position.option) {
        position.option = nullptr;
    } else if (word.starts_with("-")) {
        const Argument *option = option_named(position, word);
        position.option = option && option->kind != Kind::flag ? option : nullptr;
    } else if (position.command) {
        position.arguments.push_back(word);
    } else if (position.family) {
        position.command = command_of(*position.family, word);
        position.is_wrong = !position.command;
    } else {
        position.family = family_named(word);
        position.command = position.family ? command_of(*position.family, "") : nullptr;
        position.is_wrong = !position.family;
    }
}

void add_values(Candidates &candidates, const Argument &argument, std::vector<std::string> words)
{
    if (argument.values) {
        for (const std::string &word : argument.values(words))
            candidates.push_back({word, ""});
    } else if (argument.kind == Kind::number && argument.max - argument.min < kMostNumbers) {
        for (uint64_t number = argument.min; number <= argument.max; number += argument.step)
            candidates.push_back({std::to_string(number), ""});
    }
}

// The positional argument that is typed; null if there are no more.
const Argument *next_argument(const Position &position)
{
    size_t place = 0;
    for (const Argument &argument : position.command->arguments) {
        if (argument.kind == Kind::words || (!argument.is_option() && place++ == position.arguments.size()))
            return &argument;
    }
    return nullptr;
}

void add_options(Candidates &candidates, const Position &position)
{
    if (position.command) {
        for (const Argument &argument : position.command->arguments)
            if (argument.is_option())
                candidates.push_back({argument.name, argument.help});
    }
    for (const Argument &option : common_options()) {
        const std::string name = option.name;
        if ((name != kVersion && name != kCompletion) || !position.family)
            candidates.push_back({option.name, option.help});
    }
}

void add_words(Candidates &candidates, const Position &position, const std::string &typed)
{
    std::vector<std::string> words = position.arguments;
    words.push_back(typed);
    if (position.option) {
        add_values(candidates, *position.option, words);
    } else if (typed.starts_with("-")) {
        add_options(candidates, position);
    } else if (position.command) {
        if (const Argument *argument = next_argument(position))
            add_values(candidates, *argument, words);
        else
            add_options(candidates, position);
    } else if (position.family) {
        for (const Command &command : position.family->commands)
            candidates.push_back({command.verb, command.summary});
    } else {
        for (const Family *family : families_and_help())
            candidates.push_back({family->name, family->summary});
    }
}

} // namespace

std::string completions(const std::vector<std::string> &words)
{
    if (words.empty())
        return "";
    Position position;
    for (size_t i = 0; i + 1 < words.size(); i++)
        take(position, words[i]);
    Candidates candidates;
    if (!position.is_wrong)
        add_words(candidates, position, words.back());
    return command_line::completion_lines(candidates, words.back());
}

} // namespace ddalctl
