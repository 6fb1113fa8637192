#include "ddalctl/completion.h"

#include "ddalctl/failure.h"
#include "ddalctl/families.h"

namespace ddalctl {

namespace {

std::string options_of(const Command &command)
{
    std::string words = "--json --help";
    for (const Argument &argument : command.arguments) {
        if (argument.is_option())
            words += std::string(" ") + argument.name;
    }
    return words;
}

// One row of a shell "case": the words that may follow the words so far.
std::string row(const std::string &words_so_far, const std::string &words)
{
    return "    \"" + words_so_far + "\") words=\"" + words + "\" ;;\n";
}

std::string rows_of(const Family &family)
{
    std::string verbs;
    std::string rows;
    for (const Command &command : family.commands) {
        verbs += std::string(*command.verb ? command.verb : "") + " ";
        if (*command.verb)
            rows += row(std::string(family.name) + " " + command.verb, options_of(command));
    }
    return rows + row(family.name, verbs + "--json --help");
}

} // namespace

std::string completion_script(const std::string &shell)
{
    if (shell != "bash")
        throw WrongUse("completion supports bash, not \"" + shell + "\"");

    std::string names;
    std::string rows;
    for (const Family &family : families()) {
        names += std::string(family.name) + " ";
        rows += rows_of(family);
    }
    return "_ddalctl()\n{\n"
           "    local words word so_far=()\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        case $word in -*) ;; *) so_far+=(\"$word\") ;; esac\n"
           "    done\n"
           "    case \"${so_far[*]:0:2}\" in\n" +
           row("", names + "--json --help --version") + rows +
           "    *) words=\"--json --help\" ;;\n"
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
           "}\ncomplete -F _ddalctl ddalctl\n";
}

} // namespace ddalctl
