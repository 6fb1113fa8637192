/* Waits for a frame and prints the delay until the program runs. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/clock.h>
#include <ddal/sfn.h>

int main(void)
{
    uint32_t sfn = 0, offset = 0; /* offset: units of 1/1228.8 microseconds */
    uint64_t bcn = 0;
    struct timespec start, now;

    if (ddal_sfn_wait_next(&sfn, &start, 0) != 0 || ddal_sfn_get_bcn(&bcn, &offset, NULL) != 0 ||
        ddal_clock_gettime(CLOCK_MONOTONIC, &now) != 0)
        return 1;
    printf("frame number %s, %s\n", sfn == bcn % 4096 || sfn + 1 == bcn % 4096 ? "agrees" : "differs",
           now.tv_sec >= start.tv_sec ? "time goes on" : "time goes back");
    fprintf(stderr, "SFN %" PRIu32 ", BCN %" PRIu64 ", %.1f us into it\n", sfn, bcn, offset / 1228.8);
    return 0;
}
