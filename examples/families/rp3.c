/* Takes a snapshot of the radio links and waits 100 ms for their alarm. */
#include <poll.h>
#include <stdio.h>
#include <unistd.h>

#include <ddal/rp3.h>

int main(void)
{
    static char text[2048];
    struct pollfd alarm = {-1, POLLPRI, 0};
    const int healthy = ddal_rp3_validate_aif("example", 0, text, sizeof text) == 0;
    char state[16];

    printf("the links are %s\n", healthy ? "healthy" : "not healthy");
    if (ddal_rp3_alarm_event_open(&alarm.fd) != 0)
        return 1;
    if (read(alarm.fd, state, sizeof state) < 0) /* read once before waiting */
        return 1;
    printf("%s\n", poll(&alarm, 1, 100) == 0 ? "no alarm" : "an alarm");
    return ddal_rp3_alarm_event_close(alarm.fd) == 0 ? 0 : 1;
}
