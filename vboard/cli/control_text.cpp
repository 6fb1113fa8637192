#include "cli/control_text.h"

#include <algorithm>

#include "command_line/roff.h"
#include "daemon/faults.h"

namespace vboard {

using command_line::Candidates;
using command_line::roff;

namespace {

// "get ADDRESS     print a register", in columns.
std::string lines_of(const ControlFamily &family, const std::string &indent)
{
    constexpr size_t kWidest = 34;
    const ControlTable commands = family.commands();
    size_t width = 0;
    for (const ControlCommand &command : commands)
        width = std::max(width, std::min(command.form.size(), kWidest));
    std::string lines;
    for (const ControlCommand &command : commands) {
        lines += indent + command.form;
        if (command.form.size() > kWidest)
            lines += "\n" + indent + std::string(width, ' ');
        else
            lines += std::string(width - command.form.size(), ' ');
        lines += "  " + command.help + "\n";
    }
    return lines;
}

// The words for a value of this name.
void add_values(Candidates &candidates, const ControlFamily &family, const std::string &name)
{
    if (name == "FOLDER")
        candidates.push_back({command_line::kFiles, ""});
    if (name == "CALL:PATH")
        for (const std::string &call : fault_calls())
            candidates.push_back({call + ":", ""});
    if (name == "KEY=VALUE" && std::string(family.name) == "fault")
        for (const char *option : kFaultOptions)
            candidates.push_back({std::string(option) + "=", ""});
}

std::string overview()
{
    std::string text = "Usage: vboard ctl [--board DIR] MODEL COMMAND...\n\n"
                       "\"vboard ctl MODEL --help\" lists the commands of a model. All models that there are:\n\n";
    for (const ControlFamily &family : control_families()) {
        const std::string name = family.name;
        text += "  " + name + std::string(18 - name.size(), ' ') + family.summary + "\n";
    }
    return text;
}

} // namespace

std::string control_help(const Words &words)
{
    if (words.empty())
        return overview();
    const auto families = control_families();
    const ControlFamily *family = find_family(families, words[0]);
    if (!family) {
        Words names;
        for (const ControlFamily &each : families)
            names.emplace_back(each.name);
        throw ControlError("no model \"" + words[0] + "\"" + suggestion(words[0], names) +
                           "; \"vboard ctl --help\" lists them");
    }
    return "vboard ctl " + words[0] + ": " + family->summary + "\n\n" + lines_of(*family, "  ");
}

Candidates control_candidates(const Words &words)
{
    Candidates candidates;
    const auto families = control_families();
    if (words.empty()) {
        for (const ControlFamily &family : families)
            candidates.push_back({family.name, family.summary});
        return candidates;
    }
    const ControlFamily *family = find_family(families, words[0]);
    if (!family)
        return {};
    const NextWords next = next_words(*family, {words.begin() + 1, words.end()});
    for (const std::string &word : next.literal)
        candidates.push_back({word, ""});
    for (const std::string &name : next.values)
        add_values(candidates, *family, name);
    return candidates;
}

std::string control_manual()
{
    std::string page;
    for (const ControlFamily &family : control_families()) {
        page += ".SS vboard ctl " + roff(family.name) + "\n" + roff(family.summary) + "\n";
        for (const ControlCommand &command : family.commands())
            page += ".TP\n.B " + roff(std::string(family.name) + " " + command.form) + "\n" + roff(command.help) + "\n";
    }
    return page;
}

// Models of one kind share a list.
std::string control_reference()
{
    const auto families = control_families();
    std::string text;
    for (auto at = families.begin(); at != families.end(); ++at) {
        const auto is_of_kind = [at](const ControlFamily &other) { return other.commands == at->commands; };
        if (std::any_of(families.begin(), at, is_of_kind))
            continue;
        std::string names;
        for (auto each = at; each != families.end(); ++each)
            if (is_of_kind(*each))
                names += "`" + std::string(each->name) + "` (" + each->summary + "), ";
        names.replace(names.size() - 2, 2, ":\n\n");
        text += (text.empty() ? "" : "\n") + names + lines_of(*at, "    ");
    }
    return text;
}

} // namespace vboard
