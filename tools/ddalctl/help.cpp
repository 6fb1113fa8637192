#include "ddalctl/help.h"

#include <algorithm>
#include <sstream>

#include "command_line/completion.h"
#include "command_line/suggestion.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr size_t kLineWidth = 80;

std::vector<Paragraph> list_of_families()
{
    std::vector<Paragraph> list;
    for (const Family &family : families())
        list.push_back({family.name, family.summary});
    return list;
}

std::vector<Topic> all_topics()
{
    return {
        {"families", "the families of commands", list_of_families()},
        {"numbers",
         "how to write numbers",
         {{"", "Numbers are decimal, or hexadecimal after 0x. A number outside the range of its argument is wrong use, "
               "and the message names the range."},
          {"", "Bytes are pairs of hexadecimal digits without 0x, such as 00ff12."}}},
        {"json",
         "JSON output",
         {{"", "With --json a command prints one JSON document on standard output, for a failure and for --help as "
               "well."},
          {"",
           "A command that watches, waits or follows events prints JSON Lines: one object a line as it happens, with "
           "\"time\" (RFC 3339, UTC, nanoseconds) and \"event\"."},
          {"",
           "A failure is one object named \"error\" with code, name, message, reason, operation, path, log and hint; "
           "a text without content is null."}}},
        {"exit-status",
         "the exit status",
         {{"0", "The command succeeded."},
          {"1", "The operation failed."},
          {"2", "Wrong use: an unknown word, or a value outside its range."},
          {"3", "The board, device, property or item does not exist."}}},
        {"environment",
         "environment variables",
         {{"NO_COLOR", "Any text that is not empty switches colours off. Without it, colours appear on a terminal "
                       "only."},
          {"TERM", "\"dumb\" switches colours and pictures in the terminal off."},
          {"COLUMNS", "Sets the width of a picture where the terminal does not tell its width."},
          {"TZ", "Sets the time zone of the times in the text output of \"ddalctl events\"."}}},
        {"failures",
         "what a failed command prints",
         {{"",
           "A failed command prints on standard error what failed and why. Lines below it give the path of the node, "
           "attribute, program or service, the log lines of the library, and the next step."},
          {"",
           "With --verbose every command prints the log lines of the library on standard error, with their times."}}},
        {"completion",
         "completion of typed words",
         {{"", "The packages install completion for bash, zsh and fish. In other places use the script that \"ddalctl "
               "--completion SHELL\" prints:"},
          {"bash", "source <(ddalctl --completion bash)"},
          {"zsh", "source <(ddalctl --completion zsh), after compinit"},
          {"fish", "ddalctl --completion fish | source"}}},
        {"virtual-board",
         "commands without a board",
         {{"",
           "Help, manual and completion work on every machine. All other commands require a board, or a virtual one "
           "of the package ddal-vboard: \"vboard run --type mbo -- ddalctl sfp show 1\"."}}},
    };
}

// Breaks a text into lines below `indent` columns.
std::string wrapped(const std::string &text, size_t indent)
{
    std::string lines;
    size_t column = kLineWidth;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        if (column + 1 + word.size() > kLineWidth) {
            lines += (lines.empty() ? "" : "\n") + std::string(indent, ' ') + word;
            column = indent + word.size();
        } else {
            lines += " " + word;
            column += 1 + word.size();
        }
    }
    return lines + "\n";
}

std::string definition(const std::string &term, const std::string &text, size_t indent, size_t width)
{
    std::string lines = wrapped(text, indent + width + 2);
    const std::string start = std::string(indent, ' ') + term;
    if (term.size() > width)
        return start + "\n" + lines;
    return lines.replace(0, start.size(), start);
}

std::string text_of(const Topic &topic)
{
    size_t width = 0;
    for (const Paragraph &paragraph : topic.paragraphs)
        width = std::max(width, paragraph.term.size());
    std::string text = std::string(topic.name) + ": " + topic.summary + "\n";
    for (const Paragraph &paragraph : topic.paragraphs) {
        text += paragraph.term.empty() ? "\n" + wrapped(paragraph.text, 0)
                                       : definition(paragraph.term, paragraph.text, 2, width);
    }
    return text;
}

std::string text_of(const Family &family, const Command &command)
{
    constexpr size_t kArgumentWidth = 12;
    std::string text = synopsis_of(family, command) + "\n" + wrapped(command.summary, 4);
    for (const Argument &argument : command.arguments)
        text += definition(argument.name, argument.help, 6, kArgumentWidth);
    return text;
}

