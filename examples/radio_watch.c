/*
 * Prints the slow measurement reports of the main FPGA, one line each, and each change of the RP3 link alarm and the
 * reference alarm.
 *
 *     radio_watch [PERIOD_MS [REPORTS]]        period of the reports: 100 to 1000 (default); stops after REPORTS
 * reports
 *
 * The wait for a report blocks in the driver, so a second thread reads the reports. The alarms are descriptors and
 * share one poll.
 */
#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <ddal/error.h>
#include <ddal/rf_fpga.h>
#include <ddal/rp3.h>

#define DEFAULT_PERIOD_MS 1000
#define REPORT_BYTES 64
#define BLOCK_BYTES 32

struct follower {
    struct ddal_rf_fpga_slow_meas *reports;
    uint64_t wanted;
    int done; /* write end of a pipe, closed at the end of the reports */
    int result;
};

static int complain(const char *what, int result)
{
    char text[64];

    ddal_strerror(result, text, sizeof text);
    fprintf(stderr, "radio_watch: %s: %s (%d)\n", what, text, result);
    return 1;
}

static uint32_t word_of(const uint8_t *bytes)
{
    return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 | (uint32_t)bytes[3] << 24;
}

static void print_report(uint64_t number, const uint8_t bytes[REPORT_BYTES])
{
    printf("report %" PRIu64 ":", number);
    for (size_t i = 0; i < REPORT_BYTES; i += 4)
        printf("%s%08" PRIx32, i == BLOCK_BYTES ? " | " : " ", word_of(bytes + i));
    printf("\n");
    fflush(stdout);
}

static void *follow_reports(void *argument)
{
    struct follower *follower = argument;

    for (uint64_t n = 1; n <= follower->wanted; n++) {
        uint8_t bytes[REPORT_BYTES] = {0};
        const int result = ddal_rf_fpga_slow_meas_report_wait(follower->reports, bytes);

        if (result != BLOCK_BYTES) { /* returns the size of a block on success */
            follower->result = result;
            break;
        }
        print_report(n, bytes);
    }
    close(follower->done);
    return NULL;
}

static void print_alarm(const char *name, int fd)
{
    char state[32] = "";
    const ssize_t n = pread(fd, state, sizeof state - 1, 0); /* reading also clears the notification */

    state[n > 0 ? n : 0] = '\0';
    state[strcspn(state, "\n")] = '\0';
    printf("%s alarm: %s\n", name, state);
    fflush(stdout);
}

/* Runs until the reports end. */
static void follow_alarms(int rp3, int refab, int reports_over)
{
    struct pollfd channels[] = {{rp3, POLLPRI, 0}, {refab, POLLPRI, 0}, {reports_over, POLLIN, 0}};

    print_alarm("RP3", rp3);
    print_alarm("reference", refab);
    for (;;) {
        if (poll(channels, sizeof channels / sizeof channels[0], -1) < 0 && errno != EINTR)
            return;
        if (channels[0].revents & POLLPRI)
            print_alarm("RP3", rp3);
        if (channels[1].revents & POLLPRI)
            print_alarm("reference", refab);
        if (channels[2].revents != 0)
            return;
    }
}

static int follow(struct follower *follower, int rp3, int refab)
{
    pthread_t thread;
    int over[2];
    int result;

    if (pipe(over) != 0)
        return complain("pipe", -errno);
    follower->done = over[1];
    result = pthread_create(&thread, NULL, follow_reports, follower);
    if (result != 0) {
        close(over[0]);
        close(over[1]);
        return complain("thread", -result);
    }
    follow_alarms(rp3, refab, over[0]);
    pthread_join(thread, NULL);
    close(over[0]);
    return follower->result == 0 ? 0 : complain("slow measurement report", follower->result);
}

static int open_alarms_and_follow(struct follower *follower)
{
    int rp3;
    int refab;
    int status;
    int result = ddal_rp3_alarm_event_open(&rp3);

    if (result != 0)
        return complain("RP3 alarm", result);
    result = ddal_refab_alarm_event_open(&refab);
    if (result != 0) {
        ddal_rp3_alarm_event_close(rp3);
        return complain("reference alarm", result);
    }
    status = follow(follower, rp3, refab);
    ddal_refab_alarm_event_close(refab);
    ddal_rp3_alarm_event_close(rp3);
    return status;
}

int main(int argc, char **argv)
{
    const unsigned long period = argc > 1 ? strtoul(argv[1], NULL, 0) : DEFAULT_PERIOD_MS;
    struct follower follower = {.wanted = argc > 2 ? strtoull(argv[2], NULL, 0) : UINT64_MAX};
    int status;
    int result;

    if (argc > 3 || follower.wanted == 0 || period > UINT32_MAX) {
        fprintf(stderr, "usage: radio_watch [PERIOD_MS [REPORTS]]\n");
        return 2;
    }
    result = ddal_rf_fpga_slow_meas_report_open(&follower.reports, (uint32_t)period);
    if (result != 0)
        return complain("slow measurement report", result);
    status = open_alarms_and_follow(&follower);
    ddal_rf_fpga_slow_meas_report_close(follower.reports);
    return status;
}
