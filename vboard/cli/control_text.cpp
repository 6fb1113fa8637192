#include "cli/control_text.h"

#include <algorithm>
#include <sstream>

namespace vboard {

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

std::string roff(const std::string &text)
{
    std::string escaped;
    for (const char c : text)
        escaped += c == '\\' ? std::string("\\e") : c == '-' ? std::string("\\-") : std::string(1, c);
    return escaped;
}

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

std::string control_completion(const std::string &words)
{
    Words said;
    std::istringstream in(words);
    for (std::string word; in >> word;)
        said.push_back(word);
    const auto families = control_families();
    std::string list;
    if (said.empty()) {
        for (const ControlFamily &family : families)
            list += std::string(family.name) + "\n";
    } else if (const ControlFamily *family = find_family(families, said[0])) {
        said.erase(said.begin());
        for (const std::string &word : next_words(*family, said))
            list += word + "\n";
    }
    return list;
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
