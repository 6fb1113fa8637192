/*
 * Measures the radio frame. Wakes up at every frame and prints once a second: the frame number, the number of frames,
 * the largest deviation of a frame from 10 ms, the largest delay of the wake-up, and the number of missed frames.
 *
 *     frame_meter [FRAMES]        stops after FRAMES frames (default: never)
 */
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <ddal/error.h>
#include <ddal/sfn.h>

#define FRAME_NANOSECONDS 10000000
#define FRAMES_PER_SECOND 100
#define SFN_COUNT 4096

struct meter {
    uint64_t frames;
    uint64_t missed;
    int64_t largest_jitter;   /* ns, since the last line */
    int64_t largest_lateness; /* ns, since the last line */
    uint32_t last_sfn;
    struct timespec first_start;
    struct timespec last_start;
};

static int64_t nanoseconds_between(const struct timespec *from, const struct timespec *to)
{
    return (int64_t)(to->tv_sec - from->tv_sec) * 1000000000 + (to->tv_nsec - from->tv_nsec);
}

static void keep_largest(int64_t *largest, int64_t value)
{
    if (value < 0)
        value = -value;
    if (value > *largest)
        *largest = value;
}

/* start: monotonic time of the frame start. now: monotonic time of the wake-up. */
static void meter_add(struct meter *meter, uint32_t sfn, const struct timespec *start, const struct timespec *now)
{
    if (meter->frames > 0) {
        const uint32_t step = (sfn - meter->last_sfn + SFN_COUNT) % SFN_COUNT;
        const int64_t distance = nanoseconds_between(&meter->last_start, start);

        meter->missed += step > 0 ? step - 1 : 0;
        keep_largest(&meter->largest_jitter, distance - (int64_t)step * FRAME_NANOSECONDS);
    } else {
        meter->first_start = *start;
    }
    keep_largest(&meter->largest_lateness, nanoseconds_between(start, now));
    meter->last_sfn = sfn;
    meter->last_start = *start;
    meter->frames++;
}

static void meter_show(struct meter *meter)
{
    printf("SFN %4" PRIu32 "   frames %6" PRIu64 "   jitter %6.1f us   woken %7.1f us late   missed %" PRIu64 "\n",
           meter->last_sfn, meter->frames, (double)meter->largest_jitter / 1e3, (double)meter->largest_lateness / 1e3,
           meter->missed);
    fflush(stdout);
    meter->largest_jitter = 0;
    meter->largest_lateness = 0;
}

static void meter_sum_up(const struct meter *meter)
{
    const double seconds = (double)nanoseconds_between(&meter->first_start, &meter->last_start) / 1e9;

    if (seconds > 0)
        printf("%" PRIu64 " frames in %.2f s: %.1f per second, %" PRIu64 " missed\n", meter->frames, seconds,
               (double)(meter->frames - 1 + meter->missed) / seconds, meter->missed);
}

/* Waits for the next frame. Returns 0 and stores its number and time, or returns the library's code. */
static int next_frame(uint32_t *sfn, struct timespec *start)
{
    int result;

    do
        result = ddal_sfn_wait_next(sfn, start, 0);
    while (result == -EINTR);
    return result;
}

int main(int argc, char **argv)
{
    const uint64_t wanted = argc > 1 ? strtoull(argv[1], NULL, 0) : UINT64_MAX;
    struct meter meter = {0};

    if (argc > 2 || wanted == 0) {
        fprintf(stderr, "usage: frame_meter [FRAMES]\n");
        return 2;
    }
    while (meter.frames < wanted) {
        uint32_t sfn = 0;
        struct timespec start = {0};
        struct timespec now = {0};
        const int result = next_frame(&sfn, &start);

        if (result != 0) {
            char text[64];

            ddal_strerror(result, text, sizeof text);
            fprintf(stderr, "frame_meter: %s (%d)\n", text, result);
            return 1;
        }
        clock_gettime(CLOCK_MONOTONIC, &now);
        meter_add(&meter, sfn, &start, &now);
        if (meter.frames % FRAMES_PER_SECOND == 0)
            meter_show(&meter);
    }
    meter_sum_up(&meter);
    return 0;
}
