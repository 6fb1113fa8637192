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
        throw WrongUse(what + ": this asks on a terminal; without one, give --yes");
    fprintf(stderr, "%s? Type \"yes\" to go on: ", what.c_str());
    char answer[8] = "";
    if (!fgets(answer, sizeof answer, stdin) || std::string(answer) != "yes\n")
        throw WrongUse("not done");
}

} // namespace ddalctl
