/*
 * Upgrades the RF card's firmware and shows the progress.
 *
 *     rfcard_upgrade IMAGE
 */
#include <stdio.h>

#include <ddal/bsl.h>
#include <ddal/error.h>
#include <ddal/ext.h>

static void show(void *context, enum ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total)
{
    static const char *const names[] = {"enter loader", "compare", "erase", "program", "verify", "loader", "restart"};

    (void)context;
    if (done == 0 || done == total)
        printf("%-12s %6u of %u bytes\n", names[phase], (unsigned)done, (unsigned)total);
}

int main(int argc, char **argv)
{
    uint32_t status = BSL_STATUS_NOT_REQUIRED;
    char text[64];
    int result;

    if (argc != 2) {
        fprintf(stderr, "usage: rfcard_upgrade IMAGE\n");
        return 2;
    }
    result = ddal_ext_rfcard_upgrade(argv[1], 0, 0, show, NULL, &status);
    if (result != 0) {
        ddal_strerror(result, text, sizeof text);
        fprintf(stderr, "rfcard_upgrade: %s (result %d, status %u)\n", text, result, (unsigned)status);
        return 1;
    }
    if (status > BSL_STATUS_SUCCESSFUL) { /* the status alone reports a failed comparison */
        fprintf(stderr, "rfcard_upgrade: the card does not hold the image (status %u)\n", (unsigned)status);
        return 1;
    }
    printf(status == BSL_STATUS_SUCCESSFUL ? "upgraded\n" : "already up to date\n");
    return 0;
}
