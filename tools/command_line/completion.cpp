#include "command_line/completion.h"

#include <string_view>

namespace command_line {

namespace {

struct Script {
    const char *shell;
    const char *text; // with PROGRAM for the name of the program
};

constexpr Script kScripts[] = {
    {"bash", R"(_PROGRAM()
{
    local line at
    COMPREPLY=()
    while IFS= read -r line; do
        case $line in
        :files) compopt -o filenames 2>/dev/null
            mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "${COMP_WORDS[COMP_CWORD]}") ;;
        :command) for ((at = 1; at < COMP_CWORD; ++at)); do
                [ "${COMP_WORDS[at]}" != -- ] || { _command_offset $((at + 1)); return; }
            done ;;
        *) COMPREPLY+=("${line%%$'\t'*}") ;;
        esac
    done < <("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -F _PROGRAM PROGRAM
)"},
    {"zsh", R"(#compdef PROGRAM
_PROGRAM()
{
    local line separator
    local -a found
    for line in "${(@f)$("${(Q)words[1]}" --complete "${(@Q)words[2,CURRENT-1]}" "$PREFIX" 2>/dev/null)}"; do
        case $line in
        :files) _files ;;
        :command) separator=${words[(i)--]}
            shift $separator words
            ((CURRENT -= separator))
            _normal
            return ;;
        ?*) found+=("${${line%%$'\t'*}//:/\\:}${${(M)line%%$'\t'*}:+:${line#*$'\t'}}") ;;
        esac
    done
    ((! $#found)) || _describe -V PROGRAM found
}
if [ "${funcstack[1]}" = _PROGRAM ]; then
    _PROGRAM
else
    compdef _PROGRAM PROGRAM
fi
)"},
    {"fish", R"(function __PROGRAM_words
    set -l typed (commandline -opc)
    set -l current (commandline -ct)
    for line in ($typed[1] --complete $typed[2..] "$current" 2>/dev/null)
        switch $line
            case :files
                __fish_complete_path "$current"
            case :command
                set -l at (contains -i -- -- $typed)
                complete -C (string join ' ' -- (string escape -- $typed[(math $at + 1)..]) "$current")
            case '*'
                echo -- $line
        end
    end
end
complete -c PROGRAM -f -a '(__PROGRAM_words)'
)"},
};

} // namespace

std::string completion_lines(const Candidates &candidates, const std::string &typed)
{
    std::string lines;
    for (const Candidate &candidate : candidates) {
        if (candidate.word == kFiles || candidate.word == kCommand || candidate.word.starts_with(typed))
            lines += candidate.word + (candidate.help.empty() ? "" : "\t" + candidate.help) + "\n";
    }
    return lines;
}

std::string completion_script(const std::string &shell, const std::string &program)
{
    constexpr std::string_view kPlaceholder = "PROGRAM";
    std::string script;
    for (const Script &row : kScripts) {
        if (shell == row.shell)
            script = row.text;
    }
    for (size_t at = 0; (at = script.find(kPlaceholder, at)) != std::string::npos; at += program.size())
        script.replace(at, kPlaceholder.size(), program);
    return script;
}

} // namespace command_line
