/*
 * Prints the state of a backhaul link and each change as it happens.
 *
 *     link_watch DEVICE [CHANGES [SECONDS]]
 *
 * DEVICE is a PHY device from 0 to 4. Stops after CHANGES changes, or with status 1 after SECONDS seconds without a
 * change.
 */
#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include <ddal/error.h>
#include <ddal/phy.h>

#define LINK_EVENT 0
#define HIGHEST_DEVICE 4

static int complain(const char *what, int result)
{
    char text[64];

    ddal_strerror(result, text, sizeof text);
    fprintf(stderr, "link_watch: %s: %s (%d)\n", what, text, result);
    return 1;
}

/* Returns ULONG_MAX if the text is not a number. */
static unsigned long number_of(const char *text)
{
    char *end;
    const unsigned long number = strtoul(text, &end, 0);

    return *text == '\0' || *end != '\0' ? ULONG_MAX : number;
}

/* Returns 1 after a change of the link, 0 at the deadline. -1 waits without a deadline. */
static int wait_for_change(int fd, int milliseconds)
{
    struct pollfd link = {fd, POLLIN, 0};
    int ready;

    do
        ready = poll(&link, 1, milliseconds);
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

static int follow(int fd, unsigned long device, unsigned long changes, int milliseconds)
{
    /* The descriptor is readable from the start: the first round prints the present state. */
    for (unsigned long n = 0; n <= changes; n++) {
        uint16_t state;
        int result;

        if (!wait_for_change(fd, milliseconds)) {
            fprintf(stderr, "link_watch: link %lu did not change for %d s\n", device, milliseconds / 1000);
            return 1;
        }
        result = ddal_phy_copper_event_get(fd, &state);
        if (result != 0)
            return complain("the link's service", result);
        printf("link %lu %s %s\n", device, n == 0 ? "is" : "went", state ? "up" : "down");
        fflush(stdout);
    }
    return 0;
}

int main(int argc, char **argv)
{
    const unsigned long device = argc > 1 ? number_of(argv[1]) : ULONG_MAX;
    const unsigned long changes = argc > 2 ? number_of(argv[2]) : ULONG_MAX - 1;
    const unsigned long seconds = argc > 3 ? number_of(argv[3]) : 0;
    int result;
    int status;
    int fd;

    if (argc > 4 || device > HIGHEST_DEVICE || changes == ULONG_MAX || seconds > INT_MAX / 1000) {
        fprintf(stderr, "usage: link_watch DEVICE [CHANGES [SECONDS]]\n");
        return 2;
    }
    result = ddal_phy_copper_event_open((uint32_t)device, LINK_EVENT, &fd);
    if (result != 0)
        return complain("cannot follow the link", result);
    status = follow(fd, device, changes, seconds ? (int)seconds * 1000 : -1);
    ddal_phy_copper_event_close(fd);
    return status;
}