std::string text_of(const Family &family, const std::string &verb)
{
    std::string text;
    std::vector<std::string> verbs;
    for (const Command &command : family.commands) {
        verbs.emplace_back(command.verb);
        if (verb.empty() || verb == command.verb)
            text += (text.empty() ? "" : "\n") + text_of(family, command);
    }
    if (text.empty())
        throw WrongUse(std::string("COMMAND: ") + family.name + " does not know the command \"" + verb + "\"" +
                       command_line::suggestion(verb, verbs));
    return verb.empty() ? std::string(family.name) + ": " + family.summary + "\n\n" + text : text;
}

std::vector<std::string> topic_names()
{
    std::vector<std::string> names;
    for (const Topic &topic : topics())
        names.emplace_back(topic.name);
    for (const Family *family : families_and_help())
        names.emplace_back(family->name);
    return names;
}

std::string text_of(const std::string &name, const std::string &verb)
{
    if (const Family *family = family_named(name))
        return text_of(*family, verb);
    for (const Topic &topic : topics()) {
        if (name == topic.name)
            return text_of(topic);
    }
    throw WrongUse("TOPIC: there is no topic \"" + name + "\"" + command_line::suggestion(name, topic_names()) +
                   "; ddalctl help lists them");
}

std::string overview()
{
    Topic list = {"help", "give one of these topics, or a family and its command", {}};
    for (const Topic &topic : topics())
        list.paragraphs.push_back({topic.name, topic.summary});
    for (const Paragraph &family : list_of_families())
        list.paragraphs.push_back(family);
    return text_of(list);
}

void help(const Arguments &arguments, Report &report)
{
    std::string text = overview();
    if (arguments.given("TOPIC"))
        text = text_of(arguments.text("TOPIC"), arguments.given("COMMAND") ? arguments.text("COMMAND") : "");
    text.pop_back(); // the report ends the line
    report.add("help", text);
}

std::vector<std::string> verbs_of_topic(const std::vector<std::string> &words)
{
    std::vector<std::string> verbs;
    if (const Family *family = family_named(words[0]))
        for (const Command &command : family->commands)
            verbs.emplace_back(command.verb);
    return verbs;
}

} // namespace

const std::vector<Topic> &topics()
{
    static const std::vector<Topic> all = all_topics();
    return all;
}

const Family &help_family()
{
    static const Argument topic = {"TOPIC",
                                   Kind::text,
                                   "topic or family; without it the list of topics",
                                   true,
                                   UINT32_MAX,
                                   0,
                                   1,
                                   [](const std::vector<std::string> &) { return topic_names(); }};
    static const Argument verb = {"COMMAND", Kind::text, "command of the family", true, UINT32_MAX,
                                  0,         1,          verbs_of_topic};
    static const Family family = {"help",
                                  "help on a family, a command or a topic",
                                  {{"", "explain a topic, a family or a command", {topic, verb}, help}}};
    return family;
}

std::vector<const Family *> families_and_help()
{
    std::vector<const Family *> all;
    for (const Family &family : families())
        all.push_back(&family);
    all.push_back(&help_family());
    return all;
}

const Family *family_named(const std::string &name)
{
    for (const Family *family : families_and_help()) {
        if (name == family->name)
            return family;
    }
    return nullptr;
}

std::string value_name(const Argument &argument)
{
    constexpr const char *kNames[] = {"NUMBER", "TEXT", "HEX", "", "TEXT"}; // by Kind
    if (argument.values && argument.values({""}) == std::vector<std::string>{command_line::kFiles})
        return "FILE";
    return kNames[static_cast<int>(argument.kind)];
}

std::string synopsis_of(const Family &family, const Command &command)
{
    std::string synopsis = std::string("ddalctl ") + family.name + (*command.verb ? " " : "") + command.verb;
    for (const Argument &argument : command.arguments) {
        std::string form = argument.name + std::string(argument.kind == Kind::words ? "..." : "");
        if (argument.is_option() && argument.kind != Kind::flag)
            form += " " + value_name(argument);
        if (argument.is_option() || argument.optional)
            form = "[" + form + "]";
        synopsis += " " + form;
    }
    return synopsis;
}

std::string family_suggestion(const std::string &word)
{
    std::vector<std::string> names;
    for (const Family *family : families_and_help())
        names.emplace_back(family->name);
    return command_line::suggestion(word, names);
}

} // namespace ddalctl
