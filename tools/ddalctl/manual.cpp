#include "ddalctl/manual.h"

#include "ddalctl/families.h"

namespace ddalctl {

namespace {

// Escapes a text for roff, so that hyphens stay hyphens. The text must not begin a line with a control character.
std::string roff(const std::string &text)
{
    std::string escaped;
    for (const char c : text) {
        if (c == '\\')
            escaped += "\\e";
        else if (c == '-')
            escaped += "\\-";
        else
            escaped += c;
    }
    return escaped;
}

// "ADDRESS [COUNT] [--width N]"
std::string synopsis_of(const Command &command)
{
    std::string synopsis;
    for (const Argument &argument : command.arguments) {
        std::string form = argument.name;
        if (argument.is_option() && argument.kind != Kind::flag)
            form += " N";
        if (argument.is_option() || argument.optional)
            form = "[" + form + "]";
        synopsis += (synopsis.empty() ? "" : " ") + form;
    }
    return synopsis;
}

std::string section_of(const Family &family)
{
    std::string page = ".SS " + roff(family.name) + "\n" + roff(family.summary) + ".\n";
    for (const Command &command : family.commands) {
        page += ".TP\n.B " + roff(family.name) + (*command.verb ? " " : "") + roff(command.verb) + " " +
                roff(synopsis_of(command)) + "\n" + roff(command.summary) + ".\n";
        for (const Argument &argument : command.arguments)
            page += ".RS\n.TP\n.I " + roff(argument.name) + "\n" + roff(argument.help) + "\n.RE\n";
    }
    return page;
}

} // namespace

std::string manual_page()
{
    std::string page = ".TH DDALCTL 1\n.SH NAME\nddalctl \\- inspect and control a radio board\n"
                       ".SH SYNOPSIS\n.B ddalctl\n[\\-\\-json] COMMAND [ARGUMENT]...\n"
                       ".SH DESCRIPTION\n"
                       "Calls the operations of libddal on this board, or under\n.BR vboard\non a virtual board.\n"
                       "Numbers are decimal, or hexadecimal after 0x.\n"
                       ".TP\n.B \\-\\-json\nPrint one JSON document, for a failure as well:\n"
                       "{\"error\": {\"code\": ..., \"name\": ..., \"text\": ...}}.\n"
                       ".SH COMMANDS\n";
    for (const Family &family : families())
        page += section_of(family);
    page += ".SH EXIT STATUS\n.TP\n0\nsuccess\n.TP\n1\nthe operation failed\n.TP\n2\nwrong use\n.TP\n3\n"
            "the board, device, property or item does not exist\n";
    return page;
}

} // namespace ddalctl
