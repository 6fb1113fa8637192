#include "ddalctl/cli.h"

int main(int argc, char **argv)
{
    return ddalctl::run(argc, argv);
}
