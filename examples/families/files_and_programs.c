/* Reads a text from a file, and the output of a program. */
#include <stdio.h>

#include <ddal/common.h>

int main(void)
{
    char name[64], line[64];

    if (ddal_common_read_string(sizeof name, name, "/etc/hostname") != 0) /* a newline stays in the text */
        return 1;
    /* 0: the program succeeded; above 0: its own exit status; below: it could not be run or did not end by itself */
    if (ddal_common_read_cmd_output(sizeof line, line, "echo from a program") != 0)
        return 1;
    printf("%sand a line %s", name, line);
    return 0;
}
