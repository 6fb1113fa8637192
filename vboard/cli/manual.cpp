#include "cli/manual.h"

#include "cli/control_text.h"
#include "command_line/roff.h"

namespace vboard {

using command_line::roff;

namespace {

constexpr const char *kOpening =
    R"(.TH VBOARD 1 "" "libddal " "Radio board"
.SH NAME
vboard \- virtual radio board to run applications without the hardware
.SH SYNOPSIS
.B vboard run
[OPTION]... \-\- PROGRAM [ARGUMENT]...
.br
.B vboard
COMMAND [OPTION]... [ARGUMENT]...
.SH DESCRIPTION
Runs an unchanged application that uses libddal on a machine that is not a radio board.
A board is a directory: board.conf names the model that serves each path, root/ holds the files of the board, .vboard/
its sockets, log and trace.
A preload library redirects the board's paths into that directory and keeps the program away from the machine.
A daemon runs the models and ends with the last program.
.SH COMMANDS
)";

constexpr const char *kControl =
    R"(.SH CONTROL
Replace a word in capitals by a value. "|" separates alternatives, "[...]" is optional, and "..." repeats the last word.
.B vboard ctl models
lists the models of a board,
.BI "vboard ctl " MODEL " \-\-help"
the commands of one.
The CALL of a fault rule may be *, and its PATH may end in *.
)";

constexpr const char *kClosing =
    R"(.SH ENVIRONMENT
.TP
.B LD_PRELOAD
set for every program of the board
.TP
.B VBOARD_PAGE
set for every program of the board; the program and
.B vboard ctl
find the board through it
.TP
.B VBOARD_EMULATOR
emulator for programs of another processor, unless
.B \-\-emulator
names one
.SH FILES
.TP
.I /usr/share/vboard/boards
board descriptions
.TP
.IR BOARD /.vboard/trace.jsonl
calls of the board's programs, one JSON object a line
.TP
.IR BOARD /.vboard/daemon.log
log of the daemon
.SH EXIT STATUS
The exit status of the program;
.B 126
for a program that the board cannot hold and does not run (static, setuid, or of a processor without a preload library);
.B 127
for a missing program;
.B 1
when the board cannot start;
.B 2
for wrong use.
.SH EXAMPLES
.nf
vboard run \-\-type mbo \-\- ./application
vboard run \-\-board my\-board \-\- ./application
vboard ctl \-\-board my\-board fpga set 0x100 1
vboard ctl \-\-board my\-board fault add pread:/dev/fpga_usr nth=2 errno=EIO
.fi
.SH SEE ALSO
.BR ddalctl (1)
)";

std::vector<const CLI::App *> commands_of(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *) { return true; });
}

std::vector<const CLI::Option *> options_of(const CLI::App &app)
{
    return app.get_options(
        [](const CLI::Option *option) { return !option->get_positional() && option->get_name() != "--help"; });
}

// "--board TEXT"
std::string form_of(const CLI::Option &option)
{
    std::string form = ".B " + roff(option.get_name(false, true));
    if (option.get_items_expected_max() != 0)
        form += " \\fI" + roff(option.get_type_name()) + "\\fP";
    return form;
}

} // namespace

std::string manual_page(const CLI::App &app)
{
    std::string page = kOpening;
    for (const CLI::App *command : commands_of(app)) {
        page += ".SS " + roff(command->get_name()) + "\n" + roff(command->get_description()) + ".\n";
        for (const CLI::Option *option : options_of(*command))
            page += ".TP\n" + form_of(*option) + "\n" + roff(option->get_description()) + "\n";
    }
    return page + kControl + control_manual() + kClosing;
}

} // namespace vboard
