#include "cli/completion.h"

#include <algorithm>

#include "cli/control_text.h"
#include "cli/launch.h"
#include "command_line/completion.h"

namespace vboard {

namespace {

using command_line::Candidates;

constexpr const char *kFileOptions[] = {"--board", "--preload", "--runtime", "--writable", "--documents"};

std::vector<const CLI::App *> commands_of(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *) { return true; });
}

const CLI::App *command_named(const CLI::App &app, const std::string &name)
{
    const std::vector<const CLI::App *> all = commands_of(app);
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto *each) { return each->get_name() == name; });
    return found == all.end() ? nullptr : *found;
}

const CLI::Option *option_named(const CLI::App &command, const std::string &name)
{
    const CLI::Option *option = name.starts_with("-") ? command.get_option_no_throw(name) : nullptr;
    return option && option->get_items_expected_max() != 0 ? option : nullptr;
}

void add_types(Candidates &candidates)
{
    for (const auto &[type, name] : board_types())
        candidates.push_back({type, name});
}

void add_values_of(Candidates &candidates, const std::string &option)
{
    if (option == "--type")
        add_types(candidates);
    else if (option == "--completion")
        candidates.insert(candidates.end(), {{"bash", ""}, {"zsh", ""}, {"fish", ""}});
    else if (std::find(std::begin(kFileOptions), std::end(kFileOptions), option) != std::end(kFileOptions))
        candidates.push_back({command_line::kFiles, ""});
}

void add_options_of(Candidates &candidates, const CLI::App &app)
{
    for (const CLI::Option *option :
         app.get_options([](const CLI::Option *each) { return !each->get_group().empty(); }))
        for (const std::string &name : option->get_lnames())
            candidates.push_back({"--" + name, option->get_description()});
}

Candidates candidates_of(const CLI::App &app, const CLI::App *command, const Words &said, const std::string &typed)
{
    Candidates candidates;
    if (typed.starts_with("-"))
        add_options_of(candidates, command ? *command : app);
    else if (!command)
        for (const CLI::App *each : commands_of(app))
            candidates.push_back({each->get_name(), each->get_description()});
    else if (command->get_name() == "ctl")
        candidates = control_candidates(said);
    else if (command->get_name() == "create" && said.empty())
        candidates.push_back({command_line::kFiles, ""});
    return candidates;
}

} // namespace

std::string completions(const CLI::App &app, const Words &words)
{
    if (words.empty())
        return {};
    const CLI::App *command = nullptr;
    std::string option; // whose value comes next
    Words said;         // words of the command that are not options
    for (auto word = words.begin(); word + 1 != words.end(); ++word) {
        if (!option.empty()) {
            option.clear();
        } else if (*word == "--") {
            return command_line::completion_lines({{command_line::kCommand, ""}}, words.back());
        } else if (option_named(command ? *command : app, *word)) {
            option = *word;
        } else if (!word->starts_with("-")) {
            if (command)
                said.push_back(*word);
            else if (!(command = command_named(app, *word)))
                return {};
        }
    }
    Candidates candidates;
    if (!option.empty())
        add_values_of(candidates, option);
    else
        candidates = candidates_of(app, command, said, words.back());
    return command_line::completion_lines(candidates, words.back());
}

} // namespace vboard
