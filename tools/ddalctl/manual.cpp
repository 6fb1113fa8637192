#include "ddalctl/manual.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>

#include "command_line/completion.h"
#include "command_line/roff.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/help.h"

namespace ddalctl {

namespace {

using command_line::roff;

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c == '-' ? ' ' : static_cast<char>(std::toupper(c)); });
    return text;
}

std::string heading(std::string name, const std::string &summary)
{
    std::string title = name;
    std::transform(title.begin(), title.end(), title.begin(), [](unsigned char c) { return std::toupper(c); });
    return ".TH " + roff(title) + " 1 \"\" \"libddal " DDALCTL_VERSION "\" \"Radio board\"\n.SH NAME\n" + roff(name) +
           " \\- " + roff(summary) + "\n";
}

// A word in bold and its explanation.
std::string definition(const std::string &term, const std::string &text)
{
    return ".TP\n.B " + roff(term) + "\n" + roff(text) + "\n";
}

std::string section_of(const Topic &topic)
{
    std::string page = ".SH " + upper(topic.name) + "\n";
    bool is_first = true;
    for (const Paragraph &paragraph : topic.paragraphs) {
        page += paragraph.term.empty() ? std::string(is_first ? "" : ".PP\n") + roff(paragraph.text) + "\n"
                                       : definition(paragraph.term, paragraph.text);
        is_first = false;
    }
    return page;
}

std::string page_of_program()
{
    std::string page = heading("ddalctl", "inspect and control a radio board") +
                       ".SH SYNOPSIS\n.B ddalctl\n[\\-\\-json] [\\-\\-verbose] FAMILY [COMMAND] [ARGUMENT]...\n.br\n"
                       ".B ddalctl help\n[TOPIC|FAMILY [COMMAND]]\n"
                       ".SH DESCRIPTION\n"
                       "Calls the operations of libddal on this board, or under\n.BR vboard (1)\non a virtual board.\n"
                       "Each family of commands has a manual page, such as\n.BR ddalctl\\-sfp (1).\n"
                       ".SH OPTIONS\n" +
                       definition("--json", "Print JSON.") +
                       definition("--verbose", "Print the log lines of the library on standard error.") +
                       definition("--help", "Print help on the program, the family or the command.") +
                       definition("--version", "Print the version of the program.") +
                       definition("--completion SHELL", "Print the completion script of bash, zsh or fish.");
    for (const Topic &topic : topics())
        page += section_of(topic);
    page += ".SH EXAMPLES\n.nf\nddalctl sfp show 1\nddalctl \\-\\-json events \\-\\-only laa\n"
            "ddalctl fpga read 0x100 4\nddalctl help exit\\-status\n.fi\n.SH SEE ALSO\n";
    for (const Family &family : families())
        page += ".BR " + roff(std::string("ddalctl-") + family.name) + " (1),\n";
    return page + ".BR vboard (1)\n";
}

std::string page_of(const Family &family)
{
    std::string page = heading(std::string("ddalctl-") + family.name, family.summary) + ".SH SYNOPSIS\n.nf\n";
    for (const Command &command : family.commands)
        page += roff(synopsis_of(family, command)) + "\n";
    page += ".fi\n.SH COMMANDS\n";
    for (const Command &command : family.commands) {
        page += ".SS " + roff(synopsis_of(family, command)) + "\n" + roff(upper(std::string(command.summary, 1))) +
                roff(std::string(command.summary).substr(1)) + ".\n";
        for (const Argument &argument : command.arguments)
            page += definition(argument.name, argument.help);
    }
    return page + ".SH EXIT STATUS\n0 success, 1 failure, 2 wrong use, 3 nothing there; see\n.BR ddalctl (1).\n"
                  ".SH SEE ALSO\n.BR ddalctl (1),\n.BR vboard (1)\n";
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file)
        throw Failure(-EIO, kOperationFailed, "cannot write " + path, path.c_str());
}

} // namespace

std::string manual_page(const std::string &name)
{
    if (name.empty() || name == "ddalctl")
        return page_of_program();
    for (const Family &family : families()) {
        if (name == family.name)
            return page_of(family);
    }
    throw WrongUse("no family \"" + name + "\"" + family_suggestion(name));
}

void write_documents(const std::string &folder)
{
    write_file(folder + "/ddalctl.1", page_of_program());
    for (const Family &family : families())
        write_file(folder + "/ddalctl-" + family.name + ".1", page_of(family));
    for (const char *shell : {"bash", "zsh", "fish"})
        write_file(folder + "/ddalctl." + shell, command_line::completion_script(shell, "ddalctl"));
}

} // namespace ddalctl
