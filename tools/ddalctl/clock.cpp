// ddalctl clock: clocks that follow the radio frame, pulse per second, jitter cleaner, run-time clock.
#include <ddal/clock.h>
#include <ddal/jitter_cleaner.h>
#include <ddal/pm.h>

#include <ctime>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/time_text.h"

namespace ddalctl {

namespace {

constexpr uint64_t kShortestWait = 10; // ms; the library waits no less

void show(const Arguments &, Report &report)
{
    timespec monotonic = {};
    timespec real = {};
    require(DDAL(ddal_clock_gettime)(CLOCK_MONOTONIC, &monotonic));
    require(DDAL(ddal_clock_gettime)(CLOCK_REALTIME, &real));
    add_time(report, "monotonic", monotonic);
    add_time(report, "realtime", real);
}

void wait_pps(const Arguments &arguments, Report &report)
{
    report.lasts("pps");
    const uint32_t milliseconds = arguments.number_or("--timeout", 0);
    const timespec timeout = {static_cast<time_t>(milliseconds / 1000),
                              static_cast<long>(milliseconds % 1000) * 1'000'000};
    ddal_clk_event event = {};
    require(
        DDAL(ddal_clk_event_wait_until)(DDAL_CLK_EVENT_PPS, arguments.given("--timeout") ? &timeout : nullptr, &event));
    report.add("sequence", event.sequence);
    add_time(report, "pulse", {static_cast<time_t>(event.sec), static_cast<long>(event.nsec)});
}

void jitter_cleaner(const Arguments &, Report &report)
{
    int32_t status = 0;
    require(DDAL(ddal_jitter_cleaner_stat_read)(0, &status));
    report.add_signed("status", status);
}

void jitter_cleaner_write(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_jitter_cleaner_write)(0, arguments.number("VALUE")));
}

void runtime(const Arguments &, Report &report)
{
    uint32_t milliseconds = 0;
    uint32_t days = 0;
    require(DDAL(ddal_pm_get_runtimeclock)(&milliseconds, &days));
    report.add("days", days);
    report.add("milliseconds", milliseconds);
}

} // namespace

Family clock_family()
{
    return {"clock",
            "frame clocks, pulse per second, jitter cleaner and run-time clock",
            {
                {"show", "show the monotonic time and the real time of the radio frame", {}, show},
                {"wait-pps",
                 "wait for the next pulse per second",
                 {{kTimeout.name, Kind::number, kTimeout.help, true, kLongestWait, kShortestWait}},
                 wait_pps},
                {"jitter-cleaner", "show the status of the jitter cleaner", {}, jitter_cleaner},
                {"jitter-cleaner-write",
                 "write the register of the jitter cleaner",
                 {{"VALUE", Kind::number, "24-bit value", false, 0xFFFFFF}},
                 jitter_cleaner_write},
                {"runtime", "show the total run time of the unit", {}, runtime},
            }};
}

} // namespace ddalctl
