#include "ddalctl/confirm.h"

#include <cstdio>
#include <unistd.h>

#include "ddalctl/failure.h"

namespace ddalctl {

void confirm(const Arguments &arguments, const std::string &what)
{
    if (arguments.given(kYes.name))
        return;
    if (!isatty(STDIN_FILENO))
        throw WrongUse(what + ": standard input is not a terminal; give --yes");
    fprintf(stderr, "%s? Type \"yes\" to continue: ", what.c_str());
    char answer[8] = "";
    if (!fgets(answer, sizeof answer, stdin) || std::string(answer) != "yes\n")
        throw WrongUse("cancelled; nothing was changed");
}

} // namespace ddalctl
