/* Reads a text from a file, and the output of a program. */
#include <stdio.h>

#include <ddal/common.h>

int main(void)
{
    char name[64], line[64];

    if (ddal_common_read_string(sizeof name, name, "/etc/hostname") != 0) /* keeps a newline */
        return 1;
    /* Returns the exit status of the program, or a negative code if it could not run or did not end by itself. */
    if (ddal_common_read_cmd_output(sizeof line, line, "echo from a program") != 0)
        return 1;
    printf("%sand a line %s", name, line);
    return 0;
}
