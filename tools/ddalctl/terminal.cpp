#include "ddalctl/terminal.h"

#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ddalctl {

bool is_terminal()
{
    const char *kind = getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && !(kind && strcmp(kind, "dumb") == 0);
}

bool has_colours()
{
    const char *no_colour = getenv("NO_COLOR");
    return is_terminal() && !(no_colour && *no_colour);
}

TerminalSize terminal_size()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
        return {size.ws_col, size.ws_row};
    const char *columns = getenv("COLUMNS");
    const unsigned long wide = columns ? strtoul(columns, nullptr, 10) : 0;
    return {wide > 0 && wide < 1000 ? wide : 80, 24};
}

} // namespace ddalctl
